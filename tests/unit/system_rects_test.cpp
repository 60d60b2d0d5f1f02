// A window whose rectangle the system will not give (it went between the
// check that it exists and the call) leaves the step undone: fitting, the
// "window borderless" command and the cover's region apply nothing. The
// failures are made by replacing GetClientRect and GetWindowRect in this test
// program's imports with versions that fail for one window and leave a
// rectangle behind that would show if it were used.
#include <gtest/gtest.h>

#include <string>

#include "app/counters.h"
#include "app/host_state.h"
#include "fakes.h"
#include "gamelink/game_commands.h"
#include "host/fit.h"
#include "host/modes.h"
#include "host_windows_support.h"
#include "import_patch.h"

using host_windows::windowRegionRects;

namespace {

using RectReader = BOOL(WINAPI*)(HWND, LPRECT);

// What a failed call leaves in the caller's RECT, so that using it shows.
constexpr RECT leftBehind{0, 0, 77, 55};

HWND failingWindow = nullptr;
RectReader realGetClientRect = nullptr;
RectReader realGetWindowRect = nullptr;

BOOL WINAPI failingGetClientRect(HWND window, LPRECT rect) {
    if (window != failingWindow) return realGetClientRect(window, rect);
    *rect = leftBehind;
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return FALSE;
}

BOOL WINAPI failingGetWindowRect(HWND window, LPRECT rect) {
    if (window != failingWindow) return realGetWindowRect(window, rect);
    *rect = leftBehind;
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return FALSE;
}

RECT windowRect(HWND window) {
    RECT rect{};
    GetWindowRect(window, &rect);
    return rect;
}

bool same(const RECT& a, const RECT& b) { return EqualRect(&a, &b) != FALSE; }

class SystemRects : public fakes::ChildModeHostTest {
protected:
    void SetUp() override {
        ChildModeHostTest::SetUp();
        SetWindowPos(windows.overlay, nullptr, 0, 0, 300, 200, SWP_NOZORDER | SWP_NOACTIVATE);
        realGetClientRect = reinterpret_cast<RectReader>(clientPatch.original());
        realGetWindowRect = reinterpret_cast<RectReader>(windowPatch.original());
        ASSERT_TRUE(clientPatch.applied());
        ASSERT_TRUE(windowPatch.applied());
    }

    void TearDown() override { failingWindow = nullptr; }

    static uint32_t total(Counter which) { return activity.counter[which].total; }

    ImportPatch clientPatch{"user32.dll", "GetClientRect", reinterpret_cast<void*>(&failingGetClientRect)};
    ImportPatch windowPatch{"user32.dll", "GetWindowRect", reinterpret_cast<void*>(&failingGetWindowRect)};
};

TEST_F(SystemRects, ThePatchReachesTheProgramsOwnCalls) {
    failingWindow = windows.game;
    RECT rect{1, 2, 3, 4};
    EXPECT_FALSE(GetClientRect(windows.game, &rect));
    EXPECT_TRUE(same(rect, leftBehind));
    EXPECT_TRUE(GetClientRect(windows.overlay, &rect));
}

TEST_F(SystemRects, FittingWithoutTheGamesClientRectanglePlacesNothing) {
    RECT before = windowRect(windows.overlay);
    uint32_t fitsBefore = total(fitToGame);
    failingWindow = windows.game;
    fit_to_game();
    failingWindow = nullptr;
    EXPECT_TRUE(same(windowRect(windows.overlay), before));
    EXPECT_EQ(total(fitToGame), fitsBefore);
    EXPECT_TRUE(controller.callsStartingWith("put_Bounds").empty());
}

TEST_F(SystemRects, BorderlessWithoutTheGamesWindowRectangleChangesNothing) {
    LONG styleBefore = GetWindowLongW(windows.game, GWL_STYLE);
    RECT placeBefore = windowRect(windows.game);
    failingWindow = windows.game;
    dispatchGameDatagram("GRAO window borderless");
    failingWindow = nullptr;
    EXPECT_EQ(GetWindowLongW(windows.game, GWL_STYLE), styleBefore);
    EXPECT_TRUE(same(windowRect(windows.game), placeBefore));
    EXPECT_FALSE(host.gameBorderless);
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(SystemRects, TheCoverWithoutTheHostsClientRectangleKeepsTheRegionItHad) {
    host.coverUp = true;
    setRegion(true);
    ASSERT_EQ(windowRegionRects(windows.overlay).size(), 1u);
    RECT had = windowRegionRects(windows.overlay)[0];
    SetWindowPos(windows.overlay, nullptr, 0, 0, 320, 240, SWP_NOZORDER | SWP_NOACTIVATE);
    failingWindow = windows.overlay;
    setRegion(true);
    failingWindow = nullptr;
    ASSERT_EQ(windowRegionRects(windows.overlay).size(), 1u);
    EXPECT_TRUE(same(windowRegionRects(windows.overlay)[0], had));
}

}  // namespace
