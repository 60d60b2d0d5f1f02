#include <gtest/gtest.h>

#include "app/counters.h"
#include "test_support.h"

using test_support::ScratchLog;

namespace {

class Rates : public ::testing::Test {
protected:
    void SetUp() override { activity = ActivityCounters{}; }
    void TearDown() override { activity = ActivityCounters{}; }
    // Ticks every 100 ms from `from` up to and including `to`.
    static void tickThrough(uint32_t from, uint32_t to) {
        for (uint32_t now = from; now - from <= to - from; now += 100) reportRatesAt(now);
    }
    ScratchLog log;
};

const char* const quietLine =
    "rates %ss (avg/s, busiest 1 s): page->host %s host->page 0.0/0 game->host 0.0/0 host->game 0.0/0 | "
    "SetWindowRgn 0.0/0, mode changes 0, mouse-owner switches 0 | fit_to_game 0.0/0 (rect changed 0, same 0) | "
    "SetFocus 0, MoveFocus 0 | WM_SETCURSOR 0.0/0";

std::string expectedLine(const char* seconds, const char* pageToHostFigure) {
    char line[512];
    snprintf(line, sizeof line, quietLine, seconds, pageToHostFigure);
    return line;
}

TEST_F(Rates, AnIdleHostNeverWritesALine) {
    tickThrough(1000, 200000);
    EXPECT_TRUE(log.messages().empty());
    EXPECT_EQ(activity.periodStart, 181000u);  // restarted after each idle period of 30 s
}

TEST_F(Rates, OneEventInAPeriodPrintsZeroPointZeroAndBusiestOne) {
    reportRatesAt(5000);
    count(pageToHost);
    tickThrough(5100, 34900);
    EXPECT_TRUE(log.messages().empty());
    reportRatesAt(35000);
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], expectedLine("30", "0.0/1"));
}

TEST_F(Rates, TheFullLineWithEveryCounterInItsPlace) {
    reportRatesAt(1000);
    // Distinct totals so that every argument is told apart.
    const Counter order[] = {pageToHost,     hostToPage,     gameToHost,    hostToGame,    setWindowRgn,
                             modeChanges,    mouseOwnerSwitches, fitToGame, fitRectChanged, fitRectSame,
                             setFocusCalls,  moveFocusCalls, setCursorMessages};
    int times = 30;
    for (Counter c : order) {
        for (int i = 0; i < times; ++i) count(c);
        times += 30;
    }
    reportRatesAt(31000);
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0],
              "rates 30s (avg/s, busiest 1 s): page->host 1.0/30 host->page 2.0/60 game->host 3.0/90 "
              "host->game 4.0/120 | SetWindowRgn 5.0/150, mode changes 180, mouse-owner switches 210 | "
              "fit_to_game 8.0/240 (rect changed 270, same 300) | SetFocus 330, MoveFocus 360 | "
              "WM_SETCURSOR 13.0/390");
}

TEST_F(Rates, TenEventsInOneSliceGiveBusiestTenWhateverThePeriod) {
    reportRatesAt(0x10000);
    tickThrough(0x10000, 0x10000 + 12000);
    for (int i = 0; i < 10; ++i) count(gameToHost);
    tickThrough(0x10000 + 12100, 0x10000 + 44900);
    reportRatesAt(0x10000 + 45400);
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_NE(messages[0].find("rates 30s "), std::string::npos) << messages[0];
    EXPECT_NE(messages[0].find(" game->host 0.3/10 "), std::string::npos) << messages[0];
}

TEST_F(Rates, ThePeriodIsRoundedToWholeSecondsAndAveragesUseItsLength) {
    reportRatesAt(1000);
    for (int i = 0; i < 90; ++i) count(pageToHost);
    reportRatesAt(1000 + 44600);  // one report covers a blocked thread's whole span
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], expectedLine("45", "2.0/90"));
}

TEST_F(Rates, SlicesCloseAfterAtLeastOneSecond) {
    reportRatesAt(1000);
    for (int i = 0; i < 3; ++i) count(hostToPage);
    reportRatesAt(1900);  // still the first slice
    for (int i = 0; i < 3; ++i) count(hostToPage);
    reportRatesAt(2000);  // closes the slice of 6
    for (int i = 0; i < 4; ++i) count(hostToPage);
    reportRatesAt(3000);  // closes the slice of 4
    EXPECT_EQ(activity.counter[hostToPage].busiestSecond, 6u);
    EXPECT_EQ(activity.counter[hostToPage].thisSecond, 0u);
    EXPECT_EQ(activity.counter[hostToPage].total, 10u);
}

TEST_F(Rates, TheOpenSliceIsFoldedIntoTheReport) {
    reportRatesAt(1000);
    reportRatesAt(30500);
    for (int i = 0; i < 7; ++i) count(setCursorMessages);
    reportRatesAt(31000);  // the slice begun at 30500 is still open
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_NE(messages[0].find("WM_SETCURSOR 0.2/7"), std::string::npos) << messages[0];
}

TEST_F(Rates, CountersAreZeroedAfterAReport) {
    reportRatesAt(1000);
    count(modeChanges);
    reportRatesAt(31000);
    for (const ActivityCounter& c : activity.counter) {
        EXPECT_EQ(c.total, 0u);
        EXPECT_EQ(c.thisSecond, 0u);
        EXPECT_EQ(c.busiestSecond, 0u);
    }
    EXPECT_EQ(activity.periodStart, 31000u);
    EXPECT_EQ(activity.sliceStart, 31000u);
}

TEST_F(Rates, TheTickCounterWrapsHarmlessly) {
    reportRatesAt(0xFFFFF000u);
    count(pageToHost);
    reportRatesAt(0xFFFFF000u + 29999u);
    EXPECT_TRUE(log.messages().empty());
    reportRatesAt(0xFFFFF000u + 30000u);  // past the wrap
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], expectedLine("30", "0.0/1"));
}

TEST_F(Rates, CountingIsTwoIncrementsAndNoTime) {
    count(fitToGame);
    count(fitToGame);
    EXPECT_EQ(activity.counter[fitToGame].total, 2u);
    EXPECT_EQ(activity.counter[fitToGame].thisSecond, 2u);
    EXPECT_EQ(activity.periodStart, 0u);
}

}  // namespace
