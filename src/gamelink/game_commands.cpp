#include "gamelink/game_commands.h"

#include <windows.h>

#include "app/host_state.h"
#include "app/log.h"
#include "app/startup.h"
#include "app/text.h"
#include "gamelink/datagrams.h"
#include "host/fit.h"
#include "host/modes.h"
#include "page/page_messages.h"
#include "page/show.h"
#include "page/web_view.h"
#include "page/webview2.h"

namespace {

constexpr LONG overlappedWindowBits = 0x00CF0000;

void note(const std::string& value) {
    std::wstring json = L"{\"type\":\"note\",\"note\":" + utf8ToWide(value) + L"}";
    // A note always becomes visible.
    if (host.mode == modeHidden) setMode(modePassive);
    if (host.pageReady) {
        postToPage(json);
    } else {
        holdForPage(json);
    }
}

void makeBorderless(LONG style) {
    MONITORINFO monitor{};
    monitor.cbSize = sizeof monitor;
    if (!GetMonitorInfoW(MonitorFromWindow(host.gameWindow, MONITOR_DEFAULTTONEAREST), &monitor)) return;
    // A window that has just gone has no rectangle to save or compare.
    RECT window;
    if (!GetWindowRect(host.gameWindow, &window)) return;
    if ((style & overlappedWindowBits) == 0 && EqualRect(&window, &monitor.rcMonitor)) return;

    // Repeated "borderless" commands keep what the first one saved.
    if (!host.gameBorderless) {
        host.savedGameStyle = static_cast<uint32_t>(style);
        host.savedGameRect = window;
    }
    SetWindowLongW(host.gameWindow, GWL_STYLE, (style & ~overlappedWindowBits) | static_cast<LONG>(WS_POPUP));
    const RECT& screen = monitor.rcMonitor;
    long width = screen.right - screen.left;
    long height = screen.bottom - screen.top;
    SetWindowPos(host.gameWindow, HWND_TOP, screen.left, screen.top, width, height,
                 SWP_FRAMECHANGED | SWP_SHOWWINDOW | SWP_NOOWNERZORDER);
    host.gameBorderless = true;
    logLine("window: borderless %ldx%ld", width, height);
    fit_to_game();
}

void makeFramed() {
    if (host.gameBorderless) {
        SetWindowLongW(host.gameWindow, GWL_STYLE, static_cast<LONG>(host.savedGameStyle));
        const RECT& saved = host.savedGameRect;
        SetWindowPos(host.gameWindow, nullptr, saved.left, saved.top, saved.right - saved.left,
                     saved.bottom - saved.top,
                     SWP_NOZORDER | SWP_FRAMECHANGED | SWP_SHOWWINDOW | SWP_NOOWNERZORDER);
        host.gameBorderless = false;
        logLine("window: framed again");
    }
    fit_to_game();
}

void window(const std::string& argument) {
    bool borderless = argument == "borderless";
    if (!host.gameWindow || !IsWindow(host.gameWindow)) return;
    // Restyling and moving the game's window are calls into the game's
    // thread; one that pumps no messages would stop the program with it.
    if (IsHungAppWindow(host.gameWindow)) {
        logLine("window: the game does not answer - left as it is");
        return;
    }
    LONG style = GetWindowLongW(host.gameWindow, GWL_STYLE);
    if (borderless) {
        makeBorderless(style);
    } else {
        makeFramed();
    }
}

void bye() {
    logLine("'bye' from UDP port %u", static_cast<unsigned>(host.gamePort));
    quitWithReason("'bye' from UDP port " + std::to_string(host.gamePort));
}

}  // namespace

GameCommand parseGameDatagram(const std::string& text) {
    GameCommand command;
    if (text.size() < 5 || text.compare(0, 5, "GRAO ") != 0) return command;
    command.valid = true;
    std::string rest = text.substr(5);
    size_t space = rest.find(' ');
    command.word = rest.substr(0, space);
    if (space != std::string::npos) command.argument = rest.substr(space + 1);
    return command;
}

void dispatchGameDatagram(const std::string& text) {
    GameCommand command = parseGameDatagram(text);
    if (!command.valid) return;
    const std::string& word = command.word;
    const std::string& argument = command.argument;
    if (word == "show") {
        showOverlay(utf8ToWide(argument));
    } else if (word == "hide") {
        askPageToClose();
    } else if (word == "toggle") {
        if (host.mode == modeActive) {
            askPageToClose();
        } else {
            showOverlay(utf8ToWide(argument));
        }
    } else if (word == "note") {
        note(argument);
    } else if (word == "reload") {
        if (host.webView) host.webView->Reload();
    } else if (word == "page") {
        postToPage(utf8ToWide(argument));
    } else if (word == "state") {
        sendToGame(std::string("state ") + modeNames[host.mode]);
    } else if (word == "window") {
        window(argument);
    } else if (word == "bye") {
        bye();
    }
}
