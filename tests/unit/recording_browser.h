// Stand-ins for the web view objects that the host state holds, for unit
// tests that call the program's mode, region and show operations directly:
// a controller that records every call as a line of text, a core web view
// that keeps the JSON texts posted to it, a UDP socket that plays the game,
// and a guard that puts back every host field those tests touch.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>
#include <vector>

#include "app/host_state.h"
#include "page/webview2.h"

namespace recording_browser {

// Answers QueryInterface for the controller interfaces it is told to offer;
// get_RasterizationScale gives `scale`. Every call lands in `calls`, e.g.
// "put_IsVisible 1", "MoveFocus 0", "put_DefaultBackgroundColor 0 0 0 0".
class RecordingController : public ICoreWebView2Controller3 {
public:
    std::vector<std::string> calls;
    bool offerController2 = true;
    bool offerController3 = true;
    double scale = 1.0;
    LONG references = 1;

    // The calls whose text starts with prefix.
    std::vector<std::string> callsStartingWith(const std::string& prefix) const;

    STDMETHOD(QueryInterface)(REFIID riid, void** object) override;
    STDMETHOD_(ULONG, AddRef)() override;
    STDMETHOD_(ULONG, Release)() override;

    STDMETHOD(get_IsVisible)(BOOL* isVisible) override;
    STDMETHOD(put_IsVisible)(BOOL isVisible) override;
    STDMETHOD(get_Bounds)(RECT* bounds) override;
    STDMETHOD(put_Bounds)(RECT bounds) override;
    STDMETHOD(get_ZoomFactor)(double* zoomFactor) override;
    STDMETHOD(put_ZoomFactor)(double zoomFactor) override;
    STDMETHOD(add_ZoomFactorChanged)(IUnknown* handler, EventRegistrationToken* token) override;
    STDMETHOD(remove_ZoomFactorChanged)(EventRegistrationToken token) override;
    STDMETHOD(SetBoundsAndZoomFactor)(RECT bounds, double zoomFactor) override;
    STDMETHOD(MoveFocus)(COREWEBVIEW2_MOVE_FOCUS_REASON reason) override;
    STDMETHOD(add_MoveFocusRequested)(IUnknown* handler, EventRegistrationToken* token) override;
    STDMETHOD(remove_MoveFocusRequested)(EventRegistrationToken token) override;
    STDMETHOD(add_GotFocus)(IUnknown* handler, EventRegistrationToken* token) override;
    STDMETHOD(remove_GotFocus)(EventRegistrationToken token) override;
    STDMETHOD(add_LostFocus)(IUnknown* handler, EventRegistrationToken* token) override;
    STDMETHOD(remove_LostFocus)(EventRegistrationToken token) override;
    STDMETHOD(add_AcceleratorKeyPressed)(IUnknown* handler, EventRegistrationToken* token) override;
    STDMETHOD(remove_AcceleratorKeyPressed)(EventRegistrationToken token) override;
    STDMETHOD(get_ParentWindow)(HWND* parentWindow) override;
    STDMETHOD(put_ParentWindow)(HWND parentWindow) override;
    STDMETHOD(NotifyParentWindowPositionChanged)() override;
    STDMETHOD(Close)() override;
    STDMETHOD(get_CoreWebView2)(ICoreWebView2** coreWebView2) override;
    STDMETHOD(get_DefaultBackgroundColor)(COREWEBVIEW2_COLOR* value) override;
    STDMETHOD(put_DefaultBackgroundColor)(COREWEBVIEW2_COLOR value) override;
    STDMETHOD(get_RasterizationScale)(double* scale) override;
    STDMETHOD(put_RasterizationScale)(double scale) override;
    STDMETHOD(get_ShouldDetectMonitorScaleChanges)(BOOL* value) override;
    STDMETHOD(put_ShouldDetectMonitorScaleChanges)(BOOL value) override;
    STDMETHOD(add_RasterizationScaleChanged)(IUnknown* handler, EventRegistrationToken* token) override;
    STDMETHOD(remove_RasterizationScaleChanged)(EventRegistrationToken token) override;
    STDMETHOD(get_BoundsMode)(int* boundsMode) override;
    STDMETHOD(put_BoundsMode)(int boundsMode) override;

private:
    HRESULT unexpected(const char* name);
};

// A core web view of which only PostWebMessageAsJson and Reload are
// expected: its virtual table points every other slot at a function that
// notes the slot number in `unexpectedSlots`.
struct RecordingWebView {
    void* const* table;  // first, where a COM object keeps its table
    std::vector<std::wstring> posted;
    std::vector<int> unexpectedSlots;
    int reloads = 0;

    RecordingWebView();
    ICoreWebView2* get() { return reinterpret_cast<ICoreWebView2*>(this); }
};

// A UDP socket on 127.0.0.1 that stands for the game: install() makes it the
// host's reply address and gives the host a sending socket of its own.
class GameSocket {
public:
    GameSocket();
    ~GameSocket();
    void install();
    // Every datagram that arrives within timeoutMs of the previous one.
    std::vector<std::string> receiveAll(int timeoutMs = 300);

private:
    SOCKET listener = INVALID_SOCKET;
    SOCKET sender = INVALID_SOCKET;
    sockaddr_in address{};
};

// Copies the host fields that the mode, region and show tests change and
// puts them back on destruction. The two web view references are put back
// as raw pointers, so that a stand-in on the stack is never released.
class HostFieldsGuard {
public:
    HostFieldsGuard();
    ~HostFieldsGuard();

private:
    HWND gameWindow, hostWindow;
    bool childMode, activeMode, coverUp, pageReady, throughWanted, mouseToGame, replyAddressKnown;
    int32_t mode;
    uint32_t attachedInputThread, startTicks;
    std::vector<PageRect> regionRects;
    std::wstring pendingPad;
    std::vector<std::wstring> pendingPageMessages;
    ICoreWebView2Controller* webController;
    ICoreWebView2* webView;
    SOCKET gameSocket;
    sockaddr_in replyAddress;
};

// A game window (top-level, 400 x 300 client area) and a host window attached
// to it as the program does in child mode (WS_CHILD | WS_CLIPSIBLINGS |
// WS_CLIPCHILDREN), both of a test class with no background brush and the
// default window procedure, both destroyed with the object. The game window is
// never shown: under Wine destroying a shown window waits about 2 s for the X
// server. So the host window's own WS_VISIBLE bit (shown()) tells whether the
// program showed or hid it.
inline bool shown(HWND window) {
    return (GetWindowLongPtrW(window, GWL_STYLE) & WS_VISIBLE) != 0;
}

struct TestWindows {
    HWND game = nullptr;
    HWND overlay = nullptr;
    TestWindows();
    ~TestWindows();
    TestWindows(const TestWindows&) = delete;
    TestWindows& operator=(const TestWindows&) = delete;
};

// The rectangles of a window's region in window coordinates; no region of
// its own gives {-1} as a marker, an empty region gives no rectangles.
std::vector<RECT> windowRegionRects(HWND window);

}  // namespace recording_browser
