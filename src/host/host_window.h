// The host window's procedure: the 100 ms tick that finds and follows the
// game window, the game link's socket notifications, the web view's sizing,
// the click-through background, the activation policy and the orderly end.
#pragma once

#include <windows.h>

#include <cstdint>

LRESULT CALLBACK hostWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// The no-game-window clock: true once more than 60 s passed since the first
// tick that found nothing (noGameWindowSince is started here when still 0).
bool noGameWindowForTooLong(uint32_t now);

// True once, on the first tick 5 s or more after start-up while no game
// window has ever been found: the moment for the hint that names the title
// and class looked for. Marks the hint as given.
bool gameWindowHintDue(uint32_t now);

// True on the first tick more than 10 s after the host window was created
// while the cover is still up.
bool coverDeadlinePassed(uint32_t now);

// True when the last tick began 250 ms or more before now: a flood of socket
// notifications keeps the system from making timer messages.
bool tickOverdue(uint32_t now);
