// Real windows made in the test process for the tests that need windows: a
// "game" window, a host window run by hostWindowProc, a game window with a
// host window attached, a plain window, and what tests ask about them.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace host_windows {

// A name no other window of this run uses ("<prefix> <pid>-<n>").
std::wstring uniqueName(const std::wstring& prefix);

// A top-level window of its own class (registered on first use), shown
// without activation when visible is true. A popup by default: under Wine
// without a window manager, hiding or destroying a framed window waits 2 s
// for a window manager that never answers.
HWND makeGameWindow(const std::wstring& className, const std::wstring& title, bool visible = true,
                    RECT place = RECT{100, 100, 500, 400}, bool framed = false);

// A hidden popup of the test host class, whose window procedure is
// hostWindowProc, made as start-up makes the real one (owned mode adds
// WS_EX_NOACTIVATE | WS_EX_TOOLWINDOW).
HWND makeHostWindow(bool childMode);

// Destroys a host window without running the destroy step (its procedure is
// swapped for DefWindowProcW first).
void destroyQuietly(HWND window);

// Removes a WM_QUIT that PostQuitMessage left for this thread; true if there was one.
bool takeQuitMessage();

// "%p" as the log renders it: 16 upper-case hexadecimal digits.
std::string hex(HWND window);

// The executable's file name, as processImageName gives it for this process.
std::string ownImageName();

// Starts a short-lived process and waits until it has ended. Its id is
// returned; the process handle is kept open in *keptHandle when given
// (so the id still names a process object), else closed.
uint32_t endedProcessId(HANDLE* keptHandle = nullptr);

// A game window (top-level, framed, 400 x 300 client area) and a host window
// attached to it as the program does in child mode (WS_CHILD |
// WS_CLIPSIBLINGS | WS_CLIPCHILDREN), both of a test class with no background
// brush and the default window procedure, both destroyed with the object. The
// game window is never shown: under Wine destroying a shown window waits
// about 2 s for the X server. So the host window's own WS_VISIBLE bit
// (shown()) tells whether the program showed or hid it.
struct TestWindows {
    HWND game = nullptr;
    HWND overlay = nullptr;
    TestWindows();
    ~TestWindows();
    TestWindows(const TestWindows&) = delete;
    TestWindows& operator=(const TestWindows&) = delete;
};

inline bool shown(HWND window) {
    return (GetWindowLongPtrW(window, GWL_STYLE) & WS_VISIBLE) != 0;
}

// A hidden top-level window of a system class, destroyed with the object: a
// host window for code that only changes its styles and region.
class PlainWindow {
public:
    PlainWindow();
    ~PlainWindow();
    PlainWindow(const PlainWindow&) = delete;
    PlainWindow& operator=(const PlainWindow&) = delete;
    HWND handle = nullptr;
};

// The rectangles of a window's region in window coordinates; no region of
// its own gives {-1} as a marker, an empty region gives no rectangles.
std::vector<RECT> windowRegionRects(HWND window);

}  // namespace host_windows
