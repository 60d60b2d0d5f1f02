// Helpers for the unit tests of the host window, the game window and fitting:
// real windows made in the test process (a "game" window and a host window
// run by hostWindowProc), a recording stand-in for the web view controller,
// and a guard that puts every piece of process-wide state that these tests
// touch back as it was.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "app/counters.h"
#include "app/host_state.h"
#include "keyboard/layout_keeper.h"
#include "page/webview2.h"

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

// A controller that records the calls the host makes on it. It answers only
// for IUnknown and ICoreWebView2Controller; every other call succeeds and
// does nothing.
class RecordingController : public ICoreWebView2Controller {
public:
    std::vector<RECT> bounds;
    std::vector<BOOL> visibility;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP get_IsVisible(BOOL*) override { return S_OK; }
    STDMETHODIMP put_IsVisible(BOOL visible) override {
        visibility.push_back(visible);
        return S_OK;
    }
    STDMETHODIMP get_Bounds(RECT*) override { return S_OK; }
    STDMETHODIMP put_Bounds(RECT rect) override {
        bounds.push_back(rect);
        return S_OK;
    }
    STDMETHODIMP get_ZoomFactor(double*) override { return S_OK; }
    STDMETHODIMP put_ZoomFactor(double) override { return S_OK; }
    STDMETHODIMP add_ZoomFactorChanged(IUnknown*, EventRegistrationToken*) override { return S_OK; }
    STDMETHODIMP remove_ZoomFactorChanged(EventRegistrationToken) override { return S_OK; }
    STDMETHODIMP SetBoundsAndZoomFactor(RECT, double) override { return S_OK; }
    STDMETHODIMP MoveFocus(COREWEBVIEW2_MOVE_FOCUS_REASON) override { return S_OK; }
    STDMETHODIMP add_MoveFocusRequested(IUnknown*, EventRegistrationToken*) override { return S_OK; }
    STDMETHODIMP remove_MoveFocusRequested(EventRegistrationToken) override { return S_OK; }
    STDMETHODIMP add_GotFocus(IUnknown*, EventRegistrationToken*) override { return S_OK; }
    STDMETHODIMP remove_GotFocus(EventRegistrationToken) override { return S_OK; }
    STDMETHODIMP add_LostFocus(IUnknown*, EventRegistrationToken*) override { return S_OK; }
    STDMETHODIMP remove_LostFocus(EventRegistrationToken) override { return S_OK; }
    STDMETHODIMP add_AcceleratorKeyPressed(IUnknown*, EventRegistrationToken*) override { return S_OK; }
    STDMETHODIMP remove_AcceleratorKeyPressed(EventRegistrationToken) override { return S_OK; }
    STDMETHODIMP get_ParentWindow(HWND*) override { return S_OK; }
    STDMETHODIMP put_ParentWindow(HWND) override { return S_OK; }
    STDMETHODIMP NotifyParentWindowPositionChanged() override { return S_OK; }
    STDMETHODIMP Close() override { return S_OK; }
    STDMETHODIMP get_CoreWebView2(ICoreWebView2**) override { return E_NOTIMPL; }
};

// Saves the host record's fields, the counters, fitting's last values and the
// layout keeper's record that these tests change, and restores them (and
// drops any controller stand-in) when it goes.
class SavedHostState {
public:
    SavedHostState();
    ~SavedHostState();
    SavedHostState(const SavedHostState&) = delete;
    SavedHostState& operator=(const SavedHostState&) = delete;

private:
    HWND gameWindow, hostWindow;
    bool childMode, activeMode, coverUp, closeReceived, mouseToGame, throughWanted;
    int32_t mode;
    std::wstring docFolder, gameTitle, gameClass;
    uint32_t startTicks, noGameWindowSince, gameProcessId, attachedInputThread, browserProcessId;
    std::string exitReason;
    sockaddr_in replyAddress;
    bool replyAddressKnown, preferredPortSeen;
    uint16_t gamePort;
    std::vector<PageRect> regionRects;
    bool gameAway, oldRuleAway, foregroundIsBrowser, keepLayoutValue;
    HWND lastForeground;
    uint32_t lastBrowserProcessId;
    ActivityCounters counters;
    RECT lastClient;
    POINT lastOrigin;
    LayoutKeeperState keeper;
};

}  // namespace host_windows
