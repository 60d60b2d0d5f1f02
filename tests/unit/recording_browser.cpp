#include "recording_browser.h"

#include <ws2tcpip.h>

#include <array>
#include <utility>

namespace recording_browser {

// --- RecordingController ---

std::vector<std::string> RecordingController::callsStartingWith(const std::string& prefix) const {
    std::vector<std::string> found;
    for (const std::string& call : calls) {
        if (call.rfind(prefix, 0) == 0) found.push_back(call);
    }
    return found;
}

HRESULT RecordingController::unexpected(const char* name) {
    calls.push_back(std::string("unexpected ") + name);
    return E_NOTIMPL;
}

STDMETHODIMP RecordingController::QueryInterface(REFIID riid, void** object) {
    bool offered = IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ICoreWebView2Controller) ||
                   (offerController2 && IsEqualIID(riid, IID_ICoreWebView2Controller2)) ||
                   (offerController3 && IsEqualIID(riid, IID_ICoreWebView2Controller3));
    if (!offered) {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    *object = this;
    return S_OK;
}

STDMETHODIMP_(ULONG) RecordingController::AddRef() { return static_cast<ULONG>(++references); }
STDMETHODIMP_(ULONG) RecordingController::Release() { return static_cast<ULONG>(--references); }

STDMETHODIMP RecordingController::get_IsVisible(BOOL*) { return unexpected("get_IsVisible"); }

STDMETHODIMP RecordingController::put_IsVisible(BOOL isVisible) {
    calls.push_back("put_IsVisible " + std::to_string(isVisible));
    return S_OK;
}

STDMETHODIMP RecordingController::get_Bounds(RECT*) { return unexpected("get_Bounds"); }

STDMETHODIMP RecordingController::put_Bounds(RECT bounds) {
    calls.push_back("put_Bounds " + std::to_string(bounds.left) + " " + std::to_string(bounds.top) + " " +
                    std::to_string(bounds.right) + " " + std::to_string(bounds.bottom));
    return S_OK;
}

STDMETHODIMP RecordingController::get_ZoomFactor(double*) { return unexpected("get_ZoomFactor"); }
STDMETHODIMP RecordingController::put_ZoomFactor(double) { return unexpected("put_ZoomFactor"); }
STDMETHODIMP RecordingController::add_ZoomFactorChanged(IUnknown*, EventRegistrationToken*) {
    return unexpected("add_ZoomFactorChanged");
}
STDMETHODIMP RecordingController::remove_ZoomFactorChanged(EventRegistrationToken) {
    return unexpected("remove_ZoomFactorChanged");
}
STDMETHODIMP RecordingController::SetBoundsAndZoomFactor(RECT, double) { return unexpected("SetBoundsAndZoomFactor"); }

STDMETHODIMP RecordingController::MoveFocus(COREWEBVIEW2_MOVE_FOCUS_REASON reason) {
    calls.push_back("MoveFocus " + std::to_string(static_cast<int>(reason)));
    return S_OK;
}

STDMETHODIMP RecordingController::add_MoveFocusRequested(IUnknown*, EventRegistrationToken*) {
    return unexpected("add_MoveFocusRequested");
}
STDMETHODIMP RecordingController::remove_MoveFocusRequested(EventRegistrationToken) {
    return unexpected("remove_MoveFocusRequested");
}
STDMETHODIMP RecordingController::add_GotFocus(IUnknown*, EventRegistrationToken*) { return unexpected("add_GotFocus"); }
STDMETHODIMP RecordingController::remove_GotFocus(EventRegistrationToken) { return unexpected("remove_GotFocus"); }
STDMETHODIMP RecordingController::add_LostFocus(IUnknown*, EventRegistrationToken*) { return unexpected("add_LostFocus"); }
STDMETHODIMP RecordingController::remove_LostFocus(EventRegistrationToken) { return unexpected("remove_LostFocus"); }
STDMETHODIMP RecordingController::add_AcceleratorKeyPressed(IUnknown*, EventRegistrationToken*) {
    return unexpected("add_AcceleratorKeyPressed");
}
STDMETHODIMP RecordingController::remove_AcceleratorKeyPressed(EventRegistrationToken) {
    return unexpected("remove_AcceleratorKeyPressed");
}
STDMETHODIMP RecordingController::get_ParentWindow(HWND*) { return unexpected("get_ParentWindow"); }
STDMETHODIMP RecordingController::put_ParentWindow(HWND) { return unexpected("put_ParentWindow"); }
STDMETHODIMP RecordingController::NotifyParentWindowPositionChanged() {
    return unexpected("NotifyParentWindowPositionChanged");
}
STDMETHODIMP RecordingController::Close() { return unexpected("Close"); }
STDMETHODIMP RecordingController::get_CoreWebView2(ICoreWebView2**) { return unexpected("get_CoreWebView2"); }
STDMETHODIMP RecordingController::get_DefaultBackgroundColor(COREWEBVIEW2_COLOR*) {
    return unexpected("get_DefaultBackgroundColor");
}

STDMETHODIMP RecordingController::put_DefaultBackgroundColor(COREWEBVIEW2_COLOR value) {
    calls.push_back("put_DefaultBackgroundColor " + std::to_string(value.A) + " " + std::to_string(value.R) + " " +
                    std::to_string(value.G) + " " + std::to_string(value.B));
    return S_OK;
}

STDMETHODIMP RecordingController::get_RasterizationScale(double* value) {
    calls.push_back("get_RasterizationScale");
    *value = scale;
    return S_OK;
}

STDMETHODIMP RecordingController::put_RasterizationScale(double) { return unexpected("put_RasterizationScale"); }
STDMETHODIMP RecordingController::get_ShouldDetectMonitorScaleChanges(BOOL*) {
    return unexpected("get_ShouldDetectMonitorScaleChanges");
}
STDMETHODIMP RecordingController::put_ShouldDetectMonitorScaleChanges(BOOL) {
    return unexpected("put_ShouldDetectMonitorScaleChanges");
}
STDMETHODIMP RecordingController::add_RasterizationScaleChanged(IUnknown*, EventRegistrationToken*) {
    return unexpected("add_RasterizationScaleChanged");
}
STDMETHODIMP RecordingController::remove_RasterizationScaleChanged(EventRegistrationToken) {
    return unexpected("remove_RasterizationScaleChanged");
}
STDMETHODIMP RecordingController::get_BoundsMode(int*) { return unexpected("get_BoundsMode"); }
STDMETHODIMP RecordingController::put_BoundsMode(int) { return unexpected("put_BoundsMode"); }

// --- RecordingWebView ---

namespace {

// Slot numbers of the core web view's table (see page/webview2.h).
constexpr int slotCount = 61;
constexpr int reloadSlot = 31;
constexpr int postJsonSlot = 32;

HRESULT STDMETHODCALLTYPE webViewQueryInterface(RecordingWebView* self, REFIID riid, void** object) {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ICoreWebView2)) {
        *object = self;
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE webViewAddRef(RecordingWebView*) { return 2; }
ULONG STDMETHODCALLTYPE webViewRelease(RecordingWebView*) { return 1; }

HRESULT STDMETHODCALLTYPE webViewReload(RecordingWebView* self) {
    ++self->reloads;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE webViewPostJson(RecordingWebView* self, LPCWSTR json) {
    self->posted.push_back(json ? json : L"(null)");
    return S_OK;
}

template <int N>
HRESULT STDMETHODCALLTYPE webViewUnexpected(RecordingWebView* self) {
    self->unexpectedSlots.push_back(N);
    return E_NOTIMPL;
}

template <int... N>
std::array<void*, sizeof...(N)> unexpectedTable(std::integer_sequence<int, N...>) {
    return {reinterpret_cast<void*>(&webViewUnexpected<N>)...};
}

const std::array<void*, slotCount>& webViewTable() {
    static const std::array<void*, slotCount> table = [] {
        std::array<void*, slotCount> t = unexpectedTable(std::make_integer_sequence<int, slotCount>{});
        t[0] = reinterpret_cast<void*>(&webViewQueryInterface);
        t[1] = reinterpret_cast<void*>(&webViewAddRef);
        t[2] = reinterpret_cast<void*>(&webViewRelease);
        t[reloadSlot] = reinterpret_cast<void*>(&webViewReload);
        t[postJsonSlot] = reinterpret_cast<void*>(&webViewPostJson);
        return t;
    }();
    return table;
}

}  // namespace

RecordingWebView::RecordingWebView() : table(webViewTable().data()) {}

// --- GameSocket ---

GameSocket::GameSocket() {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    listener = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    sender = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    address.sin_family = AF_INET;
    address.sin_port = 0;
    inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
    bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    int length = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
}

GameSocket::~GameSocket() {
    closesocket(listener);
    closesocket(sender);
    WSACleanup();
}

void GameSocket::install() {
    host.gameSocket = sender;
    host.replyAddress = address;
    host.replyAddressKnown = true;
}

std::vector<std::string> GameSocket::receiveAll(int timeoutMs) {
    std::vector<std::string> got;
    DWORD timeout = static_cast<DWORD>(timeoutMs);
    setsockopt(listener, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&timeout), sizeof timeout);
    char buffer[2048];
    for (;;) {
        int length = recv(listener, buffer, sizeof buffer, 0);
        if (length <= 0) return got;
        got.emplace_back(buffer, static_cast<size_t>(length));
    }
}

// --- HostFieldsGuard ---

HostFieldsGuard::HostFieldsGuard()
    : gameWindow(host.gameWindow),
      hostWindow(host.hostWindow),
      childMode(host.childMode),
      activeMode(host.activeMode),
      coverUp(host.coverUp),
      pageReady(host.pageReady),
      throughWanted(host.throughWanted),
      mouseToGame(host.mouseToGame),
      replyAddressKnown(host.replyAddressKnown),
      mode(host.mode),
      attachedInputThread(host.attachedInputThread),
      startTicks(host.startTicks),
      regionRects(host.regionRects),
      pendingPad(host.pendingPad),
      pendingPageMessages(host.pendingPageMessages),
      webController(host.webController.ptr),
      webView(host.webView.ptr),
      gameSocket(host.gameSocket),
      replyAddress(host.replyAddress) {}

HostFieldsGuard::~HostFieldsGuard() {
    host.gameWindow = gameWindow;
    host.hostWindow = hostWindow;
    host.childMode = childMode;
    host.activeMode = activeMode;
    host.coverUp = coverUp;
    host.pageReady = pageReady;
    host.throughWanted = throughWanted;
    host.mouseToGame = mouseToGame;
    host.replyAddressKnown = replyAddressKnown;
    host.mode = mode;
    host.attachedInputThread = attachedInputThread;
    host.startTicks = startTicks;
    host.regionRects = regionRects;
    host.pendingPad = pendingPad;
    host.pendingPageMessages = pendingPageMessages;
    host.webController.ptr = webController;
    host.webView.ptr = webView;
    host.gameSocket = gameSocket;
    host.replyAddress = replyAddress;
}

// --- windows ---

namespace {

const wchar_t* testWindowClass() {
    static const wchar_t* name = [] {
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = DefWindowProcW;
        windowClass.hInstance = GetModuleHandleW(nullptr);
        windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
        windowClass.lpszClassName = L"GraUnitTestWindow";
        RegisterClassW(&windowClass);
        return L"GraUnitTestWindow";
    }();
    return name;
}

}  // namespace

TestWindows::TestWindows() {
    RECT outer{0, 0, 400, 300};
    AdjustWindowRectEx(&outer, WS_OVERLAPPEDWINDOW, FALSE, 0);
    game = CreateWindowExW(0, testWindowClass(), L"unit test game", WS_OVERLAPPEDWINDOW, 40, 40,
                           outer.right - outer.left, outer.bottom - outer.top, nullptr, nullptr,
                           GetModuleHandleW(nullptr), nullptr);
    overlay = CreateWindowExW(0, testWindowClass(), L"unit test overlay", WS_POPUP | WS_CLIPCHILDREN, 0, 0, 100, 100,
                              nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
    SetParent(overlay, game);
    SetWindowLongPtrW(overlay, GWL_STYLE, WS_CHILD | WS_CLIPSIBLINGS | WS_CLIPCHILDREN);
}

TestWindows::~TestWindows() {
    DestroyWindow(overlay);
    DestroyWindow(game);
}

// --- regions ---

std::vector<RECT> windowRegionRects(HWND window) {
    HRGN region = CreateRectRgn(0, 0, 0, 0);
    std::vector<RECT> rects;
    if (GetWindowRgn(window, region) == ERROR) {
        DeleteObject(region);
        return {RECT{-1, -1, -1, -1}};
    }
    DWORD size = GetRegionData(region, 0, nullptr);
    std::vector<char> storage(size);
    RGNDATA* data = reinterpret_cast<RGNDATA*>(storage.data());
    if (size != 0 && GetRegionData(region, size, data) != 0) {
        const RECT* first = reinterpret_cast<const RECT*>(data->Buffer);
        rects.assign(first, first + data->rdh.nCount);
    }
    DeleteObject(region);
    return rects;
}

}  // namespace recording_browser
