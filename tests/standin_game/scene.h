// The stand-in game's picture: a small platform game scene drawn into the game
// window's client area, animated by one timer, with a marker wherever the
// window was clicked. It owns the off-screen surfaces it draws into, the frame
// timer and the click markers. All of it runs on the game's one GUI thread.
#pragma once

#include <windows.h>

struct SceneCounts {
    unsigned long frames;  // frames put on the window so far
    int markers;           // click markers in the latest frame
    bool still;
};

// Starts the scene on the game window. Animated, a timer repaints the window a
// few times a second; still, the picture is the same at every WM_PAINT and
// changes only with a click.
void startScene(HWND window, bool still);

// WM_PAINT: draws one frame and puts it on the window with one BitBlt.
void paintScene(HWND window);

// WM_TIMER: true when the timer was the scene's (the window is then repainted).
bool advanceScene(HWND window, WPARAM timer);

// WM_LBUTTONDOWN: a marker at the point (client coordinates) for a few seconds.
void markClick(HWND window, POINT at);

// WM_DESTROY: stops the timer and lets go of the off-screen surfaces.
void endScene(HWND window);

SceneCounts sceneCounts();
