#include "page/page_files.h"

#include <windows.h>

#include <share.h>

#include <cstdio>
#include <cwchar>

#include "app/host_state.h"

bool isPageFileName(const std::wstring& name) {
    return _wcsicmp(name.c_str(), L"gra_pad.json") == 0 || _wcsicmp(name.c_str(), L"gra_overlay.json") == 0;
}

std::wstring pageFilePath(const std::wstring& name) {
    return host.docFolder + L"\\" + name;
}

bool readWholeFile(const std::wstring& path, std::string& bytes) {
    FILE* file = _wfsopen(path.c_str(), L"rb", _SH_DENYNO);
    if (!file) return false;
    std::string content;
    char chunk[65536];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, file)) > 0) content.append(chunk, got);
    fclose(file);
    bytes.swap(content);
    return true;
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
