// The interaction modes, the mouse owner, the cover and the hit region,
// driven by calling the operations directly on real windows of this process.
// The game's end of the link is a UDP socket of the test; the web view
// controller is a stand-in that records its calls.
#include "host/modes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "app/counters.h"
#include "app/host_state.h"
#include "fakes.h"
#include "host/host_window.h"
#include "host_windows_support.h"

using host_windows::shown;
using host_windows::windowRegionRects;

namespace {

using Strings = std::vector<std::string>;

std::string text(const std::vector<RECT>& rects) {
    std::string out;
    for (const RECT& r : rects) {
        out += "[" + std::to_string(r.left) + "," + std::to_string(r.top) + "," + std::to_string(r.right) + "," +
               std::to_string(r.bottom) + "]";
    }
    return out;
}

uint32_t total(Counter which) {
    return activity.counter[which].total;
}

LONG_PTR styleOf(HWND window) {
    return GetWindowLongPtrW(window, GWL_STYLE);
}

LONG_PTR exStyleOf(HWND window) {
    return GetWindowLongPtrW(window, GWL_EXSTYLE);
}

constexpr LONG_PTR layeredAndTransparent = WS_EX_LAYERED | WS_EX_TRANSPARENT;
const std::string mouseToGameLine = "mouse: the game's (the window out of the hit test)";

// --- scaledRect: page pixels to device pixels ---

TEST(ScaledRect, TheExampleAtScaleOneAndAHalf) {
    RECT r = scaledRect(PageRect{10, 10, 101, 1}, 1.5f);
    EXPECT_EQ(text({r}), "[15,15,166,16]");  // 111 x 1.5 = 166.5, truncated
}

TEST(ScaledRect, ScaleOneKeepsTheEdges) {
    EXPECT_EQ(text({scaledRect(PageRect{3, 4, 50, 60}, 1.0f)}), "[3,4,53,64]");
}

TEST(ScaledRect, NegativeEdgesAreTruncatedTowardZero) {
    // -3 x 1.5 = -4.5 -> -4; (-3 + 2) x 1.5 = -1.5 -> -1
    EXPECT_EQ(text({scaledRect(PageRect{-3, -3, 2, 2}, 1.5f)}), "[-4,-4,-1,-1]");
}

TEST(ScaledRect, FractionsAreDropped) {
    EXPECT_EQ(text({scaledRect(PageRect{1, 1, 1, 1}, 1.25f)}), "[1,1,2,2]");
}

TEST(ScaledRect, EdgesAreSummedAsIntegersAndScaledInSinglePrecision) {
    // 16777217 is the first integer a float cannot hold: it becomes 16777216.
    // The right edge, 16777218, is summed before the conversion and survives.
    EXPECT_EQ(text({scaledRect(PageRect{16777217, 0, 1, 0}, 1.0f)}), "[16777216,0,16777218,0]");
}

TEST(ScaledRect, SumsBeyondThirtyTwoBitsAreHeldAtTheRangesEnd) {
    // 2000000000 + 2000000000 does not wrap round to -294967296.
    EXPECT_EQ(text({scaledRect(PageRect{2000000000, 0, 2000000000, 0}, 1.0f)}), "[2000000000,0,2147483647,0]");
    EXPECT_EQ(text({scaledRect(PageRect{-2000000000, 0, -2000000000, 0}, 1.0f)}),
              "[-2000000000,0,-2147483648,0]");
}

TEST(ScaledRect, ScaledEdgesBeyondThirtyTwoBitsAreHeldAtTheRangesEnd) {
    EXPECT_EQ(text({scaledRect(PageRect{2000000000, -2000000000, 10, 10}, 1.5f)}),
              "[2147483647,-2147483648,2147483647,-2147483648]");
    EXPECT_EQ(text({scaledRect(PageRect{0, 0, 2000000000, 50}, 1.5f)}), "[0,0,2147483647,75]");
}

// --- the fixture: a game window, the host window in it, the game's socket ---

class Modes : public fakes::ChildModeHostTest {
protected:
    void SetUp() override {
        ChildModeHostTest::SetUp();
        SetWindowPos(windows.overlay, nullptr, 0, 0, 300, 200, SWP_NOZORDER | SWP_NOACTIVATE);
    }

    Strings reports() { return game.receiveAll(); }
};

// --- setMode ---

TEST_F(Modes, ActiveTwiceLogsOnceReportsTwiceAndMovesFocusTwice) {
    uint32_t focusBefore = total(setFocusCalls), moveBefore = total(moveFocusCalls);
    uint32_t changesBefore = total(modeChanges);
    setMode(modeActive);
    setMode(modeActive);
    EXPECT_EQ(log.messages(), Strings({"mode active"}));
    EXPECT_EQ(reports(), Strings({"GRAO state active", "GRAO state active"}));
    EXPECT_EQ(controller.callsStartingWith("MoveFocus"), Strings({"MoveFocus 0", "MoveFocus 0"}));
    EXPECT_EQ(controller.callsStartingWith("put_IsVisible"), Strings({"put_IsVisible 1", "put_IsVisible 1"}));
    EXPECT_EQ(total(setFocusCalls) - focusBefore, 2u);
    EXPECT_EQ(total(moveFocusCalls) - moveBefore, 2u);
    EXPECT_EQ(total(modeChanges) - changesBefore, 1u);
    EXPECT_EQ(GetFocus(), windows.overlay);
    EXPECT_TRUE(shown(windows.overlay));
    EXPECT_EQ(host.mode, modeActive);
    EXPECT_TRUE(host.activeMode);
    // The game window belongs to this very thread: there is nothing to attach to.
    EXPECT_EQ(host.attachedInputThread, 0u);
}

TEST_F(Modes, ShowingFitsTheHostOverTheGame) {
    RECT gameClient;
    GetClientRect(windows.game, &gameClient);
    ASSERT_GT(gameClient.right, 300);  // wider than the host window's 300 x 200 before the fit
    setMode(modePassive);
    RECT client;
    GetClientRect(windows.overlay, &client);
    EXPECT_EQ(text({client}), text({gameClient}));
    EXPECT_EQ(controller.callsStartingWith("put_Bounds"),
              Strings({"put_Bounds 0 0 " + std::to_string(gameClient.right) + " " +
                       std::to_string(gameClient.bottom)}));
}

TEST_F(Modes, EveryCallReportsTheModeByName) {
    setMode(modePassive);
    setMode(modeHidden);
    setMode(modeHidden);
    EXPECT_EQ(reports(), Strings({"GRAO state passive", "GRAO state hidden", "GRAO state hidden"}));
    EXPECT_EQ(log.messages(), Strings({"mode passive", "mode hidden"}));
    EXPECT_FALSE(host.activeMode);
}

TEST_F(Modes, NothingAtAllWithoutAHostWindow) {
    uint32_t gameBefore = total(hostToGame);
    host.hostWindow = nullptr;
    setMode(modeActive);
    EXPECT_EQ(host.mode, modeHidden);
    EXPECT_FALSE(host.activeMode);
    EXPECT_TRUE(reports().empty());
    EXPECT_EQ(total(hostToGame), gameBefore);
    EXPECT_TRUE(log.messages().empty());
    EXPECT_TRUE(controller.calls.empty());
}

TEST_F(Modes, NoReportBeforeTheGameHasSentADatagram) {
    uint32_t gameBefore = total(hostToGame);
    host.replyAddressKnown = false;
    setMode(modeActive);
    EXPECT_EQ(log.messages(), Strings({"mode active"}));
    EXPECT_TRUE(reports().empty());
    EXPECT_EQ(total(hostToGame), gameBefore);
}

TEST_F(Modes, WithoutAControllerTheWindowStillFollowsTheMode) {
    host.webController.ptr = nullptr;
    host.coverUp = false;
    setMode(modeActive);
    EXPECT_TRUE(shown(windows.overlay));
    setMode(modeHidden);
    EXPECT_FALSE(shown(windows.overlay));
    EXPECT_EQ(reports(), Strings({"GRAO state active", "GRAO state hidden"}));
}

// --- the cover ---

TEST_F(Modes, HiddenUnderTheCoverStaysVisibleUntilTheCoverComesDown) {
    setMode(modePassive);
    controller.calls.clear();
    setMode(modeHidden);
    EXPECT_TRUE(shown(windows.overlay));
    EXPECT_TRUE(controller.callsStartingWith("put_IsVisible").empty());

    coverOff("a test's reason");
    EXPECT_FALSE(shown(windows.overlay));
    EXPECT_FALSE(host.coverUp);
    EXPECT_EQ(controller.calls,
              Strings({"put_DefaultBackgroundColor 0 0 0 0", "get_RasterizationScale", "put_IsVisible 0"}));
    EXPECT_EQ(log.messages(), Strings({"mode passive", "mode hidden", "cover off (a test's reason)"}));
}

TEST_F(Modes, TheCoverComesDownOnlyOnce) {
    uint32_t regionsBefore = total(setWindowRgn);
    coverOff("first");
    coverOff("second");
    EXPECT_EQ(log.messages(), Strings({"cover off (first)"}));
    EXPECT_EQ(total(setWindowRgn) - regionsBefore, 1u);
    EXPECT_EQ(controller.callsStartingWith("put_DefaultBackgroundColor").size(), 1u);
}

TEST_F(Modes, CoverOffInPassiveOrActiveKeepsTheWindowShown) {
    setMode(modePassive);
    coverOff("drawn");
    EXPECT_TRUE(shown(windows.overlay));
    EXPECT_TRUE(controller.callsStartingWith("put_IsVisible 0").empty());
}

TEST_F(Modes, CoverOffWithoutController2LeavesTheBackgroundAlone) {
    controller.offerController2 = false;
    controller.offerController3 = false;
    coverOff("drawn");
    EXPECT_TRUE(controller.callsStartingWith("put_DefaultBackgroundColor").empty());
    EXPECT_EQ(log.messages(), Strings({"cover off (drawn)"}));
}

// --- who gets the mouse ---

TEST_F(Modes, ThroughWhileActiveWaitsForPassive) {
    uint32_t switchesBefore = total(mouseOwnerSwitches);
    coverOff("drawn");
    setMode(modeActive);
    host.throughWanted = true;
    updateMouseOwner();
    EXPECT_FALSE(host.mouseToGame);
    EXPECT_EQ(exStyleOf(windows.overlay) & layeredAndTransparent, 0);

    setMode(modePassive);
    EXPECT_TRUE(host.mouseToGame);
    EXPECT_EQ(exStyleOf(windows.overlay) & layeredAndTransparent, layeredAndTransparent);
    EXPECT_EQ(styleOf(windows.overlay) & WS_CLIPCHILDREN, 0);
    COLORREF key = 0;
    BYTE alpha = 0;
    DWORD flags = 0;
    ASSERT_TRUE(GetLayeredWindowAttributes(windows.overlay, &key, &alpha, &flags));
    EXPECT_EQ(key, 0x00010001u);
    EXPECT_EQ(flags, static_cast<DWORD>(LWA_COLORKEY));
    // The alpha of 255 cannot be read back under Wine 8, which reports 0
    // whenever LWA_ALPHA is not among the flags.

    setMode(modeActive);
    EXPECT_FALSE(host.mouseToGame);
    EXPECT_EQ(exStyleOf(windows.overlay) & layeredAndTransparent, 0);
    EXPECT_EQ(styleOf(windows.overlay) & WS_CLIPCHILDREN, WS_CLIPCHILDREN);
    EXPECT_EQ(log.messages(), Strings({"cover off (drawn)", "mode active", "mode passive", mouseToGameLine,
                                       "mode active", "mouse: ours"}));
    EXPECT_EQ(total(mouseOwnerSwitches) - switchesBefore, 2u);
}

TEST_F(Modes, TheCoverKeepsTheMouseUntilItComesDown) {
    setMode(modePassive);
    host.throughWanted = true;
    updateMouseOwner();
    EXPECT_FALSE(host.mouseToGame);
    coverOff("drawn");
    EXPECT_TRUE(host.mouseToGame);
    EXPECT_EQ(log.messages(), Strings({"mode passive", "cover off (drawn)", mouseToGameLine}));
}

TEST_F(Modes, HiddenModeKeepsTheMouse) {
    coverOff("drawn");
    host.throughWanted = true;
    setMode(modeHidden);
    EXPECT_FALSE(host.mouseToGame);
    EXPECT_EQ(exStyleOf(windows.overlay) & layeredAndTransparent, 0);
}

TEST_F(Modes, AnUnchangedOwnerIsNeitherLoggedNorCounted) {
    uint32_t switchesBefore = total(mouseOwnerSwitches);
    updateMouseOwner();
    updateMouseOwner();
    EXPECT_TRUE(log.messages().empty());
    EXPECT_EQ(total(mouseOwnerSwitches), switchesBefore);
}

TEST_F(Modes, NoMouseOwnerWithoutAHostWindow) {
    host.coverUp = false;
    host.mode = modePassive;
    host.throughWanted = true;
    host.hostWindow = nullptr;
    updateMouseOwner();
    EXPECT_FALSE(host.mouseToGame);
}

// While the game has the mouse the background is painted in the colour key,
// which the layered window turns see-through; otherwise the class's own
// erase applies (none for the test class, so the bitmap stays white).
TEST_F(Modes, TheBackgroundIsErasedWithTheColourKeyOnlyWhileTheGameHasTheMouse) {
    HDC screen = GetDC(nullptr);
    HDC dc = CreateCompatibleDC(screen);
    HBITMAP bitmap = CreateCompatibleBitmap(screen, 400, 300);
    ReleaseDC(nullptr, screen);
    HGDIOBJ old = SelectObject(dc, bitmap);
    RECT all{0, 0, 400, 300};
    FillRect(dc, &all, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));

    host.mouseToGame = false;
    EXPECT_EQ(hostWindowProc(windows.overlay, WM_ERASEBKGND, reinterpret_cast<WPARAM>(dc), 0), 0);
    EXPECT_EQ(GetPixel(dc, 10, 10), RGB(255, 255, 255));

    host.mouseToGame = true;
    EXPECT_EQ(hostWindowProc(windows.overlay, WM_ERASEBKGND, reinterpret_cast<WPARAM>(dc), 0), 1);
    EXPECT_EQ(GetPixel(dc, 10, 10), static_cast<COLORREF>(0x00010001));
    EXPECT_EQ(GetPixel(dc, 299, 199), static_cast<COLORREF>(0x00010001));
    EXPECT_EQ(GetPixel(dc, 350, 250), RGB(255, 255, 255));  // outside the 300 x 200 client area

    SelectObject(dc, old);
    DeleteObject(bitmap);
    DeleteDC(dc);
}

// --- the hit region ---

TEST_F(Modes, TheCoversRegionIsTheWholeClientArea) {
    host.regionRects = {PageRect{10, 10, 20, 20}};
    controller.scale = 2.0;
    uint32_t regionsBefore = total(setWindowRgn);
    setRegion(true);
    EXPECT_EQ(text(windowRegionRects(windows.overlay)), "[0,0,300,200]");
    EXPECT_TRUE(controller.callsStartingWith("get_RasterizationScale").empty());
    EXPECT_EQ(total(setWindowRgn) - regionsBefore, 1u);
}

TEST_F(Modes, PageRectanglesAreScaledByTheRasterizationScale) {
    host.coverUp = false;
    controller.scale = 1.5;
    host.regionRects = {PageRect{10, 10, 101, 1}};
    setRegion(true);
    EXPECT_EQ(text(windowRegionRects(windows.overlay)), "[15,15,166,16]");
    EXPECT_EQ(controller.calls, Strings({"get_RasterizationScale"}));
}

TEST_F(Modes, NoRectanglesMeanAnEmptyRegion) {
    host.coverUp = false;
    setRegion(true);
    std::vector<RECT> rects = windowRegionRects(windows.overlay);
    EXPECT_TRUE(rects.empty()) << text(rects);
}

TEST_F(Modes, OverlappingAndOutsideRectanglesAreUnitedUnclipped) {
    host.coverUp = false;
    host.regionRects = {PageRect{0, 0, 100, 100}, PageRect{50, 50, 100, 100}, PageRect{250, 150, 200, 200},
                        PageRect{-20, -20, 10, 10}};
    setRegion(true);
    // The union in bands from top to bottom; the 300 x 200 client area cuts nothing off.
    EXPECT_EQ(text(windowRegionRects(windows.overlay)),
              "[-20,-20,-10,-10][0,0,100,50][0,50,150,100][50,100,150,150][250,150,450,350]");
}

TEST_F(Modes, TheScaleIsOneWithoutController3) {
    host.coverUp = false;
    controller.offerController3 = false;
    controller.scale = 1.5;
    host.regionRects = {PageRect{10, 10, 101, 1}};
    setRegion(true);
    EXPECT_EQ(text(windowRegionRects(windows.overlay)), "[10,10,111,11]");
    EXPECT_TRUE(controller.calls.empty());
}

TEST_F(Modes, TheScaleIsOneWithoutAController) {
    host.coverUp = false;
    host.webController.ptr = nullptr;
    host.regionRects = {PageRect{10, 10, 101, 1}};
    setRegion(true);
    EXPECT_EQ(text(windowRegionRects(windows.overlay)), "[10,10,111,11]");
}

TEST_F(Modes, NoRegionWithoutAHostWindow) {
    uint32_t regionsBefore = total(setWindowRgn);
    host.hostWindow = nullptr;
    setRegion(true);
    EXPECT_EQ(total(setWindowRgn), regionsBefore);
}

// Whether the host window's region holds a point (in window coordinates).
bool regionHolds(HWND window, int x, int y) {
    HRGN region = CreateRectRgn(0, 0, 0, 0);
    bool holds = GetWindowRgn(window, region) != ERROR && PtInRegion(region, x, y);
    DeleteObject(region);
    return holds;
}

TEST_F(Modes, AnEdgePastTheRangeGivesTheRegionAPersonExpects) {
    host.coverUp = false;
    // The right edge, 10 + 2147483647, is past the 32-bit range: the
    // rectangle reaches to the right end, not round to the left.
    host.regionRects = {PageRect{10, 0, 2147483647, 50}};
    setRegion(true);
    EXPECT_TRUE(regionHolds(windows.overlay, 10, 10));
    EXPECT_TRUE(regionHolds(windows.overlay, 299, 49));
    EXPECT_FALSE(regionHolds(windows.overlay, 9, 10));
    EXPECT_FALSE(regionHolds(windows.overlay, -100, 10));
    EXPECT_FALSE(regionHolds(windows.overlay, 100, 50));
}

TEST_F(Modes, AnEdgeThatScalingTakesPastTheRangeGivesTheRegionAPersonExpects) {
    host.coverUp = false;
    controller.scale = 1.5;
    host.regionRects = {PageRect{0, 0, 2000000000, 50}};
    setRegion(true);
    EXPECT_TRUE(regionHolds(windows.overlay, 0, 0));
    EXPECT_TRUE(regionHolds(windows.overlay, 299, 74));
    EXPECT_FALSE(regionHolds(windows.overlay, -1, 10));
    EXPECT_FALSE(regionHolds(windows.overlay, 100, 75));
}

TEST_F(Modes, ARectangleWithANegativeWidthCoversItsMirror) {
    host.coverUp = false;
    host.regionRects = {PageRect{100, 10, -50, 20}, PageRect{200, 40, 10, -20}};
    setRegion(true);
    EXPECT_EQ(text(windowRegionRects(windows.overlay)),
              "[50,10,100,20][50,20,100,30][200,20,210,30][200,30,210,40]");
}

TEST_F(Modes, AtMostAThousandRectanglesMakeTheRegion) {
    host.coverUp = false;
    for (int i = 0; i < 100000; ++i) host.regionRects.push_back(PageRect{i, 0, 1, 1});
    setRegion(true);
    EXPECT_EQ(text(windowRegionRects(windows.overlay)), "[0,0,1000,1]");
    EXPECT_EQ(log.messages(), Strings{"region: 100000 rectangles, only the first 1000 are used"});
}

TEST_F(Modes, NoRegionForAHostWindowThatIsGone) {
    HWND gone = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(gone, nullptr);
    DestroyWindow(gone);
    host.hostWindow = gone;
    uint32_t regionsBefore = total(setWindowRgn);
    setRegion(true);
    host.coverUp = false;
    host.regionRects = {PageRect{1, 2, 3, 4}};
    setRegion(true);
    EXPECT_EQ(total(setWindowRgn), regionsBefore);
}

TEST_F(Modes, CoverOffPutsThePagesRegionInPlace) {
    host.regionRects = {PageRect{1, 2, 3, 4}};
    setRegion(true);
    coverOff("drawn");
    EXPECT_EQ(text(windowRegionRects(windows.overlay)), "[1,2,4,6]");
}

// --- keyboard focus ---

TEST_F(Modes, LeavingActiveGivesTheFocusBackToTheGame) {
    setMode(modeActive);
    ASSERT_EQ(GetFocus(), windows.overlay);
    uint32_t focusBefore = total(setFocusCalls);
    setMode(modePassive);
    EXPECT_EQ(GetFocus(), windows.game);
    EXPECT_EQ(total(setFocusCalls) - focusBefore, 1u);
    // The game has the focus already: no further SetFocus.
    setMode(modeHidden);
    EXPECT_EQ(total(setFocusCalls) - focusBefore, 1u);
    EXPECT_EQ(controller.callsStartingWith("MoveFocus").size(), 1u);
}

TEST_F(Modes, OwnedModeNeverMovesTheKeyboard) {
    host.childMode = false;
    uint32_t focusBefore = total(setFocusCalls), moveBefore = total(moveFocusCalls);
    setMode(modeActive);
    setMode(modeActive);
    setMode(modePassive);
    EXPECT_EQ(total(setFocusCalls), focusBefore);
    EXPECT_EQ(total(moveFocusCalls), moveBefore);
    EXPECT_TRUE(controller.callsStartingWith("MoveFocus").empty());
    EXPECT_EQ(host.attachedInputThread, 0u);
    EXPECT_EQ(reports(), Strings({"GRAO state active", "GRAO state active", "GRAO state passive"}));
}

TEST_F(Modes, NoFocusMovesWithoutAGameWindow) {
    host.gameWindow = nullptr;
    uint32_t focusBefore = total(setFocusCalls);
    setMode(modeActive);
    EXPECT_EQ(total(setFocusCalls), focusBefore);
    EXPECT_TRUE(controller.callsStartingWith("MoveFocus").empty());
}

// A game window of another thread: entering active mode attaches this
// thread's input to it once; leaving active mode releases it.
class OtherThreadWindow {
public:
    OtherThreadWindow() {
        thread = std::thread([this] {
            HWND made = CreateWindowExW(0, L"STATIC", L"other thread's game", WS_OVERLAPPEDWINDOW, 60,
                                        60, 300, 200, nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
            threadId = GetCurrentThreadId();
            window = made;
            MSG message;
            while (!stop && GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
            DestroyWindow(made);
        });
        while (!window) Sleep(5);
    }
    ~OtherThreadWindow() {
        stop = true;
        PostThreadMessageW(threadId, WM_NULL, 0, 0);
        thread.join();
    }
    std::atomic<HWND> window{nullptr};
    std::atomic<DWORD> threadId{0};

private:
    std::atomic<bool> stop{false};
    std::thread thread;
};

TEST_F(Modes, ActiveAttachesInputToTheGamesThreadAndLeavingReleasesIt) {
    OtherThreadWindow other;
    host.gameWindow = other.window;
    setMode(modeActive);
    EXPECT_EQ(host.attachedInputThread, static_cast<uint32_t>(other.threadId));
    setMode(modeActive);
    EXPECT_EQ(host.attachedInputThread, static_cast<uint32_t>(other.threadId));
    setMode(modePassive);
    EXPECT_EQ(host.attachedInputThread, 0u);
}

// --- askPageToClose ---

TEST_F(Modes, AskingThePageToCloseBeforeItIsReadyHidesAtOnce) {
    host.coverUp = false;
    setMode(modeActive);
    askPageToClose();
    EXPECT_EQ(host.mode, modeHidden);
    EXPECT_FALSE(shown(windows.overlay));
}

TEST_F(Modes, AskingAReadyPageToCloseOnlyPostsClose) {
    host.webView.ptr = webView.get();
    host.pageReady = true;
    setMode(modeActive);
    uint32_t postsBefore = total(hostToPage);
    askPageToClose();
    EXPECT_EQ(webView.posted, std::vector<std::wstring>({L"{\"type\":\"close\"}"}));
    EXPECT_EQ(total(hostToPage) - postsBefore, 1u);
    EXPECT_EQ(host.mode, modeActive);
    EXPECT_TRUE(webView.unexpectedSlots.empty());
    EXPECT_EQ(reports(), Strings({"GRAO state active"}));
}

TEST_F(Modes, AskingAReadyPageWithoutAWebViewDoesNothing) {
    host.pageReady = true;
    setMode(modeActive);
    uint32_t postsBefore = total(hostToPage);
    askPageToClose();
    EXPECT_EQ(total(hostToPage), postsBefore);
    EXPECT_EQ(host.mode, modeActive);
}

}  // namespace
