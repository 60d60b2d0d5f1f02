// The host window procedure with real windows of the test process: each
// message of its table, the destroy step's line in every case, the tick's
// order of work, and the two time limits with the time handed in.
#include "host/host_window.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "app/counters.h"
#include "app/host_state.h"
#include "fakes.h"
#include "host/fit.h"
#include "host_windows_support.h"
#include "keyboard/layout_keeper.h"
#include "test_support.h"

using fakes::RecordingController;
using host_windows::hex;
using host_windows::takeQuitMessage;
using host_windows::uniqueName;
using test_support::ScratchLog;

namespace {

class HostWindow : public ::testing::Test {
protected:
    void SetUp() override {
        activity = ActivityCounters{};
        lastGameClient = RECT{-1, -1, -1, -1};
        lastGameOrigin = POINT{-1, -1};
        host.exitReason.clear();
        host.closeReceived = false;
        host.gameWindow = nullptr;
        host.gameProcessId = 0;
        host.mouseToGame = false;
        host.throughWanted = false;
        host.mode = modeHidden;
        host.activeMode = false;
        host.coverUp = true;
        host.startTicks = GetTickCount();
        host.lastTickAt = GetTickCount();
        host.noGameWindowSince = 0;
        host.gameWindowHintGiven = false;
        host.regionRects.clear();
        host.docFolder = docs.path;
        host.gameClass = uniqueName(L"TickGameClass");
        host.gameTitle = uniqueName(L"Tick Game");
        keepLayout = false;
        layoutKeeper = LayoutKeeperState{};
        takeQuitMessage();
    }

    void TearDown() override {
        host_windows::destroyQuietly(hostWindow);
        for (HWND window : windows) DestroyWindow(window);
        takeQuitMessage();
    }

    void makeHost(bool childMode) {
        host.childMode = childMode;
        hostWindow = host_windows::makeHostWindow(childMode);
        host.hostWindow = hostWindow;
    }

    // A visible window with the title and class that the host looks for.
    HWND makeGame(RECT place = RECT{100, 100, 500, 400}) {
        HWND window = host_windows::makeGameWindow(host.gameClass, host.gameTitle, true, place);
        windows.push_back(window);
        return window;
    }

    LRESULT send(UINT message, WPARAM wParam = 0, LPARAM lParam = 0) {
        return SendMessageW(hostWindow, message, wParam, lParam);
    }

    void tick(WPARAM id = 1) { EXPECT_EQ(send(WM_TIMER, id), 0); }

    uint32_t total(Counter which) const { return activity.counter[which].total; }

    bool logged(const std::string& message) const {
        std::vector<std::string> messages = log.messages();
        return std::find(messages.begin(), messages.end(), message) != messages.end();
    }

    fakes::HostStateGuard saved;
    ScratchLog log;
    test_support::ScratchFolder docs;
    HWND hostWindow = nullptr;
    std::vector<HWND> windows;
};

// --- the two time limits, with the time handed in ---

TEST_F(HostWindow, TheNoGameClockStartsAtTheFirstMissAndEndsAfterMoreThan60Seconds) {
    EXPECT_FALSE(noGameWindowForTooLong(5000));
    EXPECT_EQ(host.noGameWindowSince, 5000u);
    EXPECT_FALSE(noGameWindowForTooLong(30000));
    EXPECT_FALSE(noGameWindowForTooLong(65000));  // exactly 60 s is not yet too long
    EXPECT_TRUE(noGameWindowForTooLong(65001));
    EXPECT_EQ(host.noGameWindowSince, 5000u);  // measured from the first miss, not moved on
}

TEST_F(HostWindow, TheNoGameClockSurvivesTheTickCounterWrapping) {
    EXPECT_FALSE(noGameWindowForTooLong(0xFFFFF000u));
    EXPECT_FALSE(noGameWindowForTooLong(0xFFFFF000u + 60000u));
    EXPECT_TRUE(noGameWindowForTooLong(0xFFFFF000u + 60001u));
}

TEST_F(HostWindow, AFindStartsTheNoGameClockAfresh) {
    makeHost(false);
    HWND game = makeGame();
    EXPECT_FALSE(noGameWindowForTooLong(1000));
    host.noGameWindowSince = 1000;
    host.gameWindow = nullptr;
    tick();  // finds the game
    EXPECT_EQ(host.gameWindow, game);
    EXPECT_EQ(host.noGameWindowSince, 0u);
    EXPECT_FALSE(noGameWindowForTooLong(70000));
    EXPECT_EQ(host.noGameWindowSince, 70000u);
    EXPECT_FALSE(noGameWindowForTooLong(130000));
    EXPECT_TRUE(noGameWindowForTooLong(130001));
}

// --- the hint that names the game window looked for ---

TEST_F(HostWindow, TheGameWindowHintIsDueOnceFiveSecondsAfterStartWhileNoneWasFound) {
    host.startTicks = 1000;
    EXPECT_FALSE(gameWindowHintDue(1000));
    EXPECT_FALSE(gameWindowHintDue(5999));
    EXPECT_FALSE(host.gameWindowHintGiven);
    EXPECT_TRUE(gameWindowHintDue(6000));
    EXPECT_TRUE(host.gameWindowHintGiven);
    EXPECT_FALSE(gameWindowHintDue(6100));  // once only
    EXPECT_FALSE(gameWindowHintDue(100000));
}

TEST_F(HostWindow, TheGameWindowHintSurvivesTheTickCounterWrapping) {
    host.startTicks = 0xFFFFF000u;
    EXPECT_FALSE(gameWindowHintDue(0xFFFFF000u + 4999u));
    EXPECT_TRUE(gameWindowHintDue(0xFFFFF000u + 5000u));
}

TEST_F(HostWindow, NoGameWindowHintOnceAGameWindowWasFoundEvenIfItWentAgain) {
    host.startTicks = 1000;
    host.gameWindow = reinterpret_cast<HWND>(static_cast<uintptr_t>(0x1234));  // no longer a window
    EXPECT_FALSE(gameWindowHintDue(6000));
    EXPECT_FALSE(gameWindowHintDue(70000));
    EXPECT_FALSE(host.gameWindowHintGiven);
}

TEST_F(HostWindow, TheTickLogsTheHintOnceWithTheTitleAndClassLookedFor) {
    makeHost(false);
    host.gameTitle = L"Gr\u00e4vos \"Arena\"";
    host.gameClass = L"Game Class";
    tick();
    EXPECT_TRUE(log.messages().empty());  // not yet: the game may still be starting
    host.startTicks = GetTickCount() - 5000;
    tick();
    tick();
    std::vector<std::string> messages = log.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0],
              "looking for the game window \"Gr\xC3\xA4vos \"Arena\"\" of class \"Game Class\" - none yet "
              "(it must match exactly)");
}

TEST_F(HostWindow, TheTickGivesNoHintWhenTheGameWindowIsThere) {
    makeHost(false);
    makeGame();
    host.startTicks = GetTickCount() - 20000;
    tick();
    tick();
    for (const std::string& line : log.messages()) EXPECT_EQ(line.find("looking for the game window"), std::string::npos) << line;
    EXPECT_FALSE(host.gameWindowHintGiven);
}

TEST_F(HostWindow, ThePageDeadlinePassesOnlyMoreThan10SecondsAfterCreationWithTheCoverUp) {
    host.startTicks = 1000;
    host.coverUp = true;
    EXPECT_FALSE(coverDeadlinePassed(1000));
    EXPECT_FALSE(coverDeadlinePassed(11000));
    EXPECT_TRUE(coverDeadlinePassed(11001));
    host.coverUp = false;
    EXPECT_FALSE(coverDeadlinePassed(11001));
    EXPECT_FALSE(coverDeadlinePassed(99999));
}

TEST_F(HostWindow, ThePageDeadlineSurvivesTheTickCounterWrapping) {
    host.startTicks = 0xFFFFFF00u;
    EXPECT_FALSE(coverDeadlinePassed(0xFFFFFF00u + 10000u));
    EXPECT_TRUE(coverDeadlinePassed(0xFFFFFF00u + 10001u));
}

// --- messages ---

TEST_F(HostWindow, MouseActivateActivatesInChildMode) {
    makeHost(true);
    EXPECT_EQ(send(WM_MOUSEACTIVATE, reinterpret_cast<WPARAM>(hostWindow), MAKELPARAM(HTCLIENT, WM_LBUTTONDOWN)),
              MA_ACTIVATE);
}

TEST_F(HostWindow, MouseActivateNeverActivatesInOwnedMode) {
    makeHost(false);
    EXPECT_EQ(send(WM_MOUSEACTIVATE, reinterpret_cast<WPARAM>(hostWindow), MAKELPARAM(HTCLIENT, WM_LBUTTONDOWN)),
              MA_NOACTIVATE);
}

TEST_F(HostWindow, EachSetCursorIsCountedAndLeftToTheDefault) {
    makeHost(true);
    LPARAM where = MAKELPARAM(HTCLIENT, WM_MOUSEMOVE);
    LRESULT expected = DefWindowProcW(hostWindow, WM_SETCURSOR, reinterpret_cast<WPARAM>(hostWindow), where);
    EXPECT_EQ(send(WM_SETCURSOR, reinterpret_cast<WPARAM>(hostWindow), where), expected);
    send(WM_SETCURSOR, reinterpret_cast<WPARAM>(hostWindow), where);
    send(WM_SETCURSOR, reinterpret_cast<WPARAM>(hostWindow), where);
    EXPECT_EQ(activity.counter[setCursorMessages].total, 3u);
    EXPECT_EQ(activity.counter[setCursorMessages].thisSecond, 3u);
    EXPECT_EQ(activity.periodStart, 0u);  // counting reads no time
}

TEST_F(HostWindow, SizeHandsTheNewClientSizeToTheWebView) {
    makeHost(true);
    RecordingController controller;
    host.webController.ptr = &controller;
    EXPECT_EQ(send(WM_SIZE, SIZE_RESTORED, MAKELPARAM(300, 200)), 0);
    EXPECT_EQ(send(WM_SIZE, SIZE_RESTORED, MAKELPARAM(65535, 40000)), 0);  // words, not signed
    ASSERT_EQ(controller.bounds.size(), 2u);
    const RECT expected{0, 0, 300, 200};
    EXPECT_TRUE(EqualRect(&controller.bounds[0], &expected) != FALSE);
    EXPECT_EQ(controller.bounds[1].left, 0);
    EXPECT_EQ(controller.bounds[1].top, 0);
    EXPECT_EQ(controller.bounds[1].right, 65535);
    EXPECT_EQ(controller.bounds[1].bottom, 40000);
}

TEST_F(HostWindow, ResizingTheHostWindowResizesTheWebView) {
    makeHost(false);
    RecordingController controller;
    host.webController.ptr = &controller;
    SetWindowPos(hostWindow, nullptr, 0, 0, 321, 123, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    ASSERT_FALSE(controller.bounds.empty());
    RECT last = controller.bounds.back();
    EXPECT_EQ(last.left, 0);
    EXPECT_EQ(last.top, 0);
    EXPECT_EQ(last.right, 321);
    EXPECT_EQ(last.bottom, 123);
}

TEST_F(HostWindow, SizeWithoutAWebViewAnswersZero) {
    makeHost(true);
    EXPECT_EQ(send(WM_SIZE, SIZE_RESTORED, MAKELPARAM(300, 200)), 0);
}

// The background as erased into a memory bitmap of the host window's size.
COLORREF erasedColour(HWND window, LRESULT* result) {
    HDC screen = GetDC(nullptr);
    HDC memory = CreateCompatibleDC(screen);
    HBITMAP bitmap = CreateCompatibleBitmap(screen, 100, 100);
    HGDIOBJ old = SelectObject(memory, bitmap);
    RECT all{0, 0, 100, 100};
    FillRect(memory, &all, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));
    *result = SendMessageW(window, WM_ERASEBKGND, reinterpret_cast<WPARAM>(memory), 0);
    COLORREF colour = GetPixel(memory, 50, 50);
    COLORREF corner = GetPixel(memory, 99, 99);
    SelectObject(memory, old);
    DeleteObject(bitmap);
    DeleteDC(memory);
    ReleaseDC(nullptr, screen);
    return colour == corner ? colour : CLR_INVALID;
}

TEST_F(HostWindow, WhileTheMouseBelongsToTheGameTheBackgroundIsTheColourKey) {
    makeHost(true);
    host.mouseToGame = true;
    LRESULT result = 0;
    EXPECT_EQ(erasedColour(hostWindow, &result), 0x00010001u);
    EXPECT_EQ(result, 1);
}

TEST_F(HostWindow, OtherwiseTheClassBrushErasesTheBackground) {
    makeHost(true);
    host.mouseToGame = false;
    LRESULT result = 0;
    EXPECT_EQ(erasedColour(hostWindow, &result), 0x00180B0Bu);
    EXPECT_NE(result, 0);
}

TEST_F(HostWindow, OtherMessagesGoToTheDefaultProcedure) {
    makeHost(true);
    wchar_t title[32] = L"";
    EXPECT_EQ(send(WM_GETTEXT, 32, reinterpret_cast<LPARAM>(title)), 11);
    EXPECT_STREQ(title, L"GRA overlay");
}

TEST_F(HostWindow, TheSocketNotificationReadsEveryWaitingDatagram) {
    makeHost(true);
    WSADATA data;
    ASSERT_EQ(WSAStartup(0x0202, &data), 0);
    SOCKET receiver = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    SOCKET sender = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
    ASSERT_EQ(bind(receiver, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    int length = sizeof address;
    getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &length);
    u_long nonBlocking = 1;
    ioctlsocket(receiver, FIONBIO, &nonBlocking);
    for (int i = 0; i < 3; ++i) {
        sendto(sender, "not for the host", 16, 0, reinterpret_cast<sockaddr*>(&address), sizeof address);
    }
    Sleep(100);
    SOCKET previous = host.gameSocket;
    host.gameSocket = receiver;
    EXPECT_EQ(send(WM_APP + 1, receiver, FD_READ), 0);
    host.gameSocket = previous;
    EXPECT_EQ(total(gameToHost), 3u);
    closesocket(sender);
    closesocket(receiver);
    WSACleanup();
}

// --- the tick under a flood of socket notifications ---

TEST_F(HostWindow, ATickIsOverdue250MillisecondsAfterTheLastOneBegan) {
    host.lastTickAt = 1000;
    EXPECT_FALSE(tickOverdue(1000));
    EXPECT_FALSE(tickOverdue(1249));
    EXPECT_TRUE(tickOverdue(1250));
    EXPECT_TRUE(tickOverdue(60000));
    host.lastTickAt = 0xFFFFFFA0u;
    EXPECT_FALSE(tickOverdue(0x99u));
    EXPECT_TRUE(tickOverdue(0x9Au));
}

TEST_F(HostWindow, ASocketNotificationRunsTheTickOnlyWhenItIsOverdue) {
    makeHost(true);
    // The tick's first miss of the game window starts the no-game clock.
    host.lastTickAt = GetTickCount();
    EXPECT_EQ(send(WM_APP + 1), 0);
    EXPECT_EQ(host.noGameWindowSince, 0u);
    host.lastTickAt = GetTickCount() - 1000;
    EXPECT_EQ(send(WM_APP + 1), 0);
    EXPECT_NE(host.noGameWindowSince, 0u);
    EXPECT_FALSE(tickOverdue(GetTickCount()));
}

// --- closing and the destroy step ---

const char* const destroyFormat = "host window destroyed (WM_DESTROY%s; game window %s %s, game process %s)";

std::string destroyLine(const char* how, HWND game, const char* window, const char* process) {
    char line[256];
    snprintf(line, sizeof line, destroyFormat, how, hex(game).c_str(), window, process);
    return line;
}

TEST_F(HostWindow, CloseMarksTheWindowClosedAndTheDefaultDestroysIt) {
    makeHost(true);  // " after WM_CLOSE" comes before the child-mode text
    send(WM_CLOSE);
    EXPECT_TRUE(host.closeReceived);
    EXPECT_FALSE(IsWindow(hostWindow));
    std::string line = destroyLine(" after WM_CLOSE", nullptr, "gone", "ended");
    EXPECT_EQ(line, "host window destroyed (WM_DESTROY after WM_CLOSE; game window 0000000000000000 gone, "
                    "game process ended)");
    EXPECT_EQ(log.messages(), std::vector<std::string>{line});
    EXPECT_EQ(host.exitReason, line);
    EXPECT_TRUE(takeQuitMessage());
}

TEST_F(HostWindow, DestroyedWithItsParentInChildModeWhileTheGameStillLives) {
    makeHost(true);
    host.gameWindow = makeGame();
    host.gameProcessId = GetCurrentProcessId();
    EXPECT_EQ(hostWindowProc(hostWindow, WM_DESTROY, 0, 0), 0);
    std::string line = destroyLine(" - with its parent, the game window", host.gameWindow,
                                   "still valid (it may be mid-destroy)", "running");
    EXPECT_EQ(log.messages(), std::vector<std::string>{line});
    EXPECT_EQ(host.exitReason, line);
    EXPECT_TRUE(takeQuitMessage());
}

TEST_F(HostWindow, DestroyedInOwnedModeTheFirstTextIsEmpty) {
    makeHost(false);
    HWND game = makeGame();
    DestroyWindow(game);
    host.gameWindow = game;
    host.gameProcessId = 0;
    EXPECT_EQ(hostWindowProc(hostWindow, WM_DESTROY, 0, 0), 0);
    std::string line = "host window destroyed (WM_DESTROY; game window " + hex(game) + " gone, game process ended)";
    EXPECT_EQ(log.messages(), std::vector<std::string>{line});
    EXPECT_EQ(host.exitReason, line);
    EXPECT_TRUE(takeQuitMessage());
}

TEST_F(HostWindow, AGameProcessThatHasEndedIsEndedAlsoWhileItsObjectRemains) {
    makeHost(false);
    HANDLE kept = nullptr;
    host.gameProcessId = host_windows::endedProcessId(&kept);  // OpenProcess works; the exit code is not 259
    ASSERT_NE(host.gameProcessId, 0u);
    hostWindowProc(hostWindow, WM_DESTROY, 0, 0);
    CloseHandle(kept);
    EXPECT_EQ(log.messages(), std::vector<std::string>{destroyLine("", nullptr, "gone", "ended")});
    takeQuitMessage();
}

TEST_F(HostWindow, AGameProcessThatCannotBeOpenedCountsAsEnded) {
    makeHost(true);
    host.gameProcessId = host_windows::endedProcessId();
    ASSERT_NE(host.gameProcessId, 0u);
    hostWindowProc(hostWindow, WM_DESTROY, 0, 0);
    EXPECT_EQ(log.messages(),
              std::vector<std::string>{destroyLine(" - with its parent, the game window", nullptr, "gone", "ended")});
    takeQuitMessage();
}

TEST_F(HostWindow, AnEarlierExitReasonIsKept) {
    makeHost(true);
    host.exitReason = "'bye' from UDP port 47630";
    hostWindowProc(hostWindow, WM_DESTROY, 0, 0);
    EXPECT_EQ(host.exitReason, "'bye' from UDP port 47630");
    EXPECT_EQ(log.messages().size(), 1u);  // the destroy line is still logged
    EXPECT_TRUE(takeQuitMessage());
}

// --- the tick ---

TEST_F(HostWindow, ATimerWithAnyIdRunsTheWholeTick) {
    makeHost(true);
    HWND game = makeGame();
    tick(4242);
    EXPECT_NE(activity.periodStart, 0u);  // the rates step ran first
    EXPECT_EQ(host.gameWindow, game);
    ASSERT_FALSE(log.messages().empty());
    EXPECT_EQ(log.messages()[0], "game window " + hex(game) + " found (child), process unit_tests.exe pid " +
                                     std::to_string(GetCurrentProcessId()));
    EXPECT_NE(layoutKeeper.seenLayout, nullptr);  // the layout step ran last
}

TEST_F(HostWindow, AFindWithTheCoverUpFitsTwiceShowsTheHostAndSetsTheRegion) {
    makeHost(true);
    RecordingController controller;
    host.webController.ptr = &controller;
    HWND game = makeGame();
    tick();
    EXPECT_EQ(host.gameWindow, game);
    EXPECT_EQ(total(fitToGame), 2u);
    EXPECT_EQ(total(fitRectChanged), 1u);
    EXPECT_EQ(total(fitRectSame), 1u);
    EXPECT_EQ(total(setWindowRgn), 1u);
    EXPECT_TRUE(IsWindowVisible(hostWindow));
    EXPECT_EQ(controller.visibility, std::vector<BOOL>{TRUE});
    RECT client;
    GetClientRect(game, &client);
    HRGN region = CreateRectRgn(0, 0, 0, 0);
    ASSERT_EQ(GetWindowRgn(hostWindow, region), SIMPLEREGION);
    RECT box;
    GetRgnBox(region, &box);
    DeleteObject(region);
    EXPECT_TRUE(EqualRect(&box, &client) != FALSE);
}

TEST_F(HostWindow, AFindWithTheCoverDownFitsOnceAndShowsNothing) {
    makeHost(true);
    host.coverUp = false;
    HWND game = makeGame();
    tick();
    EXPECT_EQ(host.gameWindow, game);
    EXPECT_EQ(total(fitToGame), 1u);
    EXPECT_EQ(total(setWindowRgn), 0u);
    EXPECT_FALSE(IsWindowVisible(hostWindow));
    EXPECT_EQ(static_cast<uint32_t>(GetWindowLongPtrW(hostWindow, GWL_STYLE)), 0x46000000u);
}

TEST_F(HostWindow, PassiveModeWithTheCoverDownNeitherFitsNorTouchesTheRegion) {
    makeHost(false);
    host.gameWindow = makeGame();
    host.coverUp = false;
    host.mode = modePassive;
    tick();
    tick();
    EXPECT_EQ(total(fitToGame), 0u);
    EXPECT_EQ(total(setWindowRgn), 0u);
}

TEST_F(HostWindow, ActiveModeFitsOnEveryTickButLeavesTheRegion) {
    makeHost(false);
    host.gameWindow = makeGame();
    host.coverUp = false;
    host.mode = modeActive;
    host.activeMode = true;
    tick();
    tick();
    tick();
    EXPECT_EQ(total(fitToGame), 3u);
    EXPECT_EQ(total(setWindowRgn), 0u);
}

TEST_F(HostWindow, WhileTheCoverIsUpTheRegionFollowsTheGamesSize) {
    makeHost(false);
    HWND game = makeGame();
    host.gameWindow = game;
    tick();
    SetWindowPos(game, nullptr, 0, 0, 300, 250, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    tick();
    EXPECT_EQ(total(fitToGame), 2u);
    EXPECT_EQ(total(setWindowRgn), 2u);
    RECT client;
    GetClientRect(game, &client);
    HRGN region = CreateRectRgn(0, 0, 0, 0);
    ASSERT_NE(GetWindowRgn(hostWindow, region), ERROR);
    RECT box;
    GetRgnBox(region, &box);
    DeleteObject(region);
    EXPECT_TRUE(EqualRect(&box, &client) != FALSE);
}

TEST_F(HostWindow, TheFirstTickMoreThan10SecondsAfterCreationTakesTheCoverDown) {
    makeHost(true);
    host.startTicks = GetTickCount() - 10500;
    tick();
    EXPECT_FALSE(host.coverUp);
    EXPECT_TRUE(logged("cover off (the page never said - 10 s)"));
    tick();  // once only
    std::vector<std::string> messages = log.messages();
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "cover off (the page never said - 10 s)"), 1);
}

TEST_F(HostWindow, BeforeTheDeadlineTheCoverStays) {
    makeHost(true);
    host.startTicks = GetTickCount();
    tick();
    EXPECT_TRUE(host.coverUp);
    EXPECT_FALSE(logged("cover off (the page never said - 10 s)"));
}

TEST_F(HostWindow, AMissStartsTheClockAndDoesNotEnd) {
    makeHost(true);
    tick();
    EXPECT_NE(host.noGameWindowSince, 0u);
    EXPECT_FALSE(takeQuitMessage());
    EXPECT_TRUE(host.exitReason.empty());
}

TEST_F(HostWindow, MoreThan60SecondsWithoutAGameWindowEndsTheHost) {
    makeHost(true);
    host.startTicks = GetTickCount();
    host.noGameWindowSince = GetTickCount() - 60500;
    tick();
    EXPECT_TRUE(logged("no game window for 60 s - exiting"));
    EXPECT_EQ(host.exitReason, "no game window for 60 s");
    EXPECT_TRUE(takeQuitMessage());
}

TEST_F(HostWindow, TheNoGameExitKeepsAnEarlierReason) {
    makeHost(true);
    host.exitReason = "an earlier reason";
    host.noGameWindowSince = GetTickCount() - 60500;
    tick();
    EXPECT_TRUE(logged("no game window for 60 s - exiting"));
    EXPECT_EQ(host.exitReason, "an earlier reason");
    EXPECT_TRUE(takeQuitMessage());
}

TEST_F(HostWindow, AGameWindowThatStopsBeingAWindowIsReplacedByTheNextOne) {
    makeHost(false);
    HWND first = makeGame();
    tick();
    ASSERT_EQ(host.gameWindow, first);
    // Owner and owned window share this thread here, so the owner would take
    // the host along; let go of it first, as Wine does for a window of
    // another process, so that only the game window's handle goes.
    SetWindowLongPtrW(hostWindow, GWLP_HWNDPARENT, 0);
    DestroyWindow(first);
    ASSERT_TRUE(IsWindow(hostWindow));
    tick();  // the host window survives: search again
    EXPECT_EQ(host.gameWindow, first);  // never cleared, only replaced
    EXPECT_NE(host.noGameWindowSince, 0u);
    HWND second = makeGame();
    tick();
    EXPECT_EQ(host.gameWindow, second);
    EXPECT_EQ(host.noGameWindowSince, 0u);
    EXPECT_EQ(GetWindow(hostWindow, GW_OWNER), second);
    std::vector<std::string> found;
    for (const std::string& message : log.messages()) {
        if (message.rfind("game window ", 0) == 0) found.push_back(message);
    }
    std::string pid = std::to_string(GetCurrentProcessId());
    EXPECT_EQ(found, (std::vector<std::string>{
                         "game window " + hex(first) + " found (owned), process unit_tests.exe pid " + pid,
                         "game window " + hex(second) + " found (owned), process unit_tests.exe pid " + pid}));
}

}  // namespace
