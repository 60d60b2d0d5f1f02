#include "host/game_window.h"

#include "app/host_state.h"
#include "app/log.h"
#include "app/text.h"
#include "host/game_warnings.h"

namespace {

BOOL CALLBACK matchGameWindow(HWND window, LPARAM found) {
    wchar_t className[64] = L"";
    wchar_t title[128] = L"";
    GetClassNameW(window, className, 64);
    GetWindowTextW(window, title, 128);
    if (host.gameClass == className && host.gameTitle == title && IsWindowVisible(window)) {
        *reinterpret_cast<HWND*>(found) = window;
        return FALSE;
    }
    return TRUE;
}

}  // namespace

HWND findGameWindow() {
    HWND found = nullptr;
    EnumWindows(matchGameWindow, reinterpret_cast<LPARAM>(&found));
    return found;
}

uint32_t childStyleFor(bool mouseToGame) {
    return mouseToGame ? WS_CHILD | WS_CLIPSIBLINGS : WS_CHILD | WS_CLIPSIBLINGS | WS_CLIPCHILDREN;
}

void attachToGameWindow(HWND window) {
    host.gameWindow = window;
    host.gameProcessId = 0;
    DWORD processId = 0;
    GetWindowThreadProcessId(window, &processId);
    host.gameProcessId = processId;

    if (host.childMode) {
        SetParent(host.hostWindow, host.gameWindow);
        SetWindowLongPtrW(host.hostWindow, GWL_STYLE, childStyleFor(host.mouseToGame));
    } else {
        // The owner keeps the host above it, hides it when minimised and takes
        // it along when destroyed.
        SetWindowLongPtrW(host.hostWindow, GWLP_HWNDPARENT, reinterpret_cast<LONG_PTR>(host.gameWindow));
    }
    logLine("game window %p found (%s), process %s pid %lu", static_cast<void*>(window),
            host.childMode ? "child" : "owned", processImageName(host.gameProcessId).c_str(),
            static_cast<unsigned long>(host.gameProcessId));
    host.noGameWindowSince = 0;
    checkGameElevation();
}

std::string processImageName(uint32_t processId) {
    if (processId == 0) return "?";
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId);
    if (!process) return "?";
    wchar_t path[260];
    DWORD length = 260;
    bool ok = QueryFullProcessImageNameW(process, 0, path, &length) != 0;
    CloseHandle(process);
    if (!ok) return "?";
    std::wstring fullPath(path, length);
    size_t separator = fullPath.find_last_of(L"\\/");
    return wideToUtf8(separator == std::wstring::npos ? fullPath : fullPath.substr(separator + 1));
}

std::string describeWindow(HWND window) {
    if (!window) return "none";
    DWORD processId = 0;
    GetWindowThreadProcessId(window, &processId);
    wchar_t className[128] = L"";
    wchar_t titleBuffer[256] = L"";
    GetClassNameW(window, className, 128);
    GetWindowTextW(window, titleBuffer, 256);
    std::wstring title = titleBuffer;
    if (title.size() > 60) title = title.substr(0, 60) + L"...";

    char text[768];
    formatText(text, sizeof text, "%s pid %lu class '%s' title '%s' (%p)", processImageName(processId).c_str(),
               static_cast<unsigned long>(processId), wideToUtf8(className).c_str(), wideToUtf8(title).c_str(),
               static_cast<void*>(window));
    return text;
}
