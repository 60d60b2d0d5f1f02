// Whether the game is "away" (minimised, or another application in front) or
// back in front, told to the page on every change. The host's own windows and
// the browser's processes count as part of the game. An older root-owner rule
// is computed beside it and only logged when it disagrees.
#pragma once

#include <windows.h>

#include <cstdint>

void trackForeground();

struct ForegroundFacts {
    bool iconic = false;
    bool foregroundNull = false;
    bool foregroundIsHost = false;
    bool foregroundIsBrowser = false;
    uint32_t foregroundPid = 0;
    uint32_t gamePid = 0;
    uint32_t ourPid = 0;
};

enum class AwayVerdict { away, back, unknown };

// The current rule; unknown while no window is in the foreground.
AwayVerdict currentRuleSays(const ForegroundFacts& facts);
