// The interaction modes (hidden, passive, active), who gets the mouse (the
// host, or the game through a layered, transparent window), the cover shown
// until the page has drawn, the hit region built from the page's rectangles,
// and moving keyboard focus between host and game.
#pragma once

#include <windows.h>

#include <vector>

struct PageRect;

// The colour that is see-through while the mouse belongs to the game: the
// host window's background is painted in it then.
constexpr COLORREF colourKey = 0x00010001;

void setMode(int newMode);
void askPageToClose();
void updateMouseOwner();
void setRegion(bool redraw);
void coverOff(const char* reason);

// Puts the cover up over a live game window: the host fitted, shown and its
// region the whole client area. Nothing when the cover is down.
void showCoverOverGame();
void moveKeyboardFocus(bool toHost);

// The hit region's rectangles in device pixels: each page rectangle's edges
// scaled in single precision and truncated toward zero; an edge beyond the
// 32-bit range, before or after scaling, is held at the range's end.
RECT scaledRect(const PageRect& rect, float scale);
