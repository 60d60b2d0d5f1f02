// The keyboard layout keeper: its decisions driven tick by tick with made-up
// times and layouts, the layout names, the event lines, and the tick step
// acting on a window of this test's own thread.
#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "app/host_state.h"
#include "fakes.h"
#include "keyboard/layout_keeper.h"
#include "test_support.h"

using test_support::ScratchLog;

namespace {

HKL layoutHandle(uint64_t value) {
    return reinterpret_cast<HKL>(static_cast<uintptr_t>(value));
}

const HKL us = layoutHandle(0x04090409);
const HKL german = layoutHandle(0x04070407);
const HKL french = layoutHandle(0x040C040C);
const HKL none = nullptr;

struct Event {
    uint32_t at;
    int action;
    bool operator==(const Event& other) const { return at == other.at && action == other.action; }
};

void PrintTo(const Event& event, std::ostream* out) {
    *out << "{" << event.at << ", " << event.action << "}";
}

using Events = std::vector<Event>;

// ---------------------------------------------------------------- deciding

class Decide : public ::testing::Test {
protected:
    LayoutKeeperState state;

    int at(uint32_t now, HKL layout) { return decideLayoutAction(state, now, false, layout); }
    int awayAt(uint32_t now, HKL layout) { return decideLayoutAction(state, now, true, layout); }

    // Ticks every 100 ms from `from` through `to` (also across the counter's
    // wrap) and gives the ticks that decided something.
    Events run(uint32_t from, uint32_t to, HKL layout, bool away = false) {
        Events events;
        for (uint32_t elapsed = 0; elapsed <= to - from; elapsed += 100) {
            uint32_t now = from + elapsed;
            int action = decideLayoutAction(state, now, away, layout);
            if (action != layoutNothing) events.push_back({now, action});
        }
        return events;
    }

    // The game held `layout` from `from` on: it becomes the played one 3 s later.
    void learn(uint32_t from, HKL layout) {
        ASSERT_EQ(run(from, from + 3000, layout), (Events{{from + 3000, layoutLearnt}}));
        ASSERT_EQ(state.playedLayout, layout);
    }

    // Away for a second before `back`, on whatever layout.
    void awayBefore(uint32_t back, HKL layout = us) {
        ASSERT_TRUE(run(back - 1000, back - 100, layout, true).empty());
    }

    // A return on `foreign` that is asked back once and dropped again by the game.
    void askedAndDropped(uint32_t back, HKL foreign) {
        awayBefore(back);
        ASSERT_EQ(at(back, foreign), layoutFirstAsk);
        ASSERT_EQ(at(back + 200, us), layoutBackOnPlayed);
    }
};

TEST_F(Decide, TheFirstLayoutIsPlayedAtTheFirstTickFromThreeSecondsOn) {
    EXPECT_EQ(run(10000, 20000, us), (Events{{13000, layoutLearnt}}));
    EXPECT_EQ(state.playedLayout, us);
    EXPECT_EQ(state.previousPlayedLayout, none);
    EXPECT_EQ(state.seenLayout, us);
    EXPECT_EQ(state.seenSince, 10000u);
}

TEST_F(Decide, TheThreeSecondsAreCountedFromTheFirstTickThatSawTheLayout) {
    EXPECT_EQ(at(10050, us), layoutNothing);
    EXPECT_EQ(at(13049, us), layoutNothing);
    EXPECT_EQ(at(13050, us), layoutLearnt);
    EXPECT_EQ(at(13051, us), layoutNothing);
}

TEST_F(Decide, AChangeInsideTheGameIsPlayedThreeSecondsLaterNamingTheOldOne) {
    learn(10000, us);
    EXPECT_TRUE(run(13100, 19900, us).empty());
    EXPECT_EQ(run(20000, 30000, german), (Events{{23000, layoutLearnt}}));
    EXPECT_EQ(state.playedLayout, german);
    EXPECT_EQ(state.previousPlayedLayout, us);
    EXPECT_EQ(state.askCount, 0);
    EXPECT_EQ(state.askStage, 0);
}

TEST_F(Decide, AltTabBackOnAnotherLayoutAsksTwiceGivesUpAndPlaysItThreeSecondsLater) {
    learn(10000, us);
    awayBefore(25000);
    EXPECT_EQ(run(25000, 40000, german), (Events{{25000, layoutFirstAsk},
                                                 {25800, layoutSecondAsk},
                                                 {26600, layoutGaveUp},
                                                 {29600, layoutLearnt}}));
    EXPECT_EQ(state.playedLayout, german);
    EXPECT_EQ(state.previousPlayedLayout, us);
    EXPECT_EQ(state.askCount, 1);  // only first asks count
    EXPECT_EQ(state.askTimes[0], 25000u);
}

TEST_F(Decide, TheAskStepsAreSevenHundredFiftyMillisecondsApartAtLeast) {
    learn(10000, us);
    awayBefore(25000);
    EXPECT_EQ(at(25000, german), layoutFirstAsk);
    EXPECT_EQ(state.askStage, 1);
    EXPECT_EQ(state.askedAt, 25000u);
    EXPECT_EQ(state.justBack, 1);
    EXPECT_EQ(state.backAt, 25000u);
    EXPECT_EQ(at(25749, german), layoutNothing);
    EXPECT_EQ(at(25750, german), layoutSecondAsk);
    EXPECT_EQ(state.askStage, 2);
    EXPECT_EQ(state.askedAt, 25750u);
    EXPECT_EQ(at(26499, german), layoutNothing);
    EXPECT_EQ(at(26500, german), layoutGaveUp);
    EXPECT_EQ(state.askStage, 0);
    EXPECT_EQ(state.justBack, 0);
    EXPECT_EQ(state.seenSince, 26500u);  // the hold restarts when the keeper gives up
    EXPECT_EQ(at(29499, german), layoutNothing);
    EXPECT_EQ(at(29500, german), layoutLearnt);
}

TEST_F(Decide, AForeignLayoutJustInsideOneAndAHalfSecondsIsAsked) {
    learn(10000, us);
    awayBefore(25000);
    EXPECT_EQ(at(25000, us), layoutNothing);  // back on the played one: the episode stays open
    EXPECT_EQ(at(26499, german), layoutFirstAsk);
}

TEST_F(Decide, AForeignLayoutFromOneAndAHalfSecondsOnIsNotAskedButPlayedAfterItsHold) {
    learn(10000, us);
    awayBefore(25000);
    EXPECT_EQ(at(25000, us), layoutNothing);
    EXPECT_EQ(run(26500, 40000, german), (Events{{29500, layoutLearnt}}));
    EXPECT_EQ(state.askCount, 0);
    EXPECT_EQ(state.previousPlayedLayout, us);
}

TEST_F(Decide, TheSecondAskAndTheGivingUpDoNotWaitForTheReturnWindow) {
    learn(10000, us);
    awayBefore(25000);
    EXPECT_EQ(at(25000, us), layoutNothing);
    EXPECT_EQ(run(26400, 40000, german), (Events{{26400, layoutFirstAsk},
                                                 {27200, layoutSecondAsk},
                                                 {28000, layoutGaveUp},
                                                 {31000, layoutLearnt}}));
}

TEST_F(Decide, BackOnThePlayedLayoutAfterTheFirstAskEndsTheEpisodeWithoutASecondAsk) {
    learn(10000, us);
    awayBefore(25000);
    EXPECT_EQ(at(25000, german), layoutFirstAsk);
    EXPECT_EQ(at(25300, us), layoutBackOnPlayed);
    EXPECT_EQ(state.askStage, 0);
    EXPECT_EQ(state.justBack, 0);
    EXPECT_TRUE(run(25400, 60000, us).empty());
    EXPECT_EQ(state.playedLayout, us);
}

TEST_F(Decide, BackOnThePlayedLayoutAfterTheSecondAskEndsTheEpisodeWithoutGivingUp) {
    learn(10000, us);
    awayBefore(25000);
    EXPECT_EQ(at(25000, german), layoutFirstAsk);
    EXPECT_EQ(at(25800, german), layoutSecondAsk);
    EXPECT_EQ(at(25900, us), layoutBackOnPlayed);
    EXPECT_TRUE(run(26000, 40000, us).empty());
    EXPECT_EQ(state.askCount, 1);
}

TEST_F(Decide, AThirdLayoutDuringTheAsksGoesOnWithTheSameEpisode) {
    learn(10000, us);
    awayBefore(25000);
    EXPECT_EQ(at(25000, german), layoutFirstAsk);
    EXPECT_EQ(at(25800, french), layoutSecondAsk);
    EXPECT_EQ(at(26600, french), layoutGaveUp);
    EXPECT_EQ(run(26700, 40000, french), (Events{{29600, layoutLearnt}}));
    EXPECT_EQ(state.playedLayout, french);
}

TEST_F(Decide, FiveReturnsWithinAMinuteMakeFourAsksAndThenResultSix) {
    learn(1000, us);
    for (uint32_t back : {10000u, 20000u, 30000u, 40000u}) askedAndDropped(back, german);
    EXPECT_EQ(state.askCount, 4);
    awayBefore(50000);
    EXPECT_EQ(at(50000, german), layoutLimitReached);
    EXPECT_EQ(state.askCount, 4);
    EXPECT_EQ(state.askStage, 0);  // no ask made
    EXPECT_EQ(state.justBack, 0);
    const uint32_t expected[4] = {10000, 20000, 30000, 40000};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(state.askTimes[i], expected[i]);
    // Left as it is: no second ask, no giving up; played once it held 3 s.
    EXPECT_EQ(run(50100, 60000, german), (Events{{53000, layoutLearnt}}));
}

TEST_F(Decide, AReturnJustUnderSixtySecondsAfterTheOldestAskIsStillOverTheLimit) {
    learn(1000, us);
    for (uint32_t back : {10000u, 20000u, 30000u, 40000u}) askedAndDropped(back, german);
    awayBefore(69999);
    EXPECT_EQ(at(69999, german), layoutLimitReached);
}

TEST_F(Decide, AReturnSixtySecondsAfterTheOldestAskAsksAgain) {
    learn(1000, us);
    for (uint32_t back : {10000u, 20000u, 30000u, 40000u}) askedAndDropped(back, german);
    awayBefore(69900);
    EXPECT_EQ(at(69900, german), layoutLimitReached);
    awayBefore(70000);
    EXPECT_EQ(at(70000, german), layoutFirstAsk);
    EXPECT_EQ(state.askCount, 4);
    const uint32_t expected[4] = {20000, 30000, 40000, 70000};  // oldest first
    for (int i = 0; i < 4; ++i) EXPECT_EQ(state.askTimes[i], expected[i]);
}

TEST_F(Decide, AsksOlderThanAMinuteAreAllDroppedAtTheNextAsk) {
    learn(1000, us);
    for (uint32_t back : {10000u, 20000u, 30000u}) askedAndDropped(back, german);
    askedAndDropped(95000, german);
    EXPECT_EQ(state.askCount, 1);
    EXPECT_EQ(state.askTimes[0], 95000u);
}

TEST_F(Decide, WhileAwayNothingButAwayNotedChanges) {
    learn(10000, us);
    awayBefore(25000);
    EXPECT_EQ(at(25000, german), layoutFirstAsk);
    const LayoutKeeperState before = state;
    EXPECT_TRUE(run(25100, 95000, french, true).empty());
    EXPECT_EQ(awayAt(95100, none), layoutNothing);
    EXPECT_EQ(awayAt(95200, german), layoutNothing);
    EXPECT_EQ(state.awayNoted, 1);
    EXPECT_EQ(state.seenLayout, before.seenLayout);
    EXPECT_EQ(state.playedLayout, before.playedLayout);
    EXPECT_EQ(state.previousPlayedLayout, before.previousPlayedLayout);
    EXPECT_EQ(state.seenSince, before.seenSince);
    EXPECT_EQ(state.backAt, before.backAt);
    EXPECT_EQ(state.askedAt, before.askedAt);
    EXPECT_EQ(state.justBack, before.justBack);
    EXPECT_EQ(state.askStage, before.askStage);
    EXPECT_EQ(state.askCount, before.askCount);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(state.askTimes[i], before.askTimes[i]);
}

TEST_F(Decide, ALayoutChangedWhileAwayCountsFromTheFirstTickBack) {
    learn(10000, us);
    EXPECT_TRUE(run(20000, 29900, german, true).empty());
    EXPECT_EQ(state.seenLayout, us);
    EXPECT_EQ(state.seenSince, 10000u);
    EXPECT_EQ(at(30000, german), layoutFirstAsk);
    EXPECT_EQ(state.seenLayout, german);
    EXPECT_EQ(state.seenSince, 30000u);
    EXPECT_EQ(state.backAt, 30000u);
    EXPECT_EQ(state.awayNoted, 0);
}

TEST_F(Decide, ATickWithoutALayoutIsIgnoredAndTheReturnWaitsForALayout) {
    learn(10000, us);
    awayBefore(20000);
    EXPECT_EQ(at(20000, none), layoutNothing);
    EXPECT_EQ(state.awayNoted, 1);
    EXPECT_EQ(state.justBack, 0);
    EXPECT_EQ(state.seenLayout, us);
    EXPECT_EQ(at(25000, german), layoutFirstAsk);
    EXPECT_EQ(state.backAt, 25000u);
}

TEST_F(Decide, AReturnInTheFirstSecondsPostponesTheFirstPlayedLayout) {
    EXPECT_TRUE(run(10000, 10900, us).empty());
    EXPECT_TRUE(run(11000, 11900, us, true).empty());
    // Back at 12000: no layout is played yet, so nothing is asked, but the
    // first 1.5 s after the return hold nothing.
    EXPECT_EQ(run(12000, 20000, us), (Events{{13500, layoutLearnt}}));
    EXPECT_EQ(state.askCount, 0);
}

TEST_F(Decide, AReturnSetsTheEpisodeAgainEvenWhileAnEarlierOneIsOpen) {
    learn(10000, us);
    awayBefore(20000);
    EXPECT_EQ(at(20000, us), layoutNothing);
    EXPECT_EQ(state.justBack, 1);
    EXPECT_EQ(state.backAt, 20000u);
    awayBefore(30000);
    EXPECT_EQ(at(30000, us), layoutNothing);
    EXPECT_EQ(state.backAt, 30000u);
    EXPECT_EQ(at(31400, german), layoutFirstAsk);
}

TEST_F(Decide, AnOpenEpisodeWithoutAForeignLayoutAsksNothingLater) {
    learn(10000, us);
    awayBefore(20000);
    EXPECT_TRUE(run(20000, 29900, us).empty());
    EXPECT_EQ(state.justBack, 1);  // stays open without effect
    EXPECT_EQ(run(30000, 40000, german), (Events{{33000, layoutLearnt}}));
    EXPECT_EQ(state.askCount, 0);
}

TEST_F(Decide, TheFirstPlayedLayoutAcrossTheTickCountersWrap) {
    const uint32_t start = 0xFFFFF800u;  // 2048 ms before the wrap
    EXPECT_EQ(run(start, start + 6000, us), (Events{{start + 3000, layoutLearnt}}));
    EXPECT_EQ(start + 3000, 0x000003B8u);
}

TEST_F(Decide, AltTabAcrossTheTickCountersWrap) {
    learn(0xFFFF0000u, us);
    const uint32_t back = 0xFFFFFC00u;  // the wrap falls between the two asks' steps
    awayBefore(back);
    EXPECT_EQ(run(back, back + 6000, german), (Events{{back, layoutFirstAsk},
                                                      {back + 800, layoutSecondAsk},
                                                      {back + 1600, layoutGaveUp},
                                                      {back + 4600, layoutLearnt}}));
    EXPECT_LT(back + 1600, back);  // wrapped
}

TEST_F(Decide, TheMinuteOfAsksAcrossTheTickCountersWrap) {
    learn(0xFFFE0000u, us);
    const uint32_t first = 0xFFFF8000u;
    for (uint32_t k = 0; k < 4; ++k) askedAndDropped(first + k * 10000, german);  // the last ones wrapped
    awayBefore(first + 59900);
    EXPECT_EQ(at(first + 59900, german), layoutLimitReached);
    awayBefore(first + 60000);
    EXPECT_EQ(at(first + 60000, german), layoutFirstAsk);
    EXPECT_EQ(state.askCount, 4);
    EXPECT_EQ(state.askTimes[0], first + 10000);
}

// ---------------------------------------------------------------- names

// A refused PostMessageW cannot be brought about under Wine (its queues have
// no limit), so the notes of a refused ask are checked here.
TEST(RefusalNote, ARefusedFirstAskAndARefusedSecondAsk) {
    EXPECT_STREQ(refusalNote(layoutFirstAsk, false), " - the ask was refused");
    EXPECT_STREQ(refusalNote(layoutSecondAsk, false), " - refused");
}

TEST(RefusalNote, AnAskThatWentOutAddsNothing) {
    EXPECT_STREQ(refusalNote(layoutFirstAsk, true), "");
    EXPECT_STREQ(refusalNote(layoutSecondAsk, true), "");
}

TEST(LayoutName, ANullHandleIsNone) {
    EXPECT_EQ(layoutName(nullptr), "none");
}

TEST(LayoutName, LocaleNameAndTheLowThirtyTwoBitsInLowerCaseHex) {
    EXPECT_EQ(layoutName(us), "en-US [04090409]");
    EXPECT_EQ(layoutName(german), "de-DE [04070407]");
    EXPECT_EQ(layoutName(french), "fr-FR [040c040c]");
}

TEST(LayoutName, AVariantIsNamedByItsLanguageAndOnlyTheLowBitsArePrinted) {
    EXPECT_EQ(layoutName(layoutHandle(0xFFFFFFFFF0010409ull)), "en-US [f0010409]");
    EXPECT_EQ(layoutName(layoutHandle(0x00000000F0020409ull)), "en-US [f0020409]");
    EXPECT_EQ(layoutName(layoutHandle(0x1234567804070407ull)), "de-DE [04070407]");
}

TEST(LayoutName, ALanguageWithoutALocaleNameIsAQuestionMark) {
    EXPECT_EQ(layoutName(layoutHandle(0x00000123)), "? [00000123]");
}

// ---------------------------------------------------------------- event lines

// Points the documents folder at a fresh scratch folder.
class KeysFile : public ::testing::Test {
protected:
    void SetUp() override { host.docFolder = folder.path; }
    std::wstring keysPath() const { return folder.file(L"gra_keys.txt"); }
    std::string keys() const { return test_support::readBytes(keysPath()); }

    fakes::HostStateGuard saved;  // first in, last out
    ScratchLog log;
    test_support::ScratchFolder folder;
};

TEST_F(KeysFile, AnEventGoesToTheLogWithKeysAndToTheFileWithALineFeedAndNoTime) {
    noteKeys("the game is on %s again", "en-US [04090409]");
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"keys: the game is on en-US [04090409] again"}));
    EXPECT_EQ(keys(), "the game is on en-US [04090409] again\n");
}

TEST_F(KeysFile, EventsAreAppended) {
    noteKeys("first %d", 1);
    noteKeys("second %u", 2u);
    EXPECT_EQ(keys(), "first 1\nsecond 2\n");
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"keys: first 1", "keys: second 2"}));
}

TEST_F(KeysFile, ALongEventIsCutToTheBuffer) {
    std::string longText(2000, 'x');
    noteKeys("%s", longText.c_str());
    EXPECT_EQ(keys(), std::string(1023, 'x') + "\n");
    ASSERT_EQ(log.messages().size(), 1u);
    EXPECT_EQ(log.messages()[0].substr(0, 6), "keys: ");
    EXPECT_EQ(log.messages()[0].find_first_not_of('x', 6), std::string::npos);
}

TEST_F(KeysFile, AFileThatCannotBeOpenedIsSilentAndTheLogLineIsWritten) {
    host.docFolder = folder.file(L"no such folder");
    noteKeys("keyboard layout in play: %s%s", "en-US [04090409]", "");
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"keys: keyboard layout in play: en-US [04090409]"}));
    EXPECT_FALSE(test_support::fileExists(host.docFolder));
}

// ---------------------------------------------------------------- the tick

const wchar_t gameClassName[] = L"GraLayoutKeeperTestGame";

// A game window of this thread, so that the posted asks land in this
// thread's own queue where the test can take them out undispatched.
class KeepTick : public KeysFile {
protected:
    void SetUp() override {
        KeysFile::SetUp();
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = DefWindowProcW;
        windowClass.hInstance = GetModuleHandleW(nullptr);
        windowClass.lpszClassName = gameClassName;
        RegisterClassW(&windowClass);
        game = CreateWindowExW(0, gameClassName, L"layout game", WS_OVERLAPPEDWINDOW, 0, 0, 300, 200, nullptr,
                               nullptr, GetModuleHandleW(nullptr), nullptr);
        ASSERT_NE(game, nullptr);
        layoutKeeper = LayoutKeeperState{};
        host.gameWindow = game;
        host.gameAway = false;
        keepLayout = true;
        current = GetKeyboardLayout(0);
        ASSERT_NE(current, nullptr);
        other = current == german ? us : german;
        takeAsks();
    }
    void TearDown() override {
        takeAsks();
        if (game) DestroyWindow(game);
    }

    // The layout requests posted to this thread's windows, taken out of the queue.
    std::vector<MSG> takeAsks() {
        std::vector<MSG> asks;
        MSG message;
        while (PeekMessageW(&message, nullptr, WM_INPUTLANGCHANGEREQUEST, WM_INPUTLANGCHANGEREQUEST, PM_REMOVE)) {
            asks.push_back(message);
        }
        return asks;
    }

    // A record that decides the first ask at the next tick back.
    void backOnAnotherLayout() {
        layoutKeeper.playedLayout = other;
        layoutKeeper.seenLayout = other;
        layoutKeeper.awayNoted = 1;
    }

    // A record whose first ask was made a second ago.
    void firstAskMadeASecondAgo() {
        layoutKeeper.playedLayout = other;
        layoutKeeper.seenLayout = current;
        layoutKeeper.askStage = 1;
        layoutKeeper.askedAt = GetTickCount() - 1000;
        layoutKeeper.askCount = 1;
    }

    std::string currentName() const { return layoutName(current); }
    std::string otherName() const { return layoutName(other); }

    HWND game = nullptr;
    HKL current = nullptr;
    HKL other = nullptr;
};

TEST_F(KeepTick, WithoutAGameWindowNothingIsLookedAt) {
    host.gameWindow = nullptr;
    host.gameAway = true;
    keepKeyboardLayout();
    EXPECT_EQ(layoutKeeper.awayNoted, 0);
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(KeepTick, AGameWindowThatIsGoneIsNoWindow) {
    DestroyWindow(game);
    game = nullptr;
    host.gameAway = true;
    keepKeyboardLayout();
    EXPECT_EQ(layoutKeeper.awayNoted, 0);
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(KeepTick, TheAwayStateOfTheForegroundStepIsRead) {
    host.gameAway = true;
    keepKeyboardLayout();
    EXPECT_EQ(layoutKeeper.awayNoted, 1);
    EXPECT_EQ(layoutKeeper.seenLayout, nullptr);
    host.gameAway = false;
    keepKeyboardLayout();
    EXPECT_EQ(layoutKeeper.awayNoted, 0);
    EXPECT_EQ(layoutKeeper.justBack, 1);
    EXPECT_EQ(layoutKeeper.seenLayout, current);  // the game thread's layout
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(KeepTick, TheFirstPlayedLayoutLine) {
    layoutKeeper.seenLayout = current;
    layoutKeeper.seenSince = GetTickCount() - 5000;
    keepKeyboardLayout();
    const std::string line = "keyboard layout in play: " + currentName();
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"keys: " + line}));
    EXPECT_EQ(keys(), line + "\n");
}

TEST_F(KeepTick, ANewPlayedLayoutNamesTheOneBefore) {
    layoutKeeper.playedLayout = other;
    layoutKeeper.seenLayout = current;
    layoutKeeper.seenSince = GetTickCount() - 5000;
    keepKeyboardLayout();
    EXPECT_EQ(keys(), "keyboard layout in play: " + currentName() + " (was " + otherName() + ")\n");
}

TEST_F(KeepTick, TheFirstAskIsPostedToTheGameWindow) {
    backOnAnotherLayout();
    keepKeyboardLayout();
    const std::string line = "back from another application with the keyboard layout " + currentName() +
                             " - the game's keys would land on other actions; the game asked for " + otherName() +
                             " again (the one played with)";
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"keys: " + line}));
    EXPECT_EQ(keys(), line + "\n");
    std::vector<MSG> asks = takeAsks();
    ASSERT_EQ(asks.size(), 1u);
    EXPECT_EQ(asks[0].hwnd, game);
    EXPECT_EQ(asks[0].message, 0x0050u);
    EXPECT_EQ(asks[0].wParam, 0u);
    EXPECT_EQ(asks[0].lParam, reinterpret_cast<LPARAM>(other));
}

TEST_F(KeepTick, WithNoKeepLayoutTheFirstAskIsOnlyNoted) {
    keepLayout = false;
    backOnAnotherLayout();
    keepKeyboardLayout();
    EXPECT_EQ(keys(), "back from another application with the keyboard layout " + currentName() +
                          " - the game's keys would land on other actions; the game asked for " + otherName() +
                          " again (the one played with) (not asked: no_keep_layout.txt)\n");
    EXPECT_TRUE(takeAsks().empty());
    EXPECT_EQ(layoutKeeper.askStage, 1);  // the record moves on as if asked
    EXPECT_EQ(layoutKeeper.askCount, 1);
}

// The game window stays hidden and inactive (other tests on the same desktop
// may depend on which window is in front), so the thread info names no focus
// window here; the end-to-end tests see a real one.
TEST_F(KeepTick, TheSecondAskGoesToTheWindowThatTheGameThreadsInfoNames) {
    GUITHREADINFO info{};
    info.cbSize = sizeof info;
    ASSERT_TRUE(GetGUIThreadInfo(GetCurrentThreadId(), &info));
    HWND expected = info.hwndFocus ? info.hwndFocus : info.hwndActive ? info.hwndActive : game;

    firstAskMadeASecondAgo();
    keepKeyboardLayout();
    char target[32];  // as "%p" prints it: 16 upper-case hexadecimal digits
    snprintf(target, sizeof target, "%016llX", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(expected)));
    EXPECT_EQ(keys(), "the game is still on " + currentName() + " - its focus window " + target + " asked for " +
                          otherName() + "\n");
    std::vector<MSG> asks = takeAsks();
    ASSERT_EQ(asks.size(), 1u);
    EXPECT_EQ(asks[0].hwnd, expected);
    EXPECT_EQ(asks[0].wParam, 0u);
    EXPECT_EQ(asks[0].lParam, reinterpret_cast<LPARAM>(other));
    EXPECT_EQ(layoutKeeper.askStage, 2);
    EXPECT_EQ(layoutKeeper.askCount, 1);  // a second ask does not count
}

TEST_F(KeepTick, WithNoKeepLayoutTheSecondAskIsOnlyNoted) {
    keepLayout = false;
    firstAskMadeASecondAgo();
    keepKeyboardLayout();
    const std::string text = keys();
    EXPECT_EQ(text.rfind("the game is still on " + currentName() + " - its focus window ", 0), 0u) << text;
    const std::string ending = " asked for " + otherName() + " (not asked: no_keep_layout.txt)\n";
    ASSERT_GE(text.size(), ending.size());
    EXPECT_EQ(text.substr(text.size() - ending.size()), ending);
    EXPECT_TRUE(takeAsks().empty());
    EXPECT_EQ(layoutKeeper.askStage, 2);
}

TEST_F(KeepTick, TheGameBackOnThePlayedLayout) {
    layoutKeeper.playedLayout = current;
    layoutKeeper.seenLayout = other;
    layoutKeeper.askStage = 1;
    layoutKeeper.askedAt = GetTickCount();
    keepKeyboardLayout();
    EXPECT_EQ(keys(), "the game is on " + currentName() + " again\n");
}

TEST_F(KeepTick, TheGameKeptTheOtherLayout) {
    firstAskMadeASecondAgo();
    layoutKeeper.askStage = 2;
    keepKeyboardLayout();
    EXPECT_EQ(keys(), "the game kept " + currentName() + " - left as it is (the played one once it holds 3 s)\n");
    EXPECT_TRUE(takeAsks().empty());
}

TEST_F(KeepTick, TheLimitLineSaysFourAndAsksNothing) {
    backOnAnotherLayout();
    const uint32_t now = GetTickCount();
    for (int i = 0; i < 4; ++i) layoutKeeper.askTimes[i] = now - 40000 + 10000 * i;
    layoutKeeper.askCount = 4;
    keepKeyboardLayout();
    EXPECT_EQ(keys(), "back with " + currentName() + ", played with " + otherName() +
                          " - asked 4 times this minute already: left as it is\n");
    EXPECT_TRUE(takeAsks().empty());
}

TEST_F(KeepTick, KeepLayoutIsReadAfreshOnEveryTick) {
    keepLayout = false;
    backOnAnotherLayout();
    keepKeyboardLayout();
    EXPECT_TRUE(takeAsks().empty());
    keepLayout = true;
    layoutKeeper.askedAt = GetTickCount() - 1000;
    keepKeyboardLayout();  // the second ask, now really posted
    EXPECT_EQ(takeAsks().size(), 1u);
}

}  // namespace
