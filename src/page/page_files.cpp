#include "page/page_files.h"

#include <windows.h>

#include <share.h>

#include <cstdio>
#include <cwchar>

#include "app/host_state.h"

namespace {

// The comparison runs over the whole name: a zero character inside it would
// otherwise end both the comparison and the path built from it, and the save
// would then truncate the target in place.
bool sameNameWhole(const std::wstring& name, const wchar_t* allowed) {
    return name.size() == wcslen(allowed) && _wcsicmp(name.c_str(), allowed) == 0;
}

}  // namespace

bool isPageFileName(const std::wstring& name) {
    return sameNameWhole(name, L"gra_pad.json") || sameNameWhole(name, L"gra_overlay.json");
}

std::wstring pageFilePath(const std::wstring& name) {
    return host.docFolder + L"\\" + name;
}

bool readWholeStream(FILE* file, std::string& bytes) {
    std::string content;
    char chunk[65536];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, file)) > 0) content.append(chunk, got);
    // A read that failed part-way is no whole file: the page must never get a
    // truncated text that it may save back over the good one.
    if (ferror(file)) return false;
    bytes.swap(content);
    return true;
}

bool readWholeFile(const std::wstring& path, std::string& bytes) {
    FILE* file = _wfsopen(path.c_str(), L"rb", _SH_DENYNO);
    if (!file) return false;
    bool whole = readWholeStream(file, bytes);
    fclose(file);
    return whole;
}

bool writeFileReplacing(const std::wstring& path, const std::string& bytes) {
    std::wstring temporary = path + L".tmp";
    FILE* file = _wfsopen(temporary.c_str(), L"wb", _SH_DENYNO);
    if (!file) return false;
    // The outcome rests on the move alone.
    fwrite(bytes.data(), 1, bytes.size(), file);
    fclose(file);
    return MoveFileExW(temporary.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
}
