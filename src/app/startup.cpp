#include "app/startup.h"

#include <ws2tcpip.h>
#include <mswsock.h>

#include <cstdio>

#include "app/command_line.h"
#include "app/crash_dump.h"
#include "app/host_state.h"
#include "app/log.h"
#include "app/text.h"
#include "gamelink/datagrams.h"
#include "host/host_window.h"
#include "host/modes.h"
#include "page/show.h"
#include "page/web_view.h"
#include "page/webview2.h"

namespace {

constexpr int portWaitAttempts = 120;
constexpr DWORD portWaitStepMs = 250;

void emptyFile(const std::wstring& path, const wchar_t* mode) {
    FILE* file = _wfopen(path.c_str(), mode);
    if (file) fclose(file);
}

bool bindLinkSocket() {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<u_short>(host.linkPort & 0xFFFF));
    inet_pton(AF_INET, "127.0.0.1", &local.sin_addr);
    return bind(host.gameSocket, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0;
}

// The port is the single-instance guard: a second host for the same port
// waits up to 30 s for the first to go, without pumping messages.
bool claimLinkPort() {
    if (bindLinkSocket()) return true;
    int attempts = 0;
    for (;;) {
        ++attempts;
        if (attempts == 1) {
            logLine("port %d is taken - waiting for it (up to 30 s)", host.linkPort);
        } else if (attempts >= portWaitAttempts) {
            logLine("port %d still taken after 30 s - another overlay runs; exiting", host.linkPort);
            logLine("exit (port %d taken)", host.linkPort);
            return false;
        }
        Sleep(portWaitStepMs);
        if (bindLinkSocket()) break;
    }
    logLine("port %d free after %d ms", host.linkPort, attempts * static_cast<int>(portWaitStepMs));
    return true;
}

// Otherwise Windows reports a reset on the next read after a datagram went
// to a port that has closed.
void switchOffResetReports() {
    BOOL report = FALSE;
    DWORD returned = 0;
    WSAIoctl(host.gameSocket, SIO_UDP_CONNRESET, &report, sizeof report, nullptr, 0, &returned, nullptr, nullptr);
}

void noteLayoutSwitch() {
    std::wstring path = host.programFolder + L"\\no_keep_layout.txt";
    keepLayout = GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES;
    if (!keepLayout) logLine("keys: no_keep_layout.txt - the keyboard layout is only noted, never asked back");
}

void createHostWindow(HINSTANCE instance) {
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = hostWindowProc;
    windowClass.hInstance = instance;
    windowClass.hCursor = LoadCursorW(nullptr, MAKEINTRESOURCEW(32512));
    windowClass.hbrBackground = CreateSolidBrush(0x00180B0B);
    windowClass.lpszClassName = L"GRAOverlayHost";
    RegisterClassW(&windowClass);

    DWORD exStyle = host.childMode ? 0 : WS_EX_NOACTIVATE | WS_EX_TOOLWINDOW;
    host.hostWindow = CreateWindowExW(exStyle, L"GRAOverlayHost", L"GRA overlay", WS_POPUP | WS_CLIPCHILDREN, 0, 0,
                                      100, 100, nullptr, nullptr, instance, nullptr);
}

void runMessageLoop() {
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

void shutDown() {
    logLine("exit (%s)", host.exitReason.empty()
                             ? "the message loop ended - WM_QUIT from elsewhere, no reason recorded"
                             : host.exitReason.c_str());
    if (host.webController) host.webController->Close();
    closesocket(host.gameSocket);
    WSACleanup();
    CoUninitialize();
}

}  // namespace

void quitWithReason(const std::string& reason) {
    if (host.exitReason.empty() && &reason != &host.exitReason) host.exitReason = reason;
    host.quitting = true;
    PostQuitMessage(0);
}

int runHost(HINSTANCE instance) {
    SetProcessDpiAwarenessContext(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2);

    deriveDefaultPaths(host, findProgramFolder());
    bool showAtStart = scanCommandLine(GetCommandLineW(), host);

    emptyFile(host.logPath, L"w");
    logLine("started, build %s, pid %lu, mode %s, web %s", buildString, GetCurrentProcessId(),
            host.childMode ? "child" : "owned", wideToUtf8(host.webFolder).c_str());
    installCrashHandler();

    WSADATA wsaData;
    WSAStartup(0x0202, &wsaData);
    host.gameSocket = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (!claimLinkPort()) return 0;
    switchOffResetReports();

    emptyFile(host.docFolder + L"\\gra_keys.txt", L"wb");
    noteLayoutSwitch();
    int receiveBuffer = 0x400000;
    setsockopt(host.gameSocket, SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&receiveBuffer),
               sizeof receiveBuffer);
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);

    createHostWindow(instance);
    WSAAsyncSelect(host.gameSocket, host.hostWindow, socketMessage, FD_READ);
    host.startTicks = GetTickCount();
    SetTimer(host.hostWindow, 1, 100, nullptr);
    SendMessageW(host.hostWindow, WM_TIMER, 1, 0);
    // When the first tick already found the game, the cover goes up over it
    // before the web view exists.
    showCoverOverGame();

    startWebView();
    if (showAtStart) showOverlay(L"");

    runMessageLoop();
    shutDown();
    return 0;
}
