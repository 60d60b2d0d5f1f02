#include "test_support.h"

#include <cstdio>

#include "app/host_state.h"

namespace test_support {

std::wstring scratchPath(const std::wstring& name) {
    static int serial = 0;
    wchar_t folder[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    std::wstring path = std::wstring(folder) + L"gra-unit-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                        std::to_wstring(++serial) + L"-" + name;
    DeleteFileW(path.c_str());
    return path;
}

std::string readBytes(const std::wstring& path) {
    FILE* file = _wfopen(path.c_str(), L"rb");
    if (!file) return std::string();
    std::string bytes;
    char chunk[4096];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, file)) > 0) bytes.append(chunk, got);
    fclose(file);
    return bytes;
}

bool fileExists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void writeBytes(const std::wstring& path, const std::string& bytes) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return;
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(file);
}

namespace {

void removeTree(const std::wstring& folder) {
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &found);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            std::wstring name = found.cFileName;
            if (name == L"." || name == L"..") continue;
            std::wstring inner = folder + L"\\" + name;
            SetFileAttributesW(inner.c_str(), FILE_ATTRIBUTE_NORMAL);
            if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                removeTree(inner);
            } else {
                DeleteFileW(inner.c_str());
            }
        } while (FindNextFileW(search, &found));
        FindClose(search);
    }
    RemoveDirectoryW(folder.c_str());
}

}  // namespace

ScratchFolder::ScratchFolder() : path(scratchPath(L"folder")) {
    CreateDirectoryW(path.c_str(), nullptr);
}

ScratchFolder::~ScratchFolder() {
    removeTree(path);
}

std::vector<std::string> logMessages(const std::wstring& path) {
    std::string bytes = readBytes(path);
    std::vector<std::string> messages;
    size_t start = 0;
    while (start < bytes.size()) {
        size_t end = bytes.find("\r\n", start);
        if (end == std::string::npos) end = bytes.size();
        std::string line = bytes.substr(start, end - start);
        // "[gra-overlay] hh:mm:ss " is 23 characters.
        if (line.rfind("[gra-overlay] ", 0) == 0 && line.size() >= 23) line = line.substr(23);
        messages.push_back(line);
        start = end + 2;
    }
    return messages;
}

ScratchLog::ScratchLog() : path(scratchPath(L"log.txt")), previous(host.logPath) {
    host.logPath = path;
}

ScratchLog::~ScratchLog() {
    host.logPath = previous;
    DeleteFileW(path.c_str());
}

}  // namespace test_support
