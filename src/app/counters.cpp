#include "app/counters.h"

#include <windows.h>

#include "app/log.h"

ActivityCounters activity;

static void foldOpenSlice() {
    for (ActivityCounter& c : activity.counter) {
        if (c.thisSecond > c.busiestSecond) c.busiestSecond = c.thisSecond;
        c.thisSecond = 0;
    }
}

static void startNewPeriod(uint32_t now) {
    for (ActivityCounter& c : activity.counter) c = ActivityCounter{};
    activity.periodStart = now;
    activity.sliceStart = now;
}

static void logReport(double seconds) {
    const ActivityCounter* c = activity.counter;
    auto avg = [&](Counter which) { return c[which].total / seconds; };
    logLine("rates %.0fs (avg/s, busiest 1 s): page->host %.1f/%u host->page %.1f/%u "
            "game->host %.1f/%u host->game %.1f/%u | SetWindowRgn %.1f/%u, mode changes %lu, "
            "mouse-owner switches %lu | fit_to_game %.1f/%u (rect changed %lu, same %lu) | "
            "SetFocus %lu, MoveFocus %lu | WM_SETCURSOR %.1f/%u",
            seconds,
            avg(pageToHost), c[pageToHost].busiestSecond,
            avg(hostToPage), c[hostToPage].busiestSecond,
            avg(gameToHost), c[gameToHost].busiestSecond,
            avg(hostToGame), c[hostToGame].busiestSecond,
            avg(setWindowRgn), c[setWindowRgn].busiestSecond,
            static_cast<unsigned long>(c[modeChanges].total),
            static_cast<unsigned long>(c[mouseOwnerSwitches].total),
            avg(fitToGame), c[fitToGame].busiestSecond,
            static_cast<unsigned long>(c[fitRectChanged].total),
            static_cast<unsigned long>(c[fitRectSame].total),
            static_cast<unsigned long>(c[setFocusCalls].total),
            static_cast<unsigned long>(c[moveFocusCalls].total),
            avg(setCursorMessages), c[setCursorMessages].busiestSecond);
}

void reportRatesAt(uint32_t now) {
    if (activity.periodStart == 0) {
        activity.periodStart = now;
        activity.sliceStart = now;
    }
    if (now - activity.sliceStart >= 1000) {
        foldOpenSlice();
        activity.sliceStart = now;
    }
    uint32_t elapsed = now - activity.periodStart;
    if (elapsed < 30000) return;
    double seconds = elapsed / 1000.0;

    uint64_t sum = 0;
    for (const ActivityCounter& c : activity.counter) sum += c.total;
    if (sum == 0) {
        startNewPeriod(now);
        return;
    }
    foldOpenSlice();
    logReport(seconds);
    startNewPeriod(now);
}

void reportRates() {
    reportRatesAt(GetTickCount());
}
