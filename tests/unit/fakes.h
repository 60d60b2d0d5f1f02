// Stand-ins for what surrounds the program in the unit tests: the browser's
// controller and web view that record what the program asks of them, a UDP
// socket that plays the game, a guard that puts the host state back, and the
// fixture that puts them all in place for the mode and show tests. The tests
// of the web view's creation sequence keep their own journal of raw slot
// calls across several objects (web_view_test.cpp); everything else uses these.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "host_windows_support.h"
#include "import_patch.h"
#include "page/webview2.h"
#include "test_support.h"

namespace fakes {

// The web view controller. It answers QueryInterface for the controller
// interfaces it is told to offer; get_RasterizationScale gives `scale`.
// Every call lands in `calls` as a line of text, e.g. "put_IsVisible 1",
// "MoveFocus 0", "put_DefaultBackgroundColor 0 0 0 0"; a method the program
// has no business calling is noted as "unexpected <name>" and fails.
// `bounds` and `visibility` keep the values of put_Bounds and put_IsVisible
// for tests that compare rectangles. It lives on the test's stack: AddRef and
// Release count nothing.
class RecordingController : public ICoreWebView2Controller3 {
public:
    std::vector<std::string> calls;
    std::vector<RECT> bounds;
    std::vector<BOOL> visibility;
    bool offerController2 = true;
    bool offerController3 = true;
    double scale = 1.0;

    // The calls whose text starts with prefix.
    std::vector<std::string> callsStartingWith(const std::string& prefix) const;

    STDMETHOD(QueryInterface)(REFIID riid, void** object) override;
    STDMETHOD_(ULONG, AddRef)() override { return 2; }
    STDMETHOD_(ULONG, Release)() override { return 1; }

    STDMETHOD(put_IsVisible)(BOOL isVisible) override;
    STDMETHOD(put_Bounds)(RECT bounds) override;
    STDMETHOD(MoveFocus)(COREWEBVIEW2_MOVE_FOCUS_REASON reason) override;
    STDMETHOD(put_DefaultBackgroundColor)(COREWEBVIEW2_COLOR value) override;
    STDMETHOD(get_RasterizationScale)(double* scale) override;

    STDMETHOD(get_IsVisible)(BOOL*) override { return unexpected("get_IsVisible"); }
    STDMETHOD(get_Bounds)(RECT*) override { return unexpected("get_Bounds"); }
    STDMETHOD(get_ZoomFactor)(double*) override { return unexpected("get_ZoomFactor"); }
    STDMETHOD(put_ZoomFactor)(double) override { return unexpected("put_ZoomFactor"); }
    STDMETHOD(add_ZoomFactorChanged)(IUnknown*, EventRegistrationToken*) override {
        return unexpected("add_ZoomFactorChanged");
    }
    STDMETHOD(remove_ZoomFactorChanged)(EventRegistrationToken) override {
        return unexpected("remove_ZoomFactorChanged");
    }
    STDMETHOD(SetBoundsAndZoomFactor)(RECT, double) override { return unexpected("SetBoundsAndZoomFactor"); }
    STDMETHOD(add_MoveFocusRequested)(IUnknown*, EventRegistrationToken*) override {
        return unexpected("add_MoveFocusRequested");
    }
    STDMETHOD(remove_MoveFocusRequested)(EventRegistrationToken) override {
        return unexpected("remove_MoveFocusRequested");
    }
    STDMETHOD(add_GotFocus)(IUnknown*, EventRegistrationToken*) override { return unexpected("add_GotFocus"); }
    STDMETHOD(remove_GotFocus)(EventRegistrationToken) override { return unexpected("remove_GotFocus"); }
    STDMETHOD(add_LostFocus)(IUnknown*, EventRegistrationToken*) override { return unexpected("add_LostFocus"); }
    STDMETHOD(remove_LostFocus)(EventRegistrationToken) override { return unexpected("remove_LostFocus"); }
    STDMETHOD(add_AcceleratorKeyPressed)(IUnknown*, EventRegistrationToken*) override {
        return unexpected("add_AcceleratorKeyPressed");
    }
    STDMETHOD(remove_AcceleratorKeyPressed)(EventRegistrationToken) override {
        return unexpected("remove_AcceleratorKeyPressed");
    }
    STDMETHOD(get_ParentWindow)(HWND*) override { return unexpected("get_ParentWindow"); }
    STDMETHOD(put_ParentWindow)(HWND) override { return unexpected("put_ParentWindow"); }
    STDMETHOD(NotifyParentWindowPositionChanged)() override {
        return unexpected("NotifyParentWindowPositionChanged");
    }
    STDMETHOD(Close)() override { return unexpected("Close"); }
    STDMETHOD(get_CoreWebView2)(ICoreWebView2**) override { return unexpected("get_CoreWebView2"); }
    STDMETHOD(get_DefaultBackgroundColor)(COREWEBVIEW2_COLOR*) override {
        return unexpected("get_DefaultBackgroundColor");
    }
    STDMETHOD(put_RasterizationScale)(double) override { return unexpected("put_RasterizationScale"); }
    STDMETHOD(get_ShouldDetectMonitorScaleChanges)(BOOL*) override {
        return unexpected("get_ShouldDetectMonitorScaleChanges");
    }
    STDMETHOD(put_ShouldDetectMonitorScaleChanges)(BOOL) override {
        return unexpected("put_ShouldDetectMonitorScaleChanges");
    }
    STDMETHOD(add_RasterizationScaleChanged)(IUnknown*, EventRegistrationToken*) override {
        return unexpected("add_RasterizationScaleChanged");
    }
    STDMETHOD(remove_RasterizationScaleChanged)(EventRegistrationToken) override {
        return unexpected("remove_RasterizationScaleChanged");
    }
    STDMETHOD(get_BoundsMode)(int*) override { return unexpected("get_BoundsMode"); }
    STDMETHOD(put_BoundsMode)(int) override { return unexpected("put_BoundsMode"); }

private:
    HRESULT unexpected(const char* name);
};

// The core web view, of which only PostWebMessageAsJson is expected: it keeps
// the JSON texts in `posted`. The object is laid out like a COM object whose
// every other slot, the IUnknown ones included, notes its number in
// `unexpectedSlots` and fails. Use it through get().
struct RecordingWebView {
    void* const* table;  // first, where a COM object keeps its table
    std::vector<std::wstring> posted;
    std::vector<int> unexpectedSlots;

    RecordingWebView();
    ICoreWebView2* get() { return reinterpret_cast<ICoreWebView2*>(this); }
};

// The game's end of the link: a UDP socket on 127.0.0.1 that receives what
// the program sends, and a second one for the program to send from.
// install() points the host's socket and reply address at them.
class GameSocket {
public:
    GameSocket();
    ~GameSocket();
    GameSocket(const GameSocket&) = delete;
    GameSocket& operator=(const GameSocket&) = delete;
    void install();
    // The next datagram, or "(none)" when nothing comes within the time.
    std::string receive(int milliseconds = 2000);
    // Every datagram that arrives until none has come for quietMilliseconds.
    std::vector<std::string> receiveAll(int quietMilliseconds = 300);

private:
    SOCKET gameEnd = INVALID_SOCKET;
    SOCKET programEnd = INVALID_SOCKET;
    sockaddr_in gameAddress{};
};

// Copies every field of the host record, and the process-wide values beside
// it that tests change (keepLayout, the activity counters, fitting's last
// values, the layout keeper's record), and puts them back when it goes. The
// web view references are put back as raw pointers, so that a stand-in on the
// test's stack is never released. Declare it first, so that it goes last.
class HostStateGuard {
public:
    HostStateGuard();
    ~HostStateGuard();
    HostStateGuard(const HostStateGuard&) = delete;
    HostStateGuard& operator=(const HostStateGuard&) = delete;

private:
    template <typename T>
    void keep(T& field) {
        restorers.push_back([&field, value = field] { field = value; });
    }
    std::vector<std::function<void()>> restorers;
};

// Sets the host's mode, cover and page fields as start-up leaves them: hidden,
// inactive, cover up, the mouse the overlay's, no hit region, no thread
// attached, the page not ready and nothing kept for it.
void resetModeFields();

// The start of the mode, region and show tests: a game window with the host
// window in it as a child, the recording controller as the web view
// controller (no web view until a test hands it one), the game's socket
// installed, the mode fields as start-up leaves them, a scratch log, and the
// host state put back at the end.
class ChildModeHostTest : public ::testing::Test {
protected:
    void SetUp() override;

    HostStateGuard guard;  // first in, last out
    test_support::ScratchLog log;
    GameSocket game;
    RecordingController controller;
    RecordingWebView webView;
    host_windows::TestWindows windows;
    // The game window belongs to the test's own thread, which looks for
    // messages only now and then: on a busy machine the system would call it
    // hung after 5 s without a look, and the program would rightly leave the
    // focus and the window alone. Here the game always answers.
    ImportPatch gameAnswers{"user32.dll", "IsHungAppWindow", reinterpret_cast<void*>(&neverHung)};

private:
    static BOOL WINAPI neverHung(HWND) { return FALSE; }
};

}  // namespace fakes
