#include "app/command_line.h"

#include <windows.h>
#include <shellapi.h>

#include <cwchar>
#include <cstdlib>

#include "app/host_state.h"

std::wstring folderOfPath(const std::wstring& path) {
    size_t separator = path.find_last_of(L"\\/");
    if (separator == std::wstring::npos) return path;
    return path.substr(0, separator);
}

std::wstring findProgramFolder() {
    wchar_t path[260] = L"";
    GetModuleFileNameW(nullptr, path, 260);
    return folderOfPath(path);
}

void deriveDefaultPaths(HostState& state, const std::wstring& programFolder) {
    state.programFolder = programFolder;
    state.webFolder = programFolder + L"\\web";
    state.docFolder = programFolder + L"\\..\\package\\Documents";
    state.logPath = programFolder + L"\\gra_overlay.log";
}

bool scanCommandLine(const wchar_t* commandLine, HostState& state) {
    bool showAtStart = false;
    int argc = 0;
    wchar_t** argv = CommandLineToArgvW(commandLine, &argc);
    if (!argv) return false;

    // Each value option takes the next token as it stands, whatever it looks like.
    auto valueFor = [&](int i, const wchar_t* name) -> const wchar_t* {
        if (wcscmp(argv[i], name) != 0 || i + 1 >= argc) return nullptr;
        return argv[i + 1];
    };

    int i = 1;
    while (i < argc) {
        const wchar_t* value = nullptr;
        if ((value = valueFor(i, L"--mode"))) {
            state.childMode = wcscmp(value, L"owned") != 0;
        } else if ((value = valueFor(i, L"--web"))) {
            state.webFolder = value;
        } else if ((value = valueFor(i, L"--doc"))) {
            state.docFolder = value;
        } else if ((value = valueFor(i, L"--port"))) {
            state.linkPort = _wtoi(value);
        } else if (wcscmp(argv[i], L"--show") == 0) {
            showAtStart = true;
        } else if ((value = valueFor(i, L"--game"))) {
            state.gameTitle = value;
        } else if ((value = valueFor(i, L"--game-class"))) {
            state.gameClass = value;
        } else if ((value = valueFor(i, L"--data"))) {
            state.dataFolder = value;
        } else if ((value = valueFor(i, L"--log"))) {
            state.logPath = value;
        }
        i += value ? 2 : 1;
    }
    LocalFree(argv);
    return showAtStart;
}
