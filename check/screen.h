// What the screen itself shows: a part of it copied from the desktop, as a
// person sees it, not from any window's own contents.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

struct Rgb {
    int r = 0;
    int g = 0;
    int b = 0;
};

// A copy of a screen rectangle, its pixels top-down, 0x00RRGGBB each.
struct Picture {
    RECT area{};
    std::vector<uint32_t> pixels;
    int width() const { return area.right - area.left; }
    int height() const { return area.bottom - area.top; }
};

// Copies the screen rectangle (clipped to the virtual screen); false with the
// system's error number when the screen could not be read.
bool captureScreen(const RECT& area, Picture& picture, DWORD& error);

// The colour at a screen point; false when the point is outside the picture.
bool colourAt(const Picture& picture, POINT screenPoint, Rgb& colour);

bool colourNear(const Rgb& colour, const Rgb& expected, int tolerance);
std::string colourText(const Rgb& colour);

// The whole virtual screen (every monitor), in physical pixels.
RECT virtualScreen();
