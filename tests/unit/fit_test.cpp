// Fitting the host window over the game window's client area, in both
// attachment modes, with real windows of the test process.
#include "host/fit.h"

#include <gtest/gtest.h>

#include <vector>

#include "app/counters.h"
#include "app/host_state.h"
#include "fakes.h"
#include "host/game_window.h"
#include "host_windows_support.h"
#include "test_support.h"

using fakes::RecordingController;
using host_windows::uniqueName;

namespace {

class Fit : public ::testing::Test {
protected:
    void SetUp() override {
        activity = ActivityCounters{};
        lastGameClient = RECT{-1, -1, -1, -1};
        lastGameOrigin = POINT{-1, -1};
        host.mouseToGame = false;
    }

    void TearDown() override {
        host_windows::destroyQuietly(hostWindow);
        for (HWND window : windows) DestroyWindow(window);
        host_windows::takeQuitMessage();
    }

    // A host window attached to a game window (framed: its client area is
    // not where the window is).
    HWND attach(bool childMode, RECT place, bool framed = false) {
        host.childMode = childMode;
        hostWindow = host_windows::makeHostWindow(childMode);
        host.hostWindow = hostWindow;
        HWND game =
            host_windows::makeGameWindow(uniqueName(L"FitClass"), uniqueName(L"Fit Game"), true, place, framed);
        windows.push_back(game);
        attachToGameWindow(game);
        return game;
    }

    uint32_t total(Counter which) const { return activity.counter[which].total; }

    static RECT screenRect(HWND window) {
        RECT rect;
        GetWindowRect(window, &rect);
        return rect;
    }

    // The game's client area on the screen.
    static RECT clientOnScreen(HWND game) {
        RECT client;
        GetClientRect(game, &client);
        POINT origin{0, 0};
        ClientToScreen(game, &origin);
        OffsetRect(&client, origin.x, origin.y);
        return client;
    }

    static void moveTo(HWND window, int x, int y) {
        SetWindowPos(window, nullptr, x, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    }

    static void resizeTo(HWND window, int width, int height) {
        SetWindowPos(window, nullptr, 0, 0, width, height, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    }

    fakes::HostStateGuard saved;
    test_support::ScratchLog log;
    HWND hostWindow = nullptr;
    std::vector<HWND> windows;
};

#define EXPECT_RECT(actual, expected)                                    \
    do {                                                                 \
        RECT a_ = (actual), e_ = (expected);                             \
        EXPECT_TRUE(EqualRect(&a_, &e_) != FALSE)                        \
            << "(" << a_.left << ", " << a_.top << ", " << a_.right << ", " << a_.bottom << ") instead of (" \
            << e_.left << ", " << e_.top << ", " << e_.right << ", " << e_.bottom << ")";                      \
    } while (0)

TEST_F(Fit, TheFirstCallCountsAChangeEvenForAGameAtTheScreensOrigin) {
    HWND game = attach(false, RECT{0, 0, 300, 200});  // no frame: the client area starts at (0, 0)
    EXPECT_RECT(clientOnScreen(game), (RECT{0, 0, 300, 200}));
    fit_to_game();
    EXPECT_EQ(total(fitToGame), 1u);
    EXPECT_EQ(total(fitRectChanged), 1u);
    EXPECT_EQ(total(fitRectSame), 0u);
    fit_to_game();
    EXPECT_EQ(total(fitToGame), 2u);
    EXPECT_EQ(total(fitRectSame), 1u);
    EXPECT_RECT(lastGameClient, (RECT{0, 0, 300, 200}));
    EXPECT_EQ(lastGameOrigin.x, 0);
    EXPECT_EQ(lastGameOrigin.y, 0);
}

TEST_F(Fit, ChildModePlacesTheHostAtTheClientOriginWithTheClientSize) {
    HWND game = attach(true, RECT{120, 80, 520, 380}, true);
    fit_to_game();
    EXPECT_RECT(screenRect(hostWindow), clientOnScreen(game));
    RECT client;
    GetClientRect(game, &client);
    POINT topLeft{0, 0};
    MapWindowPoints(hostWindow, game, &topLeft, 1);
    EXPECT_EQ(topLeft.x, 0);
    EXPECT_EQ(topLeft.y, 0);
    EXPECT_RECT(lastGameClient, client);
    EXPECT_EQ(lastGameOrigin.x, 0);  // stays (0, 0) in child mode
    EXPECT_EQ(lastGameOrigin.y, 0);
}

TEST_F(Fit, InChildModeAMoveWithoutResizeCountsSame) {
    HWND game = attach(true, RECT{100, 100, 500, 400});
    fit_to_game();
    moveTo(game, 250, 170);
    fit_to_game();
    EXPECT_EQ(total(fitRectChanged), 1u);
    EXPECT_EQ(total(fitRectSame), 1u);
    EXPECT_RECT(screenRect(hostWindow), clientOnScreen(game));  // it moved with its parent
}

TEST_F(Fit, InChildModeAResizeCountsChangedAndResizesTheHost) {
    HWND game = attach(true, RECT{100, 100, 500, 400});
    fit_to_game();
    resizeTo(game, 350, 260);
    fit_to_game();
    EXPECT_EQ(total(fitRectChanged), 2u);
    EXPECT_EQ(total(fitRectSame), 0u);
    EXPECT_RECT(screenRect(hostWindow), clientOnScreen(game));
}

TEST_F(Fit, InChildModeEveryCallRaisesTheHostAboveTheGamesOtherChildren) {
    HWND game = attach(true, RECT{100, 100, 500, 400});
    fit_to_game();
    HWND sibling = CreateWindowExW(0, L"STATIC", L"", WS_CHILD | WS_VISIBLE, 0, 0, 50, 50, game, nullptr,
                                   GetModuleHandleW(nullptr), nullptr);
    SetWindowPos(sibling, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    ASSERT_EQ(GetWindow(game, GW_CHILD), sibling);
    fit_to_game();
    EXPECT_EQ(GetWindow(game, GW_CHILD), hostWindow);
}

TEST_F(Fit, InOwnedModeAMoveCountsChangedAndMovesTheHost) {
    HWND game = attach(false, RECT{100, 100, 500, 400}, true);
    fit_to_game();
    EXPECT_RECT(screenRect(hostWindow), clientOnScreen(game));
    moveTo(game, 260, 190);
    RECT stayed = screenRect(hostWindow), moved = clientOnScreen(game);
    EXPECT_FALSE(EqualRect(&stayed, &moved));  // nothing follows by itself
    fit_to_game();
    EXPECT_EQ(total(fitRectChanged), 2u);
    EXPECT_EQ(total(fitRectSame), 0u);
    EXPECT_RECT(screenRect(hostWindow), clientOnScreen(game));
    POINT origin{0, 0};
    ClientToScreen(game, &origin);
    EXPECT_EQ(lastGameOrigin.x, origin.x);
    EXPECT_EQ(lastGameOrigin.y, origin.y);
}

TEST_F(Fit, InOwnedModeAnUnmovedGameCountsSame) {
    attach(false, RECT{100, 100, 500, 400});
    fit_to_game();
    fit_to_game();
    fit_to_game();
    EXPECT_EQ(total(fitToGame), 3u);
    EXPECT_EQ(total(fitRectChanged), 1u);
    EXPECT_EQ(total(fitRectSame), 2u);
}

TEST_F(Fit, TheWebViewIsSizedToTheClientArea) {
    HWND game = attach(false, RECT{100, 100, 500, 400});
    RecordingController controller;
    host.webController.ptr = &controller;
    fit_to_game();
    RECT client;
    GetClientRect(game, &client);
    ASSERT_FALSE(controller.bounds.empty());
    EXPECT_RECT(controller.bounds.back(), client);  // (0, 0, client width, client height)
}

TEST_F(Fit, WithoutAWebViewTheHostIsStillPlaced) {
    HWND game = attach(false, RECT{140, 90, 600, 420});
    ASSERT_FALSE(host.webController);
    fit_to_game();
    EXPECT_RECT(screenRect(hostWindow), clientOnScreen(game));
}

TEST_F(Fit, AMinimisedGameGivesWhateverClientRectangleTheSystemReports) {
    HWND game = attach(false, RECT{100, 100, 500, 400}, true);
    fit_to_game();
    ShowWindow(game, SW_SHOWMINNOACTIVE);
    fit_to_game();
    RECT client, hostClient;
    GetClientRect(game, &client);
    GetClientRect(hostWindow, &hostClient);
    EXPECT_EQ(hostClient.right, client.right);
    EXPECT_EQ(hostClient.bottom, client.bottom);
    EXPECT_RECT(lastGameClient, client);
}

TEST_F(Fit, NothingHappensWithoutAHostWindow) {
    attach(false, RECT{100, 100, 500, 400});
    host.hostWindow = nullptr;
    fit_to_game();
    EXPECT_EQ(total(fitToGame), 0u);
    EXPECT_EQ(lastGameClient.left, -1);
}

TEST_F(Fit, NothingHappensWithoutAGameWindow) {
    attach(false, RECT{100, 100, 500, 400});
    host.gameWindow = nullptr;
    fit_to_game();
    EXPECT_EQ(total(fitToGame), 0u);
}

TEST_F(Fit, NothingHappensWhenTheGameWindowIsGone) {
    HWND game = attach(false, RECT{100, 100, 500, 400});
    RECT before = screenRect(hostWindow);
    SetWindowLongPtrW(hostWindow, GWLP_HWNDPARENT, 0);  // else it would go with its owner, on this thread
    DestroyWindow(game);
    ASSERT_TRUE(IsWindow(hostWindow));
    fit_to_game();
    EXPECT_EQ(total(fitToGame), 0u);
    EXPECT_EQ(total(fitRectChanged), 0u);
    EXPECT_RECT(screenRect(hostWindow), before);
}

}  // namespace
