#include "files.h"

#include <windows.h>
#include <shlobj.h>
#include <shellapi.h>

#include "app/owned_handle.h"

bool writeFileBytes(const std::wstring& path, const std::string& bytes) {
    OwnedHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                 nullptr));
    if (!file) return false;
    size_t at = 0;
    while (at < bytes.size()) {
        DWORD chunk = bytes.size() - at > (1u << 20) ? (1u << 20) : static_cast<DWORD>(bytes.size() - at);
        DWORD written = 0;
        if (!WriteFile(file.get(), bytes.data() + at, chunk, &written, nullptr) || written == 0) return false;
        at += written;
    }
    return true;
}

bool readFileBytes(const std::wstring& path, std::string& bytes) {
    // The program opens and closes its log for every line: share everything.
    OwnedHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                 nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    bytes.clear();
    if (!file) return false;
    char buffer[65536];
    for (;;) {
        DWORD got = 0;
        if (!ReadFile(file.get(), buffer, sizeof buffer, &got, nullptr)) return false;
        if (got == 0) return true;
        bytes.append(buffer, got);
    }
}

bool makeFolders(const std::wstring& path) {
    int result = SHCreateDirectoryExW(nullptr, path.c_str(), nullptr);
    return result == ERROR_SUCCESS || result == ERROR_ALREADY_EXISTS || result == ERROR_FILE_EXISTS;
}

void removeFolderTree(const std::wstring& path) {
    if (path.empty()) return;
    std::wstring from = path;
    from.push_back(L'\0');  // the operation takes a list that ends with an empty name
    SHFILEOPSTRUCTW operation{};
    operation.wFunc = FO_DELETE;
    operation.pFrom = from.c_str();
    operation.fFlags = FOF_SILENT | FOF_NOCONFIRMATION | FOF_NOERRORUI;
    SHFileOperationW(&operation);
}

namespace {

// One directory search, closed when the scope that started it ends.
class FileSearch {
public:
    FileSearch(const std::wstring& pattern, WIN32_FIND_DATAW& found)
        : handle_(FindFirstFileW(pattern.c_str(), &found)) {}
    ~FileSearch() {
        if (handle_ != INVALID_HANDLE_VALUE) FindClose(handle_);
    }
    FileSearch(const FileSearch&) = delete;
    FileSearch& operator=(const FileSearch&) = delete;
    bool found() const { return handle_ != INVALID_HANDLE_VALUE; }
    bool next(WIN32_FIND_DATAW& found) { return FindNextFileW(handle_, &found) != FALSE; }

private:
    HANDLE handle_;
};

}  // namespace

void deleteFilesMatching(const std::wstring& folder, const std::wstring& pattern) {
    WIN32_FIND_DATAW found;
    FileSearch search(folder + L"\\" + pattern, found);
    if (!search.found()) return;
    do {
        DeleteFileW((folder + L"\\" + found.cFileName).c_str());
    } while (search.next(found));
}

std::wstring folderOf(const std::wstring& path) {
    size_t slash = path.find_last_of(L"\\/");
    return slash == std::wstring::npos ? std::wstring(L".") : path.substr(0, slash);
}

std::wstring fullPath(const std::wstring& path) {
    wchar_t buffer[MAX_PATH * 4];
    DWORD length = GetFullPathNameW(path.c_str(), static_cast<DWORD>(sizeof buffer / sizeof buffer[0]), buffer, nullptr);
    if (length == 0 || length >= sizeof buffer / sizeof buffer[0]) return path;
    return std::wstring(buffer, length);
}
