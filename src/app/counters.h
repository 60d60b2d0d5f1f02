// The thirteen activity counters and the rates report. Counting is two
// increments and nothing else; all time handling is in the 100 ms tick, where
// the report is written at most every 30 s and never for an idle period.
#pragma once

#include <cstdint>

struct ActivityCounter {
    uint32_t total = 0;
    uint32_t thisSecond = 0;
    uint32_t busiestSecond = 0;
};

// In the order of the counter table, which the fold and reset loops walk.
enum Counter {
    pageToHost,
    hostToPage,
    gameToHost,
    hostToGame,
    setWindowRgn,
    modeChanges,
    mouseOwnerSwitches,
    fitToGame,
    fitRectChanged,
    fitRectSame,
    setFocusCalls,
    moveFocusCalls,
    setCursorMessages,
    counterCount
};

struct ActivityCounters {
    ActivityCounter counter[counterCount];
    uint32_t periodStart = 0;  // 0: no period has begun yet
    uint32_t sliceStart = 0;
};

extern ActivityCounters activity;

inline void count(Counter which) {
    ++activity.counter[which].total;
    ++activity.counter[which].thisSecond;
}

// The rates step of the tick: reads GetTickCount and hands it on.
void reportRates();
void reportRatesAt(uint32_t now);
