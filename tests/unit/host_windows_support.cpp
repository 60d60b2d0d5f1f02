#include "host_windows_support.h"

#include <cstdio>

#include "app/text.h"
#include "host/host_window.h"

namespace host_windows {

namespace {

const wchar_t hostClassName[] = L"GRAOverlayHostUnderTest";

void registerClass(const wchar_t* name, WNDPROC procedure, HBRUSH background) {
    WNDCLASSW existing{};
    if (GetClassInfoW(GetModuleHandleW(nullptr), name, &existing)) return;
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = procedure;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.hCursor = LoadCursorW(nullptr, MAKEINTRESOURCEW(32512));
    windowClass.hbrBackground = background;
    windowClass.lpszClassName = name;
    RegisterClassW(&windowClass);
}

}  // namespace

std::wstring uniqueName(const std::wstring& prefix) {
    static int serial = 0;
    return prefix + L" " + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++serial);
}

HWND makeGameWindow(const std::wstring& className, const std::wstring& title, bool visible, RECT place,
                    bool framed) {
    registerClass(className.c_str(), DefWindowProcW, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));
    DWORD style = framed ? WS_OVERLAPPEDWINDOW : WS_POPUP;
    HWND window = CreateWindowExW(0, className.c_str(), title.c_str(), style, place.left, place.top,
                                  place.right - place.left, place.bottom - place.top, nullptr, nullptr,
                                  GetModuleHandleW(nullptr), nullptr);
    if (visible) ShowWindow(window, SW_SHOWNOACTIVATE);
    return window;
}

HWND makeHostWindow(bool childMode) {
    // The same dark blue as the real host class, so that the default erase is told apart from the colour key.
    registerClass(hostClassName, hostWindowProc, CreateSolidBrush(0x00180B0B));
    DWORD exStyle = childMode ? 0 : WS_EX_NOACTIVATE | WS_EX_TOOLWINDOW;
    return CreateWindowExW(exStyle, hostClassName, L"GRA overlay", WS_POPUP | WS_CLIPCHILDREN, 0, 0, 100, 100,
                           nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
}

void destroyQuietly(HWND window) {
    if (!IsWindow(window)) return;
    SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(DefWindowProcW));
    DestroyWindow(window);
}

bool takeQuitMessage() {
    MSG message;
    bool found = false;
    while (PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE)) found = true;
    return found;
}

std::string hex(HWND window) {
    char text[32];
    std::snprintf(text, sizeof text, "%016llX",
                  static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(window)));
    return text;
}

std::string ownImageName() {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring full = path;
    size_t separator = full.find_last_of(L"\\/");
    return wideToUtf8(separator == std::wstring::npos ? full : full.substr(separator + 1));
}

uint32_t endedProcessId(HANDLE* keptHandle) {
    wchar_t commandLine[] = L"cmd.exe /c exit 0";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, commandLine, nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                        &process)) {
        return 0;
    }
    WaitForSingleObject(process.hProcess, 30000);
    CloseHandle(process.hThread);
    if (keptHandle) {
        *keptHandle = process.hProcess;
        return process.dwProcessId;
    }
    CloseHandle(process.hProcess);
    // Someone else (under Wine, the console host of a console program) may
    // hold the ended process's object a little longer: wait until it is gone.
    for (int tries = 0; tries < 100; ++tries) {
        HANDLE again = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process.dwProcessId);
        if (!again) break;
        CloseHandle(again);
        Sleep(50);
    }
    return process.dwProcessId;
}

TestWindows::TestWindows() {
    const wchar_t* className = L"GraUnitTestWindow";
    registerClass(className, DefWindowProcW, nullptr);
    RECT outer{0, 0, 400, 300};
    AdjustWindowRectEx(&outer, WS_OVERLAPPEDWINDOW, FALSE, 0);
    game = CreateWindowExW(0, className, L"unit test game", WS_OVERLAPPEDWINDOW, 40, 40, outer.right - outer.left,
                           outer.bottom - outer.top, nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
    overlay = CreateWindowExW(0, className, L"unit test overlay", WS_POPUP | WS_CLIPCHILDREN, 0, 0, 100, 100, nullptr,
                              nullptr, GetModuleHandleW(nullptr), nullptr);
    SetParent(overlay, game);
    SetWindowLongPtrW(overlay, GWL_STYLE, WS_CHILD | WS_CLIPSIBLINGS | WS_CLIPCHILDREN);
}

TestWindows::~TestWindows() {
    DestroyWindow(overlay);
    DestroyWindow(game);
}

PlainWindow::PlainWindow() {
    handle = CreateWindowExW(0, L"STATIC", L"stand-in host", WS_POPUP, 0, 0, 320, 200, nullptr, nullptr,
                             GetModuleHandleW(nullptr), nullptr);
}

PlainWindow::~PlainWindow() {
    if (handle) DestroyWindow(handle);
}

std::vector<RECT> windowRegionRects(HWND window) {
    HRGN region = CreateRectRgn(0, 0, 0, 0);
    std::vector<RECT> rects;
    if (GetWindowRgn(window, region) == ERROR) {
        DeleteObject(region);
        return {RECT{-1, -1, -1, -1}};
    }
    DWORD size = GetRegionData(region, 0, nullptr);
    std::vector<char> storage(size);
    RGNDATA* data = reinterpret_cast<RGNDATA*>(storage.data());
    if (size != 0 && GetRegionData(region, size, data) != 0) {
        const RECT* first = reinterpret_cast<const RECT*>(data->Buffer);
        rects.assign(first, first + data->rdh.nCount);
    }
    DeleteObject(region);
    return rects;
}

}  // namespace host_windows
