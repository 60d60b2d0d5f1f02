// Foreground tracking: the current rule and the browser classification as
// pure functions, and the tracking step driven with a given foreground
// window, windows of this test's own thread and a counting parent lookup.
#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "app/counters.h"
#include "app/host_state.h"
#include "fakes.h"
#include "host/foreground.h"
#include "host/game_window.h"
#include "host_windows_support.h"
#include "test_support.h"

using fakes::HostStateGuard;
using fakes::RecordingWebView;
using host_windows::hex;
using test_support::ScratchLog;

namespace {

// ---------------------------------------------------------------- the current rule

ForegroundFacts inFront(uint32_t foregroundPid) {
    ForegroundFacts facts;
    facts.foregroundPid = foregroundPid;
    facts.gamePid = 100;
    facts.ourPid = 200;
    return facts;
}

TEST(CurrentRule, AMinimisedGameIsAwayWhateverIsInFront) {
    ForegroundFacts facts = inFront(100);
    facts.iconic = true;
    EXPECT_EQ(currentRuleSays(facts), AwayVerdict::away);
    facts.foregroundIsHost = true;
    EXPECT_EQ(currentRuleSays(facts), AwayVerdict::away);
    facts.foregroundIsBrowser = true;
    EXPECT_EQ(currentRuleSays(facts), AwayVerdict::away);
    ForegroundFacts nothing = inFront(0);
    nothing.foregroundNull = true;
    nothing.iconic = true;
    EXPECT_EQ(currentRuleSays(nothing), AwayVerdict::away);
}

TEST(CurrentRule, NoForegroundWindowDecidesNothing) {
    ForegroundFacts facts = inFront(0);
    facts.foregroundNull = true;
    EXPECT_EQ(currentRuleSays(facts), AwayVerdict::unknown);
}

TEST(CurrentRule, TheHostWindowOrTheBrowserInFrontIsBack) {
    ForegroundFacts host = inFront(0);  // comes before the test of a missing process id
    host.foregroundIsHost = true;
    EXPECT_EQ(currentRuleSays(host), AwayVerdict::back);
    ForegroundFacts browser = inFront(300);
    browser.foregroundIsBrowser = true;
    EXPECT_EQ(currentRuleSays(browser), AwayVerdict::back);
}

TEST(CurrentRule, AWindowWithoutAProcessIsAway) {
    EXPECT_EQ(currentRuleSays(inFront(0)), AwayVerdict::away);
}

TEST(CurrentRule, AWindowOfTheGameOrOfTheHostProcessIsBack) {
    EXPECT_EQ(currentRuleSays(inFront(100)), AwayVerdict::back);
    EXPECT_EQ(currentRuleSays(inFront(200)), AwayVerdict::back);
}

TEST(CurrentRule, AnyOtherProcessInFrontIsAway) {
    EXPECT_EQ(currentRuleSays(inFront(300)), AwayVerdict::away);
}

// ---------------------------------------------------------------- the browser classification

int lookups = 0;
uint32_t lookedUp = 0;
uint32_t parentAnswer = 0;

uint32_t countingLookup(uint32_t processId) {
    ++lookups;
    lookedUp = processId;
    return parentAnswer;
}

class Browser : public ::testing::Test {
protected:
    void SetUp() override {
        lookups = 0;
        lookedUp = 0;
        parentAnswer = 0;
        facts.foregroundPid = 400;
        facts.gamePid = 100;
        facts.ourPid = 200;
        facts.browserPid = 300;
    }
    bool classify() { return foregroundIsBrowserProcess(facts, countingLookup); }
    BrowserFacts facts;
};

TEST_F(Browser, TheBrowserProcessItselfWithoutASnapshot) {
    facts.foregroundPid = 300;
    EXPECT_TRUE(classify());
    EXPECT_EQ(lookups, 0);
}

TEST_F(Browser, ADirectChildOfTheBrowserProcess) {
    parentAnswer = 300;
    EXPECT_TRUE(classify());
    EXPECT_EQ(lookups, 1);
    EXPECT_EQ(lookedUp, 400u);
}

TEST_F(Browser, AFourthProcessWithAnotherParent) {
    parentAnswer = 999;
    EXPECT_FALSE(classify());
    EXPECT_EQ(lookups, 1);
}

TEST_F(Browser, AFailedSnapshotOrAProcessNotFoundIsOutside) {
    parentAnswer = 0;
    EXPECT_FALSE(classify());
}

TEST_F(Browser, NoSnapshotForTheGameOurselvesNoProcessNoBrowserOrNoWindow) {
    parentAnswer = 300;
    for (uint32_t pid : {100u, 200u, 0u}) {
        facts.foregroundPid = pid;
        EXPECT_FALSE(classify()) << pid;
    }
    facts.foregroundPid = 400;
    facts.browserPid = 0;
    EXPECT_FALSE(classify());
    facts.browserPid = 300;
    facts.foregroundNull = true;
    EXPECT_FALSE(classify());
    EXPECT_EQ(lookups, 0);
}

TEST(ParentProcess, TheSnapshotFindsTheParentOfAProcessAndNothingForAnUnknownId) {
    EXPECT_EQ(parentProcessOf(0xFFFFFFF0u), 0u);
    // A copy of this program, started suspended and never run: its parent is us.
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring commandLine = L"\"" + std::wstring(path) + L"\" --gtest_list_tests";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION child{};
    ASSERT_TRUE(CreateProcessW(path, &commandLine[0], nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, nullptr,
                               &startup, &child));
    EXPECT_EQ(parentProcessOf(child.dwProcessId), GetCurrentProcessId());
    TerminateProcess(child.hProcess, 0);
    WaitForSingleObject(child.hProcess, 5000);
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
}

// ---------------------------------------------------------------- the tracking step

const wchar_t windowClassName[] = L"GraForegroundTestWindow";

HWND makeWindow(const wchar_t* title, HWND owner, DWORD style = WS_OVERLAPPEDWINDOW) {
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = DefWindowProcW;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = windowClassName;
    RegisterClassW(&windowClass);
    return CreateWindowExW(0, windowClassName, title, style, 0, 0, 300, 200, owner, nullptr,
                           GetModuleHandleW(nullptr), nullptr);
}

// No window here is ever activated: other tests on the same desktop may
// depend on which window is in front.
class Track : public ::testing::Test {
protected:
    void SetUp() override {
        lookups = 0;
        lookedUp = 0;
        parentAnswer = 0;
        game = makeWindow(L"foreground game", nullptr);
        hostWin = makeWindow(L"foreground host", nullptr);
        dialog = makeWindow(L"a dialog of the host's process", nullptr);
        // A popup: the root owner chain follows the owner of popups only.
        ownedByGame = makeWindow(L"owned by the game", game, WS_POPUP | WS_CAPTION);
        ASSERT_TRUE(game && hostWin && dialog && ownedByGame);
        host.gameWindow = game;
        host.hostWindow = hostWin;
        host.lastForeground = nullptr;
        host.gameAway = false;
        host.oldRuleAway = false;
        host.foregroundIsBrowser = false;
        host.gameProcessId = 0;
        host.browserProcessId = 0;
        host.lastBrowserProcessId = 0;
        host.webView.ptr = fake.get();
        activity = ActivityCounters{};
    }

    void TearDown() override {
        for (HWND window : {ownedByGame, dialog, hostWin, game}) {
            if (window && IsWindow(window)) DestroyWindow(window);
        }
    }

    void track(HWND foreground) { trackForegroundWindow(foreground, countingLookup); }

    // A window of a fourth process: the desktop window belongs to Wine's and
    // Windows' shell process, never to this one.
    static HWND otherProcessWindow(uint32_t* pid) {
        HWND window = GetDesktopWindow();
        DWORD processId = 0;
        GetWindowThreadProcessId(window, &processId);
        *pid = processId;
        return window;
    }

    std::string gameLine(const char* state, HWND foreground) const {
        return std::string("game ") + state + " - foreground: " + describeWindow(foreground);
    }

    std::string oldRuleLine(const char* says, HWND foreground, HWND rootOwner) const {
        return std::string("(the old GA_ROOTOWNER rule would say ") + says + " now - foreground: " +
               describeWindow(foreground) + ", root owner " + hex(rootOwner) + ", game window " + hex(game) + ")";
    }

    uint32_t postedCount() const { return activity.counter[hostToPage].total; }

    using Lines = std::vector<std::string>;
    using Posts = std::vector<std::wstring>;

    HostStateGuard saved;
    ScratchLog log;
    RecordingWebView fake;
    HWND game = nullptr, hostWin = nullptr, dialog = nullptr, ownedByGame = nullptr;
};

TEST_F(Track, WithoutAGameWindowNothingHappens) {
    host.gameWindow = nullptr;
    ShowWindow(game, SW_SHOWMINNOACTIVE);
    track(dialog);
    track(nullptr);
    EXPECT_EQ(host.gameProcessId, 0u);
    EXPECT_EQ(host.lastForeground, nullptr);
    EXPECT_FALSE(host.gameAway);
    EXPECT_FALSE(host.oldRuleAway);
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(Track, AGameWindowThatIsGoneIsNoGameWindow) {
    DestroyWindow(game);
    track(dialog);
    EXPECT_EQ(host.gameProcessId, 0u);
    EXPECT_EQ(host.lastForeground, nullptr);
    EXPECT_FALSE(host.oldRuleAway);
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(Track, TheGameProcessIdIsReadWhileItIsZeroAndKeptOtherwise) {
    track(game);
    EXPECT_EQ(host.gameProcessId, GetCurrentProcessId());
    host.gameProcessId = 4242;
    track(game);
    EXPECT_EQ(host.gameProcessId, 4242u);
}

TEST_F(Track, TheFirstTickWithTheGameInFrontSendsNothing) {
    track(game);
    track(game);
    EXPECT_FALSE(host.gameAway);
    EXPECT_TRUE(fake.posted.empty());
    EXPECT_EQ(postedCount(), 0u);
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(Track, MinimisingTheGameSendsAwayOnceEvenWithTheGameInFront) {
    ShowWindow(game, SW_SHOWMINNOACTIVE);
    track(game);
    track(game);
    EXPECT_TRUE(host.gameAway);
    EXPECT_EQ(fake.posted, (Posts{L"{\"type\":\"away\"}"}));
    EXPECT_EQ(postedCount(), 1u);
    EXPECT_EQ(log.messages(), (Lines{gameLine("away (minimised)", game)}));
}

TEST_F(Track, MinimisingTheGameSendsAwayWithTheHostWindowInFront) {
    ShowWindow(game, SW_SHOWMINNOACTIVE);
    track(hostWin);
    EXPECT_EQ(fake.posted, (Posts{L"{\"type\":\"away\"}"}));
    EXPECT_EQ(log.messages(), (Lines{gameLine("away (minimised)", hostWin)}));
}

TEST_F(Track, AMinimisedGameIsAwayAlsoWithoutAForegroundWindow) {
    ShowWindow(game, SW_SHOWMINNOACTIVE);
    track(nullptr);
    EXPECT_TRUE(host.gameAway);
    EXPECT_EQ(log.messages(), (Lines{"game away (minimised) - foreground: none"}));
}

TEST_F(Track, RestoringTheGameAndBringingItToTheFrontSendsBack) {
    ShowWindow(game, SW_SHOWMINNOACTIVE);
    track(game);
    ShowWindow(game, SW_SHOWNOACTIVATE);
    track(game);
    EXPECT_FALSE(host.gameAway);
    EXPECT_EQ(fake.posted, (Posts{L"{\"type\":\"away\"}", L"{\"type\":\"back\"}"}));
    EXPECT_EQ(postedCount(), 2u);
    EXPECT_EQ(log.messages(), (Lines{gameLine("away (minimised)", game), gameLine("back in front", game)}));
}

TEST_F(Track, WithoutAWebViewTheStateStillChangesAndTheLineIsWritten) {
    host.webView.ptr = nullptr;
    ShowWindow(game, SW_SHOWMINNOACTIVE);
    track(game);
    EXPECT_TRUE(host.gameAway);
    EXPECT_EQ(postedCount(), 0u);
    EXPECT_EQ(log.messages(), (Lines{gameLine("away (minimised)", game)}));
}

TEST_F(Track, TheHostWindowInFrontKeepsTheGameBackAndBringsItBack) {
    track(hostWin);
    EXPECT_FALSE(host.gameAway);
    EXPECT_TRUE(fake.posted.empty());
    EXPECT_TRUE(log.messages().empty());  // the old rule counts the host window as in front too
    host.gameAway = true;
    host.oldRuleAway = true;
    track(hostWin);
    EXPECT_FALSE(host.gameAway);
    EXPECT_EQ(fake.posted, (Posts{L"{\"type\":\"back\"}"}));
    EXPECT_EQ(log.messages(), (Lines{gameLine("back in front", hostWin)}));
}

TEST_F(Track, ADialogOfTheHostsProcessKeepsTheGameBackWhileTheOldRuleSaysAwayOnce) {
    track(dialog);
    track(dialog);
    track(dialog);
    EXPECT_FALSE(host.gameAway);
    EXPECT_TRUE(host.oldRuleAway);
    EXPECT_TRUE(fake.posted.empty());
    EXPECT_EQ(log.messages(), (Lines{oldRuleLine("away", dialog, dialog)}));
}

TEST_F(Track, AWindowOwnedByTheGameInTheSameProcessAgreesWithTheOldRule) {
    track(ownedByGame);
    EXPECT_FALSE(host.gameAway);
    EXPECT_FALSE(host.oldRuleAway);
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(Track, TheOldRuleIsLoggedAgainOnlyAfterItsAnswerChanged) {
    track(dialog);
    track(game);  // the old rule says in front again: agrees, nothing logged
    EXPECT_FALSE(host.oldRuleAway);
    track(dialog);
    EXPECT_EQ(log.messages(), (Lines{oldRuleLine("away", dialog, dialog), oldRuleLine("away", dialog, dialog)}));
}

TEST_F(Track, NoForegroundWindowLeavesTheStateAndThePageAlone) {
    track(nullptr);
    track(nullptr);
    EXPECT_FALSE(host.gameAway);
    EXPECT_TRUE(fake.posted.empty());
    // The old rule says away for a null root owner: one disagreement line.
    EXPECT_EQ(log.messages(), (Lines{"(the old GA_ROOTOWNER rule would say away now - foreground: none, root owner " +
                                     hex(nullptr) + ", game window " + hex(game) + ")"}));
}

TEST_F(Track, NoForegroundWindowWhileAwayStaysAway) {
    uint32_t otherPid = 0;
    HWND other = otherProcessWindow(&otherPid);
    track(other);
    ASSERT_TRUE(host.gameAway);
    const size_t lines = log.messages().size();
    track(nullptr);
    EXPECT_TRUE(host.gameAway);
    EXPECT_EQ(fake.posted.size(), 1u);
    EXPECT_EQ(log.messages().size(), lines);
}

TEST_F(Track, AnotherApplicationInFrontIsAwayAndBothRulesAgree) {
    uint32_t otherPid = 0;
    HWND other = otherProcessWindow(&otherPid);
    ASSERT_NE(otherPid, 0u);
    ASSERT_NE(otherPid, GetCurrentProcessId());
    track(other);
    track(other);
    EXPECT_TRUE(host.gameAway);
    EXPECT_TRUE(host.oldRuleAway);
    EXPECT_EQ(fake.posted, (Posts{L"{\"type\":\"away\"}"}));
    EXPECT_EQ(log.messages(), (Lines{gameLine("away (another application in front)", other)}));
    EXPECT_EQ(lookups, 0);  // no browser process known: no snapshot
}

TEST_F(Track, TheSnapshotIsTakenOncePerForegroundWindowOfAFourthProcess) {
    uint32_t otherPid = 0;
    HWND other = otherProcessWindow(&otherPid);
    host.browserProcessId = 5555;
    parentAnswer = 1;
    for (int i = 0; i < 5; ++i) track(other);
    EXPECT_EQ(lookups, 1);
    EXPECT_EQ(lookedUp, otherPid);
    EXPECT_TRUE(host.gameAway);
    track(game);  // no snapshot for the game's own windows
    EXPECT_EQ(lookups, 1);
    EXPECT_FALSE(host.gameAway);
    track(other);  // the foreground window changed: asked again
    EXPECT_EQ(lookups, 2);
}

TEST_F(Track, TheCachedAnswerIsKeptUntilTheForegroundWindowChanges) {
    uint32_t otherPid = 0;
    HWND other = otherProcessWindow(&otherPid);
    host.browserProcessId = 5555;
    parentAnswer = 5555;
    track(other);
    EXPECT_TRUE(host.foregroundIsBrowser);
    parentAnswer = 1;  // a later snapshot would say otherwise
    track(other);
    EXPECT_TRUE(host.foregroundIsBrowser);
    EXPECT_FALSE(host.gameAway);
    EXPECT_EQ(lookups, 1);
}

TEST_F(Track, ANewBrowserProcessIdRefreshesTheCachedAnswer) {
    uint32_t otherPid = 0;
    HWND other = otherProcessWindow(&otherPid);
    host.browserProcessId = 5555;
    parentAnswer = 5555;
    track(other);
    EXPECT_FALSE(host.gameAway);
    host.browserProcessId = 6666;
    track(other);
    EXPECT_EQ(lookups, 2);
    EXPECT_FALSE(host.foregroundIsBrowser);
    EXPECT_TRUE(host.gameAway);
    EXPECT_EQ(host.lastBrowserProcessId, 6666u);
}

TEST_F(Track, AWindowOfAChildOfTheBrowserProcessBringsTheGameBack) {
    uint32_t otherPid = 0;
    HWND other = otherProcessWindow(&otherPid);
    track(other);
    ASSERT_TRUE(host.gameAway);
    host.browserProcessId = 5555;
    parentAnswer = 5555;
    track(other);
    EXPECT_FALSE(host.gameAway);
    EXPECT_EQ(fake.posted, (Posts{L"{\"type\":\"away\"}", L"{\"type\":\"back\"}"}));
    EXPECT_EQ(log.messages().back(), gameLine("back in front", other));
}

TEST_F(Track, AWindowOfTheBrowserProcessItselfKeepsTheGameBackWithoutASnapshot) {
    uint32_t otherPid = 0;
    HWND other = otherProcessWindow(&otherPid);
    host.browserProcessId = otherPid;
    track(other);
    EXPECT_TRUE(host.foregroundIsBrowser);
    EXPECT_FALSE(host.gameAway);
    EXPECT_EQ(lookups, 0);
    EXPECT_TRUE(fake.posted.empty());
}

TEST_F(Track, TheRealSnapshotCountsAFourthProcessAsOutside) {
    uint32_t otherPid = 0;
    HWND other = otherProcessWindow(&otherPid);
    host.browserProcessId = 0xFFFFFFF0u;  // no process has this parent
    trackForegroundWindow(other, parentProcessOf);
    EXPECT_FALSE(host.foregroundIsBrowser);
    EXPECT_TRUE(host.gameAway);
}

}  // namespace
