// The web view's window: a child of the window the program gave to
// CreateCoreWebView2Controller, at the controller's bounds. It shows the
// page's latest frame composited over the parent's own background (what the
// parent paints for WM_ERASEBKGND), so where the page is transparent the
// parent shows through, as with the real runtime; and it sends the mouse and
// keyboard input it receives to the page, in device pixels.
#pragma once

#include <windows.h>

#include <string>

namespace chromium_runtime {

// Creates the window (hidden unless visible); null on failure.
HWND createPageWindow(HWND parent, const RECT& bounds, bool visible);
void destroyPageWindow();

// Copies rows [top, top + rowCount) of a width x height frame of premultiplied
// BGRA pixels into the window's picture and paints them at once. A frame of
// another size replaces the picture.
void showFramePixels(int width, int height, int top, int rowCount, const std::string& pixels);

}  // namespace chromium_runtime
