// Keeps the host window exactly over the game window's client area and the
// web view filling the host window. Cheap: called on every tick while the
// overlay is in use and after anything that may have moved either window.
#pragma once

#include <windows.h>

void fit_to_game();

// The client rectangle and origin seen by the previous call, which only feed
// the "rect changed" / "same" counters; -1 at start so the first call counts
// as changed.
extern RECT lastGameClient;
extern POINT lastGameOrigin;
