#include "host/host_window.h"

#include <string>

#include "app/counters.h"
#include "app/host_state.h"
#include "app/log.h"
#include "app/startup.h"
#include "app/text.h"
#include "gamelink/datagrams.h"
#include "host/fit.h"
#include "host/foreground.h"
#include "host/game_warnings.h"
#include "host/game_window.h"
#include "host/modes.h"
#include "keyboard/layout_keeper.h"
#include "page/page_messages.h"
#include "page/webview2.h"

namespace {

// Well past the timer's 100 ms, so that the tick comes from the socket's
// notifications only when timer messages are starved.
constexpr uint32_t overdueTickMs = 250;
// Long enough for a game that starts beside the program to show its window.
constexpr uint32_t gameWindowHintAfterMs = 5000;

bool gameWindowAlive() {
    return host.gameWindow && IsWindow(host.gameWindow);
}

// A wrong --game or --game-class fails silently for a minute otherwise.
void logGameWindowHint() {
    logLine("looking for the game window \"%s\" of class \"%s\" - none yet (it must match exactly)",
            wideToUtf8(host.gameTitle).c_str(), wideToUtf8(host.gameClass).c_str());
}

// Returns false when the tick skips the page deadline (straight to the
// foreground and layout steps).
bool followOrFindGame() {
    if (gameWindowAlive()) {
        if (!host.activeMode && !host.coverUp) return false;
        fit_to_game();
        if (!host.coverUp) return false;
        setRegion(false);
        return true;
    }
    HWND found = findGameWindow();
    if (found) {
        attachToGameWindow(found);
        fit_to_game();
        if (!host.coverUp) return false;
        showCoverOverGame();
        return true;
    }
    if (gameWindowHintDue(GetTickCount())) logGameWindowHint();
    if (noGameWindowForTooLong(GetTickCount())) {
        logLine("no game window for 60 s - exiting");
        quitWithReason("no game window for 60 s");
    }
    return true;
}

void tick() {
    host.lastTickAt = GetTickCount();
    reportRates();
    if (followOrFindGame() && coverDeadlinePassed(GetTickCount())) coverOff("the page never said - 10 s");
    trackForeground();
    watchExclusiveFullscreen(GetTickCount());
    keepKeyboardLayout();
    reportDroppedHeldMessages();
}

bool gameProcessRunning() {
    if (host.gameProcessId == 0) return false;
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, host.gameProcessId);
    if (!process) return false;
    DWORD exitCode = 0;
    bool running = GetExitCodeProcess(process, &exitCode) && exitCode == STILL_ACTIVE;
    CloseHandle(process);
    return running;
}

void onDestroy() {
    bool windowAlive = gameWindowAlive();
    bool processRunning = gameProcessRunning();
    const char* how = host.closeReceived ? " after WM_CLOSE"
                      : host.childMode   ? " - with its parent, the game window"
                                         : "";
    char text[256];
    formatText(text, sizeof text, "host window destroyed (WM_DESTROY%s; game window %p %s, game process %s)", how,
               static_cast<void*>(host.gameWindow), windowAlive ? "still valid (it may be mid-destroy)" : "gone",
               processRunning ? "running" : "ended");
    logLine("%s", text);
    quitWithReason(text);
}

LRESULT eraseWithColourKey(HWND window, HDC dc) {
    RECT client;
    GetClientRect(window, &client);
    HBRUSH brush = CreateSolidBrush(colourKey);
    FillRect(dc, &client, brush);
    DeleteObject(brush);
    return 1;
}

}  // namespace

bool noGameWindowForTooLong(uint32_t now) {
    if (host.noGameWindowSince == 0) host.noGameWindowSince = now;
    return now - host.noGameWindowSince > 60000;
}

bool gameWindowHintDue(uint32_t now) {
    if (host.gameWindowHintGiven || host.gameWindow || now - host.startTicks < gameWindowHintAfterMs) return false;
    host.gameWindowHintGiven = true;
    return true;
}

bool tickOverdue(uint32_t now) {
    return now - host.lastTickAt >= overdueTickMs;
}

bool coverDeadlinePassed(uint32_t now) {
    return host.coverUp && now - host.startTicks > 10000;
}

LRESULT CALLBACK hostWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_DESTROY:
        onDestroy();
        return 0;
    case WM_SIZE:
        if (host.webController) {
            RECT bounds{0, 0, LOWORD(lParam), HIWORD(lParam)};
            host.webController->put_Bounds(bounds);
        }
        return 0;
    case WM_CLOSE:
        host.closeReceived = true;
        break;
    case WM_ERASEBKGND:
        if (host.mouseToGame) return eraseWithColourKey(window, reinterpret_cast<HDC>(wParam));
        break;
    case WM_SETCURSOR:
        count(setCursorMessages);
        break;
    case WM_MOUSEACTIVATE:
        return host.childMode ? MA_ACTIVATE : MA_NOACTIVATE;
    case WM_TIMER:
        tick();
        return 0;
    case socketMessage:
        receiveGameDatagrams();
        // While datagrams keep coming, a notification is always waiting, and
        // the system makes no timer message while one is: the tick is then
        // run from here.
        if (tickOverdue(GetTickCount())) tick();
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}
