#include "browser_objects.h"

#include "bridge_link.h"
#include "json_line.h"
#include "page_window.h"

#include <objbase.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace chromium_runtime {
namespace {

// ------------------------------------------------------------ text

std::string utf8(const wchar_t* text) {
    if (text == nullptr || *text == L'\0') {
        return std::string();
    }
    const int length = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<size_t>(length > 0 ? length : 1), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, &out[0], length, nullptr, nullptr);
    out.resize(out.size() - 1);
    return out;
}

std::wstring wide(const std::string& text) {
    if (text.empty()) {
        return std::wstring();
    }
    const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring out(static_cast<size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], length);
    return out;
}

// Strings the runtime hands out belong to the caller, who frees them with CoTaskMemFree.
HRESULT handOut(const std::wstring& text, LPWSTR* value) {
    if (value == nullptr) {
        return E_POINTER;
    }
    const size_t bytes = (text.size() + 1) * sizeof(wchar_t);
    *value = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
    if (*value == nullptr) {
        return E_OUTOFMEMORY;
    }
    std::memcpy(*value, text.c_str(), bytes);
    return S_OK;
}

// The common body of every getter: a null out-pointer is refused.
template <typename Value>
HRESULT giveBack(Value* out, const Value& value) {
    if (out == nullptr) {
        return E_POINTER;
    }
    *out = value;
    return S_OK;
}

// The Linux path of a Windows path, as Wine maps it; the path itself when not under Wine.
std::string linuxPath(const wchar_t* windowsPath) {
    using UnixNameFunction = char*(CDECL*)(const wchar_t*);
    auto toUnix = reinterpret_cast<UnixNameFunction>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
    if (toUnix == nullptr || windowsPath == nullptr) {
        return utf8(windowsPath);
    }
    char* unixName = toUnix(windowsPath);
    if (unixName == nullptr) {
        return utf8(windowsPath);
    }
    std::string path(unixName);
    HeapFree(GetProcessHeap(), 0, unixName);
    return path;
}

int numberField(const BridgeMessage& message, const char* name) {
    const auto found = message.find(name);
    return found == message.end() ? 0 : static_cast<int>(std::strtol(found->second.c_str(), nullptr, 10));
}

std::string textField(const BridgeMessage& message, const char* name) {
    const auto found = message.find(name);
    return found == message.end() ? std::string() : found->second;
}

// ------------------------------------------------------------ COM basics

template <typename Interface>
class RefCounted : public Interface {
public:
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&references_)); }
    ULONG STDMETHODCALLTYPE Release() override {
        const LONG left = InterlockedDecrement(&references_);
        if (left == 0) {
            delete this;
        }
        return static_cast<ULONG>(left);
    }

protected:
    RefCounted() = default;
    virtual ~RefCounted() = default;

    // Answers for IUnknown and the listed interfaces, all served by this object.
    HRESULT answer(REFIID iid, void** object, std::initializer_list<const IID*> served) {
        if (object == nullptr) {
            return E_POINTER;
        }
        bool found = iid == IID_IUnknown;
        for (const IID* candidate : served) {
            found = found || iid == *candidate;
        }
        if (!found) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        *object = static_cast<Interface*>(this);
        AddRef();
        return S_OK;
    }

private:
    LONG references_ = 1;
};

// Holds one reference and gives it back when it goes out of scope.
template <typename Interface>
class Held {
public:
    explicit Held(Interface* object) : object_(object) {}
    ~Held() {
        if (object_ != nullptr) {
            object_->Release();
        }
    }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    Interface* get() const { return object_; }
    Interface* operator->() const { return object_; }

private:
    Interface* object_;
};

// ------------------------------------------------------------ the one web view's state

class Controller;
class WebView;

struct Session {
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* environmentHandler = nullptr;  // held while pending
    ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* controllerHandler = nullptr;    // held while pending
    HWND controllerParent = nullptr;
    RECT pendingBounds{};
    double pendingScale = 1.0;
    UINT32 browserPid = 0;
    std::wstring browserVersion;
    Controller* controller = nullptr;  // not held: the program holds it
    WebView* webView = nullptr;        // not held either
};

Session session;

void onBridgeMessage(const BridgeMessage& message, const std::string& body);

// ------------------------------------------------------------ settings

class Settings : public RefCounted<ICoreWebView2Settings> {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        return answer(iid, object, {&IID_ICoreWebView2Settings});
    }

#define GRA_SETTING(Name, field)                                              \
    STDMETHODIMP get_##Name(BOOL* value) override { return giveBack(value, field); } \
    STDMETHODIMP put_##Name(BOOL value) override {                           \
        field = value;                                                        \
        sendToBridge(JsonLine().text("op", "setting").text("name", #Name).flag("value", value != FALSE).line()); \
        return S_OK;                                                          \
    }
    GRA_SETTING(IsScriptEnabled, script_)
    GRA_SETTING(IsWebMessageEnabled, webMessages_)
    GRA_SETTING(AreDefaultScriptDialogsEnabled, dialogs_)
    GRA_SETTING(IsStatusBarEnabled, statusBar_)
    GRA_SETTING(AreDevToolsEnabled, devTools_)
    GRA_SETTING(AreDefaultContextMenusEnabled, contextMenus_)
    GRA_SETTING(AreHostObjectsAllowed, hostObjects_)
    GRA_SETTING(IsZoomControlEnabled, zoomControl_)
    GRA_SETTING(IsBuiltInErrorPageEnabled, errorPage_)
#undef GRA_SETTING

private:
    // A new web view's settings: everything on, as with the real runtime.
    BOOL script_ = TRUE, webMessages_ = TRUE, dialogs_ = TRUE, statusBar_ = TRUE, devTools_ = TRUE,
         contextMenus_ = TRUE, hostObjects_ = TRUE, zoomControl_ = TRUE, errorPage_ = TRUE;
};

// ------------------------------------------------------------ web message arguments

class MessageArgs : public RefCounted<ICoreWebView2WebMessageReceivedEventArgs> {
public:
    MessageArgs(std::wstring json, std::wstring source) : json_(std::move(json)), source_(std::move(source)) {}
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        return answer(iid, object, {&IID_ICoreWebView2WebMessageReceivedEventArgs});
    }
    STDMETHODIMP get_Source(LPWSTR* value) override { return handOut(source_, value); }
    STDMETHODIMP get_WebMessageAsJson(LPWSTR* value) override { return handOut(json_, value); }
    // Only a message the page posted as a string has a string form.
    STDMETHODIMP TryGetWebMessageAsString(LPWSTR* value) override {
        std::string text;
        if (!readJsonString(utf8(json_.c_str()), text)) {
            if (value != nullptr) {
                *value = nullptr;
            }
            return E_INVALIDARG;
        }
        return handOut(wide(text), value);
    }

private:
    std::wstring json_;
    std::wstring source_;
};

// ------------------------------------------------------------ core web view

class WebView : public RefCounted<ICoreWebView2_3> {
public:
    WebView() { session.webView = this; }
    ~WebView() override {
        for (Handler& handler : handlers_) {
            handler.object->Release();
        }
        if (session.webView == this) {
            session.webView = nullptr;
        }
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        return answer(iid, object, {&IID_ICoreWebView2, &IID_ICoreWebView2_2, &IID_ICoreWebView2_3});
    }

    STDMETHODIMP get_Settings(ICoreWebView2Settings** settings) override {
        if (settings == nullptr) return E_POINTER;
        settings_->AddRef();
        *settings = settings_.get();
        return S_OK;
    }
    STDMETHODIMP get_Source(LPWSTR* uri) override { return handOut(source_, uri); }
    STDMETHODIMP Navigate(LPCWSTR uri) override {
        if (uri == nullptr) return E_INVALIDARG;
        source_ = uri;
        sendToBridge(JsonLine().text("op", "navigate").text("uri", utf8(uri)).line());
        return S_OK;
    }
    STDMETHODIMP Reload() override {
        sendToBridge(JsonLine().text("op", "reload").line());
        return S_OK;
    }
    STDMETHODIMP PostWebMessageAsJson(LPCWSTR json) override {
        if (json == nullptr) return E_INVALIDARG;
        sendToBridge(JsonLine().text("op", "post").text("json", utf8(json)).line());
        return S_OK;
    }
    STDMETHODIMP PostWebMessageAsString(LPCWSTR text) override {
        if (text == nullptr) return E_INVALIDARG;
        const std::string quoted = JsonLine().text("s", utf8(text)).line();  // {"s":"..."}\n
        sendToBridge(JsonLine().text("op", "post").text("json", quoted.substr(5, quoted.size() - 7)).line());
        return S_OK;
    }
    // The token may be left out; the handler then stays for the web view's life.
    STDMETHODIMP add_WebMessageReceived(ICoreWebView2WebMessageReceivedEventHandler* handler,
                                        EventRegistrationToken* token) override {
        if (handler == nullptr) return E_INVALIDARG;
        handler->AddRef();
        const __int64 value = ++lastToken_;
        handlers_.push_back({handler, value});
        if (token != nullptr) token->value = value;
        return S_OK;
    }
    STDMETHODIMP remove_WebMessageReceived(EventRegistrationToken token) override {
        for (size_t i = 0; i < handlers_.size(); ++i) {
            if (handlers_[i].token == token.value) {
                ICoreWebView2WebMessageReceivedEventHandler* handler = handlers_[i].object;
                handlers_.erase(handlers_.begin() + static_cast<std::ptrdiff_t>(i));
                handler->Release();
                break;
            }
        }
        return S_OK;
    }
    STDMETHODIMP get_BrowserProcessId(UINT32* value) override { return giveBack(value, session.browserPid); }
    STDMETHODIMP SetVirtualHostNameToFolderMapping(LPCWSTR hostName, LPCWSTR folderPath,
                                                   COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND accessKind) override {
        if (hostName == nullptr || folderPath == nullptr) return E_INVALIDARG;
        sendToBridge(JsonLine()
                         .text("op", "map")
                         .text("host", utf8(hostName))
                         .text("folder", linuxPath(folderPath))
                         .text("windowsFolder", utf8(folderPath))
                         .number("kind", accessKind)
                         .line());
        return S_OK;
    }
    STDMETHODIMP ClearVirtualHostNameToFolderMapping(LPCWSTR hostName) override {
        if (hostName == nullptr) return E_INVALIDARG;
        sendToBridge(JsonLine().text("op", "unmap").text("host", utf8(hostName)).line());
        return S_OK;
    }

    // A page message: every registered handler sees it, in registration order.
    void deliver(const std::wstring& json, const std::wstring& source) {
        std::vector<ICoreWebView2WebMessageReceivedEventHandler*> current;
        for (Handler& handler : handlers_) {
            handler.object->AddRef();
            current.push_back(handler.object);
        }
        Held<MessageArgs> args(new MessageArgs(json, source));
        AddRef();
        for (ICoreWebView2WebMessageReceivedEventHandler* handler : current) {
            handler->Invoke(this, args.get());
            handler->Release();
        }
        Release();
    }

    void noteSource(const std::wstring& source) { source_ = source; }

    // Slots the program has no use for.
    STDMETHODIMP NavigateToString(LPCWSTR) override { return E_NOTIMPL; }
    STDMETHODIMP add_NavigationStarting(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_NavigationStarting(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_ContentLoading(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_ContentLoading(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_SourceChanged(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_SourceChanged(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_HistoryChanged(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_HistoryChanged(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_NavigationCompleted(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_NavigationCompleted(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_FrameNavigationStarting(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_FrameNavigationStarting(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_FrameNavigationCompleted(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_FrameNavigationCompleted(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_ScriptDialogOpening(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_ScriptDialogOpening(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_PermissionRequested(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_PermissionRequested(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_ProcessFailed(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_ProcessFailed(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP AddScriptToExecuteOnDocumentCreated(LPCWSTR, IUnknown*) override { return E_NOTIMPL; }
    STDMETHODIMP RemoveScriptToExecuteOnDocumentCreated(LPCWSTR) override { return E_NOTIMPL; }
    STDMETHODIMP ExecuteScript(LPCWSTR, IUnknown*) override { return E_NOTIMPL; }
    STDMETHODIMP CapturePreview(int, IStream*, IUnknown*) override { return E_NOTIMPL; }
    STDMETHODIMP CallDevToolsProtocolMethod(LPCWSTR, LPCWSTR, IUnknown*) override { return E_NOTIMPL; }
    STDMETHODIMP get_CanGoBack(BOOL*) override { return E_NOTIMPL; }
    STDMETHODIMP get_CanGoForward(BOOL*) override { return E_NOTIMPL; }
    STDMETHODIMP GoBack() override { return E_NOTIMPL; }
    STDMETHODIMP GoForward() override { return E_NOTIMPL; }
    STDMETHODIMP GetDevToolsProtocolEventReceiver(LPCWSTR, IUnknown**) override { return E_NOTIMPL; }
    STDMETHODIMP Stop() override { return E_NOTIMPL; }
    STDMETHODIMP add_NewWindowRequested(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_NewWindowRequested(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_DocumentTitleChanged(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_DocumentTitleChanged(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP get_DocumentTitle(LPWSTR*) override { return E_NOTIMPL; }
    STDMETHODIMP AddHostObjectToScript(LPCWSTR, void*) override { return E_NOTIMPL; }
    STDMETHODIMP RemoveHostObjectFromScript(LPCWSTR) override { return E_NOTIMPL; }
    STDMETHODIMP OpenDevToolsWindow() override { return E_NOTIMPL; }
    STDMETHODIMP add_ContainsFullScreenElementChanged(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_ContainsFullScreenElementChanged(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP get_ContainsFullScreenElement(BOOL*) override { return E_NOTIMPL; }
    STDMETHODIMP add_WebResourceRequested(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_WebResourceRequested(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP AddWebResourceRequestedFilter(LPCWSTR, int) override { return E_NOTIMPL; }
    STDMETHODIMP RemoveWebResourceRequestedFilter(LPCWSTR, int) override { return E_NOTIMPL; }
    STDMETHODIMP add_WindowCloseRequested(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_WindowCloseRequested(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_WebResourceResponseReceived(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_WebResourceResponseReceived(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP NavigateWithWebResourceRequest(IUnknown*) override { return E_NOTIMPL; }
    STDMETHODIMP add_DOMContentLoaded(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_DOMContentLoaded(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP get_CookieManager(IUnknown**) override { return E_NOTIMPL; }
    STDMETHODIMP get_Environment(ICoreWebView2Environment**) override { return E_NOTIMPL; }
    STDMETHODIMP TrySuspend(IUnknown*) override { return E_NOTIMPL; }
    STDMETHODIMP Resume() override { return E_NOTIMPL; }
    STDMETHODIMP get_IsSuspended(BOOL*) override { return E_NOTIMPL; }

private:
    struct Handler {
        ICoreWebView2WebMessageReceivedEventHandler* object;  // one reference held
        __int64 token;
    };
    Held<Settings> settings_{new Settings()};
    std::vector<Handler> handlers_;
    __int64 lastToken_ = 0;
    std::wstring source_ = L"about:blank";
};

// ------------------------------------------------------------ controller

class Controller : public RefCounted<ICoreWebView2Controller3> {
public:
    Controller(HWND window, const RECT& bounds, double scale) : window_(window), bounds_(bounds), scale_(scale) {
        session.controller = this;
    }
    ~Controller() override {
        closeView();
        if (session.controller == this) {
            session.controller = nullptr;
        }
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        return answer(iid, object, {&IID_ICoreWebView2Controller, &IID_ICoreWebView2Controller2,
                                    &IID_ICoreWebView2Controller3});
    }

    STDMETHODIMP get_IsVisible(BOOL* value) override { return giveBack(value, visible_); }
    STDMETHODIMP put_IsVisible(BOOL value) override {
        visible_ = value != FALSE;
        if (window_ != nullptr) ShowWindow(window_, visible_ ? SW_SHOWNA : SW_HIDE);
        sendToBridge(JsonLine().text("op", "visible").flag("on", visible_ != FALSE).line());
        return S_OK;
    }
    STDMETHODIMP get_Bounds(RECT* value) override { return giveBack(value, bounds_); }
    STDMETHODIMP put_Bounds(RECT value) override {
        bounds_ = value;
        const int width = value.right > value.left ? value.right - value.left : 0;
        const int height = value.bottom > value.top ? value.bottom - value.top : 0;
        if (window_ != nullptr) {
            SetWindowPos(window_, nullptr, value.left, value.top, width, height, SWP_NOZORDER | SWP_NOACTIVATE);
        }
        sendToBridge(JsonLine().text("op", "bounds").number("width", width).number("height", height).line());
        return S_OK;
    }
    STDMETHODIMP get_ZoomFactor(double* value) override { return giveBack(value, zoom_); }
    STDMETHODIMP put_ZoomFactor(double value) override {
        zoom_ = value;
        return S_OK;
    }
    STDMETHODIMP SetBoundsAndZoomFactor(RECT bounds, double zoom) override {
        put_ZoomFactor(zoom);
        return put_Bounds(bounds);
    }
    STDMETHODIMP MoveFocus(COREWEBVIEW2_MOVE_FOCUS_REASON reason) override {
        if (window_ != nullptr) SetFocus(window_);
        sendToBridge(JsonLine().text("op", "focus").number("reason", reason).line());
        return S_OK;
    }
    STDMETHODIMP get_ParentWindow(HWND* value) override { return giveBack(value, window_ != nullptr ? GetParent(window_) : nullptr); }
    STDMETHODIMP put_ParentWindow(HWND parent) override {
        if (window_ == nullptr || parent == nullptr) return E_INVALIDARG;
        SetParent(window_, parent);
        return S_OK;
    }
    STDMETHODIMP NotifyParentWindowPositionChanged() override { return S_OK; }
    STDMETHODIMP Close() override {
        closeView();
        return S_OK;
    }
    STDMETHODIMP get_CoreWebView2(ICoreWebView2** value) override {
        if (value == nullptr) return E_POINTER;
        if (closed_) {
            *value = nullptr;
            return E_UNEXPECTED;
        }
        webView_->AddRef();
        *value = webView_.get();
        return S_OK;
    }
    STDMETHODIMP get_DefaultBackgroundColor(COREWEBVIEW2_COLOR* value) override { return giveBack(value, background_); }
    STDMETHODIMP put_DefaultBackgroundColor(COREWEBVIEW2_COLOR value) override {
        background_ = value;
        sendToBridge(JsonLine()
                         .text("op", "background")
                         .number("a", value.A)
                         .number("r", value.R)
                         .number("g", value.G)
                         .number("b", value.B)
                         .line());
        return S_OK;
    }
    STDMETHODIMP get_RasterizationScale(double* value) override { return giveBack(value, scale_); }
    STDMETHODIMP put_RasterizationScale(double value) override {
        if (!(value > 0.0)) return E_INVALIDARG;
        scale_ = value;
        sendToBridge(JsonLine().text("op", "scale").number("value", value).line());
        return S_OK;
    }
    STDMETHODIMP get_ShouldDetectMonitorScaleChanges(BOOL* value) override { return giveBack(value, detectScale_); }
    STDMETHODIMP put_ShouldDetectMonitorScaleChanges(BOOL value) override {
        detectScale_ = value;
        return S_OK;
    }
    STDMETHODIMP get_BoundsMode(int* value) override { return giveBack(value, boundsMode_); }
    STDMETHODIMP put_BoundsMode(int value) override {
        boundsMode_ = value;
        return S_OK;
    }

    // Slots the program has no use for.
    STDMETHODIMP add_ZoomFactorChanged(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_ZoomFactorChanged(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_MoveFocusRequested(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_MoveFocusRequested(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_GotFocus(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_GotFocus(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_LostFocus(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_LostFocus(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_AcceleratorKeyPressed(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_AcceleratorKeyPressed(EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_RasterizationScaleChanged(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_RasterizationScaleChanged(EventRegistrationToken) override { return E_NOTIMPL; }

private:
    void closeView() {
        if (closed_) {
            return;
        }
        closed_ = true;
        sendToBridge(JsonLine().text("op", "close").line());
        destroyPageWindow();
        window_ = nullptr;
    }

    HWND window_;
    RECT bounds_;
    double scale_;
    BOOL visible_ = TRUE;
    BOOL detectScale_ = TRUE;
    int boundsMode_ = 0;
    double zoom_ = 1.0;
    bool closed_ = false;
    // The real runtime's default: opaque white.
    COREWEBVIEW2_COLOR background_{255, 255, 255, 255};
    Held<WebView> webView_{new WebView()};
};

// ------------------------------------------------------------ environment

class Environment : public RefCounted<ICoreWebView2Environment> {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        return answer(iid, object, {&IID_ICoreWebView2Environment});
    }
    STDMETHODIMP CreateCoreWebView2Controller(HWND parent,
                                              ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) override;
    STDMETHODIMP get_BrowserVersionString(LPWSTR* value) override { return handOut(session.browserVersion, value); }
    STDMETHODIMP CreateWebResourceResponse(IStream*, int, LPCWSTR, LPCWSTR, IUnknown**) override { return E_NOTIMPL; }
    STDMETHODIMP add_NewBrowserVersionAvailable(IUnknown*, EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_NewBrowserVersionAvailable(EventRegistrationToken) override { return E_NOTIMPL; }
};

// The scale a new web view starts with: GRA_CHROMIUM_SCALE when set (a test
// or a preview picks one), else the parent window's DPI, as the real runtime
// follows the monitor.
double initialScale(HWND parent) {
    wchar_t text[32] = {};
    const DWORD length = GetEnvironmentVariableW(L"GRA_CHROMIUM_SCALE", text, 32);
    if (length > 0 && length < 32) {
        const double scale = std::wcstod(text, nullptr);
        if (scale > 0.0) {
            return scale;
        }
    }
    using DpiFunction = UINT(WINAPI*)(HWND);
    auto dpiForWindow = reinterpret_cast<DpiFunction>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"user32.dll"), "GetDpiForWindow")));
    const UINT dpi = dpiForWindow != nullptr ? dpiForWindow(parent) : 96;
    return dpi > 0 ? dpi / 96.0 : 1.0;
}

// Invokes a completion handler later, from the message loop, with a failure.
template <typename Handler>
void failLater(Handler* handler, HRESULT code) {
    handler->AddRef();
    if (!runLater([handler, code] {
            handler->Invoke(code, nullptr);
            handler->Release();
        })) {
        handler->Release();
    }
}

HRESULT Environment::CreateCoreWebView2Controller(HWND parent,
                                                  ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) {
    if (handler == nullptr) {
        return E_POINTER;
    }
    if (parent == nullptr || !IsWindow(parent)) {
        return E_INVALIDARG;
    }
    // One web view per environment: the bridge shows one page per browser.
    if (!bridgeConnected() || session.controllerHandler != nullptr || session.controller != nullptr) {
        failLater(handler, HRESULT_FROM_WIN32(ERROR_INVALID_STATE));
        return S_OK;
    }
    handler->AddRef();
    session.controllerHandler = handler;
    session.controllerParent = parent;
    GetClientRect(parent, &session.pendingBounds);
    session.pendingScale = initialScale(parent);
    sendToBridge(JsonLine()
                     .text("op", "controller")
                     .number("width", session.pendingBounds.right)
                     .number("height", session.pendingBounds.bottom)
                     .number("scale", session.pendingScale)
                     .flag("visible", true)
                     .line());
    return S_OK;
}

// ------------------------------------------------------------ what the bridge says

void completeEnvironment(const BridgeMessage& message) {
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler = session.environmentHandler;
    if (handler == nullptr) {
        return;
    }
    session.environmentHandler = nullptr;
    if (textField(message, "ok") != "true") {
        const HRESULT code = static_cast<HRESULT>(std::strtoul(textField(message, "hresult").c_str(), nullptr, 10));
        handler->Invoke(FAILED(code) ? code : E_FAIL, nullptr);
        handler->Release();
        return;
    }
    session.browserPid = static_cast<UINT32>(numberField(message, "pid"));
    session.browserVersion = wide(textField(message, "version"));
    Held<Environment> environment(new Environment());
    handler->Invoke(S_OK, environment.get());
    handler->Release();
}

void completeController(const BridgeMessage& message) {
    ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler = session.controllerHandler;
    if (handler == nullptr) {
        return;
    }
    session.controllerHandler = nullptr;
    HWND window = nullptr;
    if (textField(message, "ok") == "true" && IsWindow(session.controllerParent)) {
        window = createPageWindow(session.controllerParent, session.pendingBounds, true);
    }
    if (window == nullptr) {
        const HRESULT code = static_cast<HRESULT>(std::strtoul(textField(message, "hresult").c_str(), nullptr, 10));
        handler->Invoke(FAILED(code) ? code : E_FAIL, nullptr);
        handler->Release();
        return;
    }
    Held<Controller> controller(new Controller(window, session.pendingBounds, session.pendingScale));
    handler->Invoke(S_OK, controller.get());
    handler->Release();
}

void showFrame(const BridgeMessage& message, const std::string& pixels) {
    showFramePixels(numberField(message, "width"), numberField(message, "height"), numberField(message, "top"),
                    numberField(message, "rows"), pixels);
    sendToBridge(JsonLine().text("op", "painted").number("seq", numberField(message, "seq")).line());
}

// The bridge went away: whatever waits for it fails as a runtime whose
// browser died would; a running page simply stops changing.
void onBridgeClosed() {
    if (session.environmentHandler != nullptr) {
        BridgeMessage failed;
        failed["hresult"] = std::to_string(static_cast<unsigned long>(HRESULT_FROM_WIN32(ERROR_CONNECTION_ABORTED)));
        completeEnvironment(failed);
    }
    if (session.controllerHandler != nullptr) {
        BridgeMessage failed;
        failed["hresult"] = std::to_string(static_cast<unsigned long>(HRESULT_FROM_WIN32(ERROR_CONNECTION_ABORTED)));
        completeController(failed);
    }
}

void onBridgeMessage(const BridgeMessage& message, const std::string& body) {
    const std::string op = textField(message, "op");
    if (op == "frame") {
        showFrame(message, body);
    } else if (op == "message") {
        if (session.webView != nullptr) {
            session.webView->deliver(wide(textField(message, "json")), wide(textField(message, "source")));
        }
    } else if (op == "navigated") {
        if (session.webView != nullptr) session.webView->noteSource(wide(textField(message, "uri")));
    } else if (op == "environment") {
        completeEnvironment(message);
    } else if (op == "controller") {
        completeController(message);
    } else if (op == "bridge-closed") {
        onBridgeClosed();
    }
}

}  // namespace

HRESULT startEnvironment(const std::wstring& userDataFolder, const std::wstring& browserArguments, int runtimeType,
                         ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
    if (handler == nullptr) {
        return E_POINTER;
    }
    if (session.environmentHandler != nullptr || bridgeConnected()) {
        return HRESULT_FROM_WIN32(ERROR_INVALID_STATE);  // one environment per process
    }
    const std::string hello = JsonLine()
                                  .text("op", "environment")
                                  .text("userDataFolder", utf8(userDataFolder.c_str()))
                                  .text("arguments", utf8(browserArguments.c_str()))
                                  .number("runtimeType", runtimeType)
                                  .line();
    const int error = connectBridge(hello, onBridgeMessage);
    if (error != 0) {
        const HRESULT code = error == WSAEINVAL ? HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) : HRESULT_FROM_WIN32(error);
        failLater(handler, code);
        return S_OK;
    }
    handler->AddRef();
    session.environmentHandler = handler;
    return S_OK;
}

void shutDownRuntime() {
    destroyPageWindow();
    closeBridge();
}

}  // namespace chromium_runtime
