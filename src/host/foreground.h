// Whether the game is "away" (minimised, or another application in front) or
// back in front, told to the page on every change. The host's own windows and
// the browser's processes count as part of the game. An older root-owner rule
// is computed beside it and only logged when it disagrees.
#pragma once

#include <windows.h>

#include <cstdint>

void trackForeground();

// How the parent of a process is found: a process snapshot in the program.
using ParentProcessLookup = uint32_t (*)(uint32_t processId);
uint32_t parentProcessOf(uint32_t processId);

// One step of trackForeground with the foreground window and the parent
// lookup given, so that every case can be driven directly.
void trackForegroundWindow(HWND foreground, ParentProcessLookup parentOf);

struct BrowserFacts {
    bool foregroundNull = false;
    uint32_t foregroundPid = 0;
    uint32_t gamePid = 0;
    uint32_t ourPid = 0;
    uint32_t browserPid = 0;
};

// Whether the foreground window belongs to the browser process or to a direct
// child of it. parentOf is asked only for a window of a fourth process (not
// the game's, not ours, not the browser's).
bool foregroundIsBrowserProcess(const BrowserFacts& facts, ParentProcessLookup parentOf);

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
