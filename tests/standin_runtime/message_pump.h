// The runtime's work that must happen "later, on the caller's thread": a
// message-only window created on the thread that first calls into the
// stand-in, so that completion callbacks and page messages arrive from the
// program's own message loop, as they do with the real runtime.
#pragma once

#include <windows.h>

#include <functional>

namespace standin {

// Messages of the pump window.
constexpr UINT kRunLaterMessage = WM_APP + 1;
constexpr UINT kPageSocketMessage = WM_APP + 2;

// The pump window, created on the calling thread on first use; null if it
// could not be created.
HWND pumpWindow();

// Queues work to run on the pump window's thread from its message loop.
// Returns false (and drops the work) when no window could take it.
bool runLater(std::function<void()> work);

// Destroys the window when called on its own thread (the library is being
// unloaded); otherwise leaves it alone.
void closePump();

}  // namespace standin
