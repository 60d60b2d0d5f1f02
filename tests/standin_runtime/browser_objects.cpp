#include "browser_objects.h"

#include "journal.h"
#include "message_pump.h"
#include "page_link.h"

#include <objbase.h>

#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

namespace standin {
namespace {

// ---------------------------------------------------------------- helpers

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

std::string hwndText(HWND window) {
    char text[24];
    std::snprintf(text, sizeof text, "%016llX",
                  static_cast<unsigned long long>(reinterpret_cast<UINT_PTR>(window)));
    return text;
}

struct NamedInterface {
    const GUID* iid;
    const char* name;
};

const NamedInterface kInterfaceNames[] = {
    {&IID_IUnknown, "IUnknown"},
    {&IID_ICoreWebView2Environment, "ICoreWebView2Environment"},
    {&IID_ICoreWebView2Controller, "ICoreWebView2Controller"},
    {&IID_ICoreWebView2Controller2, "ICoreWebView2Controller2"},
    {&IID_ICoreWebView2Controller3, "ICoreWebView2Controller3"},
    {&IID_ICoreWebView2, "ICoreWebView2"},
    {&IID_ICoreWebView2_2, "ICoreWebView2_2"},
    {&IID_ICoreWebView2_3, "ICoreWebView2_3"},
    {&IID_ICoreWebView2Settings, "ICoreWebView2Settings"},
    {&IID_ICoreWebView2WebMessageReceivedEventArgs, "ICoreWebView2WebMessageReceivedEventArgs"},
};

std::string interfaceName(REFIID iid) {
    for (const NamedInterface& known : kInterfaceNames) {
        if (iid == *known.iid) {
            return known.name;
        }
    }
    wchar_t text[40] = {};
    StringFromGUID2(iid, text, 40);
    return utf8(text);
}

// GRA_STANDIN_DENY lists interface names (comma separated) that the objects
// refuse in QueryInterface, to try the program without them.
bool denied(const std::string& name) {
    const std::string list = "," + utf8(environmentText(L"GRA_STANDIN_DENY")) + ",";
    return list.find("," + name + ",") != std::string::npos;
}

// The common QueryInterface: IUnknown and the object's own interface always
// succeed silently; the numbered interfaces succeed unless denied; every
// question other than the first two is journaled as
// "qi <object> <interface> <ok|no>".
HRESULT answerQuery(IUnknown* self, const char* objectName, REFIID iid, void** object, const GUID& own,
                    std::initializer_list<const GUID*> numbered) {
    if (object == nullptr) {
        return E_POINTER;
    }
    bool found = iid == IID_IUnknown || iid == own;
    if (!found) {
        const std::string name = interfaceName(iid);
        for (const GUID* candidate : numbered) {
            found = found || (iid == *candidate && !denied(name));
        }
        journal(std::string("qi ") + objectName + " " + name + (found ? " ok" : " no"));
    }
    if (!found) {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    *object = self;
    self->AddRef();
    return S_OK;
}

// Reference counting shared by all objects; each deletes itself at zero.
template <typename Interface>
class ComObject : public Interface {
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
    ComObject() = default;
    virtual ~ComObject() = default;

private:
    LONG references_ = 1;
};

// --------------------------------------------------------- shared state

double initialScale() {
    const std::wstring text = environmentText(L"GRA_STANDIN_SCALE");
    const double scale = text.empty() ? 1.0 : _wtof(text.c_str());
    return scale > 0.0 ? scale : 1.0;
}

double& rasterizationScale() {
    static double scale = initialScale();
    return scale;
}

struct BrowserProcess {
    HANDLE process = nullptr;
    HANDLE job = nullptr;
    DWORD id = 0;
};
BrowserProcess browser;

constexpr UINT32 kMadeUpBrowserProcessId = 77777;

// The job ends the child with the program even when the program is killed.
void tieToProgram(HANDLE process) {
    browser.job = CreateJobObjectW(nullptr, nullptr);
    if (browser.job == nullptr) {
        return;
    }
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(browser.job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
    AssignProcessToJobObject(browser.job, process);
}

void startBrowserProcess() {
    std::wstring command = environmentText(L"GRA_STANDIN_BROWSER_CMD");
    if (command.empty() || browser.process != nullptr) {
        return;
    }
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, nullptr,
                        &startup, &started)) {
        journal("browser.start-failed " + std::to_string(GetLastError()));
        return;
    }
    tieToProgram(started.hProcess);
    ResumeThread(started.hThread);
    CloseHandle(started.hThread);
    browser.process = started.hProcess;
    browser.id = started.dwProcessId;
    journal("browser.start " + std::to_string(browser.id));
}

// ------------------------------------------------------------- settings

class Settings final : public ComObject<ICoreWebView2Settings> {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        return answerQuery(this, "settings", iid, object, IID_ICoreWebView2Settings, {});
    }

    HRESULT STDMETHODCALLTYPE get_IsScriptEnabled(BOOL* value) override { return get(kScript, value); }
    HRESULT STDMETHODCALLTYPE put_IsScriptEnabled(BOOL value) override { return put(kScript, value); }
    HRESULT STDMETHODCALLTYPE get_IsWebMessageEnabled(BOOL* value) override { return get(kWebMessage, value); }
    HRESULT STDMETHODCALLTYPE put_IsWebMessageEnabled(BOOL value) override { return put(kWebMessage, value); }
    HRESULT STDMETHODCALLTYPE get_AreDefaultScriptDialogsEnabled(BOOL* value) override {
        return get(kScriptDialogs, value);
    }
    HRESULT STDMETHODCALLTYPE put_AreDefaultScriptDialogsEnabled(BOOL value) override {
        return put(kScriptDialogs, value);
    }
    HRESULT STDMETHODCALLTYPE get_IsStatusBarEnabled(BOOL* value) override { return get(kStatusBar, value); }
    HRESULT STDMETHODCALLTYPE put_IsStatusBarEnabled(BOOL value) override { return put(kStatusBar, value); }
    HRESULT STDMETHODCALLTYPE get_AreDevToolsEnabled(BOOL* value) override { return get(kDevTools, value); }
    HRESULT STDMETHODCALLTYPE put_AreDevToolsEnabled(BOOL value) override { return put(kDevTools, value); }
    HRESULT STDMETHODCALLTYPE get_AreDefaultContextMenusEnabled(BOOL* value) override {
        return get(kContextMenus, value);
    }
    HRESULT STDMETHODCALLTYPE put_AreDefaultContextMenusEnabled(BOOL value) override {
        return put(kContextMenus, value);
    }
    HRESULT STDMETHODCALLTYPE get_AreHostObjectsAllowed(BOOL* value) override { return get(kHostObjects, value); }
    HRESULT STDMETHODCALLTYPE put_AreHostObjectsAllowed(BOOL value) override { return put(kHostObjects, value); }
    HRESULT STDMETHODCALLTYPE get_IsZoomControlEnabled(BOOL* value) override { return get(kZoomControl, value); }
    HRESULT STDMETHODCALLTYPE put_IsZoomControlEnabled(BOOL value) override { return put(kZoomControl, value); }
    HRESULT STDMETHODCALLTYPE get_IsBuiltInErrorPageEnabled(BOOL* value) override { return get(kErrorPage, value); }
    HRESULT STDMETHODCALLTYPE put_IsBuiltInErrorPageEnabled(BOOL value) override { return put(kErrorPage, value); }

private:
    enum Flag { kScript, kWebMessage, kScriptDialogs, kStatusBar, kDevTools, kContextMenus, kHostObjects,
                kZoomControl, kErrorPage, kFlagCount };

    static const char* name(Flag flag) {
        static const char* const names[kFlagCount] = {
            "IsScriptEnabled",     "IsWebMessageEnabled",           "AreDefaultScriptDialogsEnabled",
            "IsStatusBarEnabled",  "AreDevToolsEnabled",            "AreDefaultContextMenusEnabled",
            "AreHostObjectsAllowed", "IsZoomControlEnabled",        "IsBuiltInErrorPageEnabled"};
        return names[flag];
    }

    HRESULT get(Flag flag, BOOL* value) {
        journal(std::string("settings.get_") + name(flag));
        if (value == nullptr) {
            return E_POINTER;
        }
        *value = flags_[flag];
        return S_OK;
    }

    HRESULT put(Flag flag, BOOL value) {
        journal(std::string("settings.put_") + name(flag) + " " + std::to_string(value));
        flags_[flag] = value;
        return S_OK;
    }

    // Every setting starts enabled, as with the real runtime.
    BOOL flags_[kFlagCount] = {TRUE, TRUE, TRUE, TRUE, TRUE, TRUE, TRUE, TRUE, TRUE};
};

// ------------------------------------------------------ web message args

class WebMessageArgs final : public ComObject<ICoreWebView2WebMessageReceivedEventArgs> {
public:
    // fails: get_WebMessageAsJson answers E_FAIL and null.
    WebMessageArgs(std::wstring json, bool fails) : json_(std::move(json)), fails_(fails) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        return answerQuery(this, "args", iid, object, IID_ICoreWebView2WebMessageReceivedEventArgs, {});
    }

    HRESULT STDMETHODCALLTYPE get_Source(LPWSTR*) override { return unexpected("args.get_Source"); }

    HRESULT STDMETHODCALLTYPE get_WebMessageAsJson(LPWSTR* value) override {
        journal("args.get_WebMessageAsJson");
        if (value == nullptr) {
            return E_POINTER;
        }
        *value = fails_ ? nullptr : taskMemCopy(json_);
        if (fails_) {
            return E_FAIL;
        }
        return *value != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE TryGetWebMessageAsString(LPWSTR*) override {
        return unexpected("args.TryGetWebMessageAsString");
    }

private:
    std::wstring json_;
    bool fails_;
};

// -------------------------------------------------------------- web view

class WebView;
WebView* newestWebView = nullptr;

class WebView final : public ComObject<ICoreWebView2_3> {
public:
    WebView() { newestWebView = this; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        return answerQuery(this, "webview", iid, object, IID_ICoreWebView2, {&IID_ICoreWebView2_2, &IID_ICoreWebView2_3});
    }

    void markClosed() { closed_ = true; }

    // Calls every registered handler with fresh arguments; see
    // deliverPageMessage for the replies.
    std::string deliver(const std::wstring& json, bool fails) {
        const std::string what = fails ? "-fail" : " " + utf8(json);
        if (closed_) {
            journal("page.closed" + what);
            return "closed";
        }
        if (handlers_.empty()) {
            journal("page.nohandler" + what);
            return "nohandler";
        }
        journal("page.post" + what);
        AddRef();
        // A copy: a handler may register or remove handlers while it runs.
        const std::vector<Registration> handlers = handlers_;
        for (const Registration& registration : handlers) {
            registration.handler->AddRef();
            auto* args = new WebMessageArgs(json, fails);
            registration.handler->Invoke(this, args);
            args->Release();
            registration.handler->Release();
        }
        journal("page.done" + what);
        Release();
        return "done";
    }

    HRESULT STDMETHODCALLTYPE get_Settings(ICoreWebView2Settings** settings) override {
        journal("webview.get_Settings");
        if (settings == nullptr) {
            return E_POINTER;
        }
        settings_->AddRef();
        *settings = settings_;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Navigate(LPCWSTR uri) override {
        journal("webview.Navigate " + utf8(uri));
        return uri != nullptr ? S_OK : E_INVALIDARG;
    }

    HRESULT STDMETHODCALLTYPE Reload() override {
        journal("webview.Reload");
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE PostWebMessageAsJson(LPCWSTR json) override {
        journal("webview.PostWebMessageAsJson " + utf8(json));
        if (json == nullptr) {
            return E_INVALIDARG;
        }
        sendPosted(utf8(json));
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE add_WebMessageReceived(ICoreWebView2WebMessageReceivedEventHandler* handler,
                                                     EventRegistrationToken* token) override {
        journal(std::string("webview.add_WebMessageReceived token=") + (token != nullptr ? "given" : "null"));
        if (handler == nullptr) {
            return E_INVALIDARG;
        }
        handler->AddRef();
        handlers_.push_back({++lastToken_, handler});
        if (token != nullptr) {
            token->value = lastToken_;
        }
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE remove_WebMessageReceived(EventRegistrationToken token) override {
        journal("webview.remove_WebMessageReceived " + std::to_string(token.value));
        for (auto it = handlers_.begin(); it != handlers_.end(); ++it) {
            if (it->token == token.value) {
                ICoreWebView2WebMessageReceivedEventHandler* handler = it->handler;
                handlers_.erase(it);
                handler->Release();
                break;
            }
        }
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE get_BrowserProcessId(UINT32* value) override {
        if (environmentText(L"GRA_STANDIN_NO_PID") == L"1") {
            journal("webview.get_BrowserProcessId failed");
            return E_FAIL;
        }
        if (value == nullptr) {
            return E_POINTER;
        }
        *value = browser.process != nullptr ? browser.id : kMadeUpBrowserProcessId;
        journal("webview.get_BrowserProcessId " + std::to_string(*value));
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetVirtualHostNameToFolderMapping(
        LPCWSTR hostName, LPCWSTR folderPath, COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND accessKind) override {
        journal("webview3.SetVirtualHostNameToFolderMapping " + utf8(hostName) + " " + utf8(folderPath) + " " +
                std::to_string(static_cast<int>(accessKind)));
        return hostName != nullptr && folderPath != nullptr ? S_OK : E_INVALIDARG;
    }

    // The slots the program has no business calling.
    HRESULT STDMETHODCALLTYPE get_Source(LPWSTR*) override { return unexpected("webview.get_Source"); }
    HRESULT STDMETHODCALLTYPE NavigateToString(LPCWSTR) override { return unexpected("webview.NavigateToString"); }
    HRESULT STDMETHODCALLTYPE add_NavigationStarting(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_NavigationStarting");
    }
    HRESULT STDMETHODCALLTYPE remove_NavigationStarting(EventRegistrationToken) override {
        return unexpected("webview.remove_NavigationStarting");
    }
    HRESULT STDMETHODCALLTYPE add_ContentLoading(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_ContentLoading");
    }
    HRESULT STDMETHODCALLTYPE remove_ContentLoading(EventRegistrationToken) override {
        return unexpected("webview.remove_ContentLoading");
    }
    HRESULT STDMETHODCALLTYPE add_SourceChanged(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_SourceChanged");
    }
    HRESULT STDMETHODCALLTYPE remove_SourceChanged(EventRegistrationToken) override {
        return unexpected("webview.remove_SourceChanged");
    }
    HRESULT STDMETHODCALLTYPE add_HistoryChanged(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_HistoryChanged");
    }
    HRESULT STDMETHODCALLTYPE remove_HistoryChanged(EventRegistrationToken) override {
        return unexpected("webview.remove_HistoryChanged");
    }
    HRESULT STDMETHODCALLTYPE add_NavigationCompleted(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_NavigationCompleted");
    }
    HRESULT STDMETHODCALLTYPE remove_NavigationCompleted(EventRegistrationToken) override {
        return unexpected("webview.remove_NavigationCompleted");
    }
    HRESULT STDMETHODCALLTYPE add_FrameNavigationStarting(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_FrameNavigationStarting");
    }
    HRESULT STDMETHODCALLTYPE remove_FrameNavigationStarting(EventRegistrationToken) override {
        return unexpected("webview.remove_FrameNavigationStarting");
    }
    HRESULT STDMETHODCALLTYPE add_FrameNavigationCompleted(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_FrameNavigationCompleted");
    }
    HRESULT STDMETHODCALLTYPE remove_FrameNavigationCompleted(EventRegistrationToken) override {
        return unexpected("webview.remove_FrameNavigationCompleted");
    }
    HRESULT STDMETHODCALLTYPE add_ScriptDialogOpening(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_ScriptDialogOpening");
    }
    HRESULT STDMETHODCALLTYPE remove_ScriptDialogOpening(EventRegistrationToken) override {
        return unexpected("webview.remove_ScriptDialogOpening");
    }
    HRESULT STDMETHODCALLTYPE add_PermissionRequested(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_PermissionRequested");
    }
    HRESULT STDMETHODCALLTYPE remove_PermissionRequested(EventRegistrationToken) override {
        return unexpected("webview.remove_PermissionRequested");
    }
    HRESULT STDMETHODCALLTYPE add_ProcessFailed(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_ProcessFailed");
    }
    HRESULT STDMETHODCALLTYPE remove_ProcessFailed(EventRegistrationToken) override {
        return unexpected("webview.remove_ProcessFailed");
    }
    HRESULT STDMETHODCALLTYPE AddScriptToExecuteOnDocumentCreated(LPCWSTR, IUnknown*) override {
        return unexpected("webview.AddScriptToExecuteOnDocumentCreated");
    }
    HRESULT STDMETHODCALLTYPE RemoveScriptToExecuteOnDocumentCreated(LPCWSTR) override {
        return unexpected("webview.RemoveScriptToExecuteOnDocumentCreated");
    }
    HRESULT STDMETHODCALLTYPE ExecuteScript(LPCWSTR, IUnknown*) override {
        return unexpected("webview.ExecuteScript");
    }
    HRESULT STDMETHODCALLTYPE CapturePreview(int, IUnknown*, IUnknown*) override {
        return unexpected("webview.CapturePreview");
    }
    HRESULT STDMETHODCALLTYPE PostWebMessageAsString(LPCWSTR) override {
        return unexpected("webview.PostWebMessageAsString");
    }
    HRESULT STDMETHODCALLTYPE CallDevToolsProtocolMethod(LPCWSTR, LPCWSTR, IUnknown*) override {
        return unexpected("webview.CallDevToolsProtocolMethod");
    }
    HRESULT STDMETHODCALLTYPE get_CanGoBack(BOOL*) override { return unexpected("webview.get_CanGoBack"); }
    HRESULT STDMETHODCALLTYPE get_CanGoForward(BOOL*) override { return unexpected("webview.get_CanGoForward"); }
    HRESULT STDMETHODCALLTYPE GoBack() override { return unexpected("webview.GoBack"); }
    HRESULT STDMETHODCALLTYPE GoForward() override { return unexpected("webview.GoForward"); }
    HRESULT STDMETHODCALLTYPE GetDevToolsProtocolEventReceiver(LPCWSTR, IUnknown**) override {
        return unexpected("webview.GetDevToolsProtocolEventReceiver");
    }
    HRESULT STDMETHODCALLTYPE Stop() override { return unexpected("webview.Stop"); }
    HRESULT STDMETHODCALLTYPE add_NewWindowRequested(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_NewWindowRequested");
    }
    HRESULT STDMETHODCALLTYPE remove_NewWindowRequested(EventRegistrationToken) override {
        return unexpected("webview.remove_NewWindowRequested");
    }
    HRESULT STDMETHODCALLTYPE add_DocumentTitleChanged(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_DocumentTitleChanged");
    }
    HRESULT STDMETHODCALLTYPE remove_DocumentTitleChanged(EventRegistrationToken) override {
        return unexpected("webview.remove_DocumentTitleChanged");
    }
    HRESULT STDMETHODCALLTYPE get_DocumentTitle(LPWSTR*) override { return unexpected("webview.get_DocumentTitle"); }
    HRESULT STDMETHODCALLTYPE AddHostObjectToScript(LPCWSTR, void*) override {
        return unexpected("webview.AddHostObjectToScript");
    }
    HRESULT STDMETHODCALLTYPE RemoveHostObjectFromScript(LPCWSTR) override {
        return unexpected("webview.RemoveHostObjectFromScript");
    }
    HRESULT STDMETHODCALLTYPE OpenDevToolsWindow() override { return unexpected("webview.OpenDevToolsWindow"); }
    HRESULT STDMETHODCALLTYPE add_ContainsFullScreenElementChanged(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_ContainsFullScreenElementChanged");
    }
    HRESULT STDMETHODCALLTYPE remove_ContainsFullScreenElementChanged(EventRegistrationToken) override {
        return unexpected("webview.remove_ContainsFullScreenElementChanged");
    }
    HRESULT STDMETHODCALLTYPE get_ContainsFullScreenElement(BOOL*) override {
        return unexpected("webview.get_ContainsFullScreenElement");
    }
    HRESULT STDMETHODCALLTYPE add_WebResourceRequested(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_WebResourceRequested");
    }
    HRESULT STDMETHODCALLTYPE remove_WebResourceRequested(EventRegistrationToken) override {
        return unexpected("webview.remove_WebResourceRequested");
    }
    HRESULT STDMETHODCALLTYPE AddWebResourceRequestedFilter(LPCWSTR, int) override {
        return unexpected("webview.AddWebResourceRequestedFilter");
    }
    HRESULT STDMETHODCALLTYPE RemoveWebResourceRequestedFilter(LPCWSTR, int) override {
        return unexpected("webview.RemoveWebResourceRequestedFilter");
    }
    HRESULT STDMETHODCALLTYPE add_WindowCloseRequested(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview.add_WindowCloseRequested");
    }
    HRESULT STDMETHODCALLTYPE remove_WindowCloseRequested(EventRegistrationToken) override {
        return unexpected("webview.remove_WindowCloseRequested");
    }
    HRESULT STDMETHODCALLTYPE add_WebResourceResponseReceived(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview2.add_WebResourceResponseReceived");
    }
    HRESULT STDMETHODCALLTYPE remove_WebResourceResponseReceived(EventRegistrationToken) override {
        return unexpected("webview2.remove_WebResourceResponseReceived");
    }
    HRESULT STDMETHODCALLTYPE NavigateWithWebResourceRequest(IUnknown*) override {
        return unexpected("webview2.NavigateWithWebResourceRequest");
    }
    HRESULT STDMETHODCALLTYPE add_DOMContentLoaded(IUnknown*, EventRegistrationToken*) override {
        return unexpected("webview2.add_DOMContentLoaded");
    }
    HRESULT STDMETHODCALLTYPE remove_DOMContentLoaded(EventRegistrationToken) override {
        return unexpected("webview2.remove_DOMContentLoaded");
    }
    HRESULT STDMETHODCALLTYPE get_CookieManager(IUnknown**) override {
        return unexpected("webview2.get_CookieManager");
    }
    HRESULT STDMETHODCALLTYPE get_Environment(ICoreWebView2Environment**) override {
        return unexpected("webview2.get_Environment");
    }
    HRESULT STDMETHODCALLTYPE TrySuspend(IUnknown*) override { return unexpected("webview3.TrySuspend"); }
    HRESULT STDMETHODCALLTYPE Resume() override { return unexpected("webview3.Resume"); }
    HRESULT STDMETHODCALLTYPE get_IsSuspended(BOOL*) override { return unexpected("webview3.get_IsSuspended"); }
    HRESULT STDMETHODCALLTYPE ClearVirtualHostNameToFolderMapping(LPCWSTR) override {
        return unexpected("webview3.ClearVirtualHostNameToFolderMapping");
    }

private:
    ~WebView() override {
        for (const Registration& registration : handlers_) {
            journal("release webmessage-handler " + std::to_string(registration.handler->Release()));
        }
        settings_->Release();
        if (newestWebView == this) {
            newestWebView = nullptr;
        }
        journal("destroy webview");
    }

    struct Registration {
        __int64 token;
        ICoreWebView2WebMessageReceivedEventHandler* handler;
    };

    Settings* settings_ = new Settings;
    std::vector<Registration> handlers_;
    __int64 lastToken_ = 0;
    bool closed_ = false;
};

// ------------------------------------------------------------ controller

class Controller final : public ComObject<ICoreWebView2Controller3> {
public:
    Controller() { startBrowserProcess(); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        return answerQuery(this, "controller", iid, object, IID_ICoreWebView2Controller,
                           {&IID_ICoreWebView2Controller2, &IID_ICoreWebView2Controller3});
    }

    HRESULT STDMETHODCALLTYPE get_IsVisible(BOOL* visible) override {
        journal("controller.get_IsVisible");
        return copyOut(visible_, visible);
    }

    HRESULT STDMETHODCALLTYPE put_IsVisible(BOOL visible) override {
        journal("controller.put_IsVisible " + std::to_string(visible));
        visible_ = visible;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE get_Bounds(RECT* bounds) override {
        journal("controller.get_Bounds");
        return copyOut(bounds_, bounds);
    }

    HRESULT STDMETHODCALLTYPE put_Bounds(RECT bounds) override {
        journal("controller.put_Bounds " + std::to_string(bounds.left) + " " + std::to_string(bounds.top) + " " +
                std::to_string(bounds.right) + " " + std::to_string(bounds.bottom));
        bounds_ = bounds;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE MoveFocus(COREWEBVIEW2_MOVE_FOCUS_REASON reason) override {
        journal("controller.MoveFocus " + std::to_string(static_cast<int>(reason)));
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Close() override {
        journal("controller.Close");
        webView_->markClosed();
        stopBrowserProcess(true);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE get_CoreWebView2(ICoreWebView2** coreWebView2) override {
        journal("controller.get_CoreWebView2");
        if (coreWebView2 == nullptr) {
            return E_POINTER;
        }
        webView_->AddRef();
        *coreWebView2 = webView_;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE get_DefaultBackgroundColor(COREWEBVIEW2_COLOR* value) override {
        journal("controller2.get_DefaultBackgroundColor");
        return copyOut(background_, value);
    }

    HRESULT STDMETHODCALLTYPE put_DefaultBackgroundColor(COREWEBVIEW2_COLOR value) override {
        journal("controller2.put_DefaultBackgroundColor " + std::to_string(value.A) + " " + std::to_string(value.R) +
                " " + std::to_string(value.G) + " " + std::to_string(value.B));
        background_ = value;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE get_RasterizationScale(double* scale) override {
        journal("controller3.get_RasterizationScale " + number(rasterizationScale()));
        return copyOut(rasterizationScale(), scale);
    }

    // The slots the program has no business calling.
    HRESULT STDMETHODCALLTYPE get_ZoomFactor(double*) override { return unexpected("controller.get_ZoomFactor"); }
    HRESULT STDMETHODCALLTYPE put_ZoomFactor(double) override { return unexpected("controller.put_ZoomFactor"); }
    HRESULT STDMETHODCALLTYPE add_ZoomFactorChanged(IUnknown*, EventRegistrationToken*) override {
        return unexpected("controller.add_ZoomFactorChanged");
    }
    HRESULT STDMETHODCALLTYPE remove_ZoomFactorChanged(EventRegistrationToken) override {
        return unexpected("controller.remove_ZoomFactorChanged");
    }
    HRESULT STDMETHODCALLTYPE SetBoundsAndZoomFactor(RECT, double) override {
        return unexpected("controller.SetBoundsAndZoomFactor");
    }
    HRESULT STDMETHODCALLTYPE add_MoveFocusRequested(IUnknown*, EventRegistrationToken*) override {
        return unexpected("controller.add_MoveFocusRequested");
    }
    HRESULT STDMETHODCALLTYPE remove_MoveFocusRequested(EventRegistrationToken) override {
        return unexpected("controller.remove_MoveFocusRequested");
    }
    HRESULT STDMETHODCALLTYPE add_GotFocus(IUnknown*, EventRegistrationToken*) override {
        return unexpected("controller.add_GotFocus");
    }
    HRESULT STDMETHODCALLTYPE remove_GotFocus(EventRegistrationToken) override {
        return unexpected("controller.remove_GotFocus");
    }
    HRESULT STDMETHODCALLTYPE add_LostFocus(IUnknown*, EventRegistrationToken*) override {
        return unexpected("controller.add_LostFocus");
    }
    HRESULT STDMETHODCALLTYPE remove_LostFocus(EventRegistrationToken) override {
        return unexpected("controller.remove_LostFocus");
    }
    HRESULT STDMETHODCALLTYPE add_AcceleratorKeyPressed(IUnknown*, EventRegistrationToken*) override {
        return unexpected("controller.add_AcceleratorKeyPressed");
    }
    HRESULT STDMETHODCALLTYPE remove_AcceleratorKeyPressed(EventRegistrationToken) override {
        return unexpected("controller.remove_AcceleratorKeyPressed");
    }
    HRESULT STDMETHODCALLTYPE get_ParentWindow(HWND*) override { return unexpected("controller.get_ParentWindow"); }
    HRESULT STDMETHODCALLTYPE put_ParentWindow(HWND) override { return unexpected("controller.put_ParentWindow"); }
    HRESULT STDMETHODCALLTYPE NotifyParentWindowPositionChanged() override {
        return unexpected("controller.NotifyParentWindowPositionChanged");
    }
    HRESULT STDMETHODCALLTYPE put_RasterizationScale(double) override {
        return unexpected("controller3.put_RasterizationScale");
    }
    HRESULT STDMETHODCALLTYPE get_ShouldDetectMonitorScaleChanges(BOOL*) override {
        return unexpected("controller3.get_ShouldDetectMonitorScaleChanges");
    }
    HRESULT STDMETHODCALLTYPE put_ShouldDetectMonitorScaleChanges(BOOL) override {
        return unexpected("controller3.put_ShouldDetectMonitorScaleChanges");
    }
    HRESULT STDMETHODCALLTYPE add_RasterizationScaleChanged(IUnknown*, EventRegistrationToken*) override {
        return unexpected("controller3.add_RasterizationScaleChanged");
    }
    HRESULT STDMETHODCALLTYPE remove_RasterizationScaleChanged(EventRegistrationToken) override {
        return unexpected("controller3.remove_RasterizationScaleChanged");
    }
    HRESULT STDMETHODCALLTYPE get_BoundsMode(int*) override { return unexpected("controller3.get_BoundsMode"); }
    HRESULT STDMETHODCALLTYPE put_BoundsMode(int) override { return unexpected("controller3.put_BoundsMode"); }

private:
    ~Controller() override {
        webView_->Release();
        journal("destroy controller");
    }

    template <typename T>
    static HRESULT copyOut(const T& value, T* destination) {
        if (destination == nullptr) {
            return E_POINTER;
        }
        *destination = value;
        return S_OK;
    }

    WebView* webView_ = new WebView;
    BOOL visible_ = TRUE;
    RECT bounds_ = {0, 0, 0, 0};
    // The runtime's own default background is opaque white.
    COREWEBVIEW2_COLOR background_ = {255, 255, 255, 255};
};

// ----------------------------------------------------------- environment

// Completes CreateCoreWebView2Controller from the message loop.
void completeController(ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) {
    HRESULT code = S_OK;
    Controller* controller = nullptr;
    if (failureMode() == L"controller") {
        code = E_OUTOFMEMORY;
    } else {
        controller = new Controller;
    }
    journal("invoke controller-handler " + hresultText(code) + (controller != nullptr ? " controller" : " null"));
    handler->Invoke(code, controller);
    journal("release controller-handler " + std::to_string(handler->Release()));
    if (controller != nullptr) {
        controller->Release();
    }
}

class Environment final : public ComObject<ICoreWebView2Environment> {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        return answerQuery(this, "environment", iid, object, IID_ICoreWebView2Environment, {});
    }

    HRESULT STDMETHODCALLTYPE CreateCoreWebView2Controller(
        HWND parentWindow, ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) override {
        journal("environment.CreateCoreWebView2Controller parent=" + hwndText(parentWindow));
        if (handler == nullptr) {
            return E_POINTER;
        }
        // Held until the callback has run, as the real runtime does.
        handler->AddRef();
        if (!runLater([handler] { completeController(handler); })) {
            handler->Release();
            return E_FAIL;
        }
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE CreateWebResourceResponse(IUnknown*, int, LPCWSTR, LPCWSTR, IUnknown**) override {
        return unexpected("environment.CreateWebResourceResponse");
    }
    HRESULT STDMETHODCALLTYPE get_BrowserVersionString(LPWSTR*) override {
        return unexpected("environment.get_BrowserVersionString");
    }
    HRESULT STDMETHODCALLTYPE add_NewBrowserVersionAvailable(IUnknown*, EventRegistrationToken*) override {
        return unexpected("environment.add_NewBrowserVersionAvailable");
    }
    HRESULT STDMETHODCALLTYPE remove_NewBrowserVersionAvailable(EventRegistrationToken) override {
        return unexpected("environment.remove_NewBrowserVersionAvailable");
    }

private:
    ~Environment() override { journal("destroy environment"); }
};

}  // namespace

ICoreWebView2Environment* newEnvironment() {
    return new Environment;
}

std::string deliverPageMessage(const std::wstring& json) {
    if (newestWebView == nullptr) {
        journal("page.nohandler " + utf8(json));
        return "nohandler";
    }
    return newestWebView->deliver(json, false);
}

std::string deliverFailingPageMessage() {
    if (newestWebView == nullptr) {
        journal("page.nohandler-fail");
        return "nohandler";
    }
    return newestWebView->deliver(std::wstring(), true);
}

void setRasterizationScale(double scale) {
    journal("page.scale " + number(scale));
    rasterizationScale() = scale;
}

void stopBrowserProcess(bool journalIt) {
    if (browser.process == nullptr) {
        return;
    }
    TerminateProcess(browser.process, 0);
    if (journalIt) {
        // Gone for good before the program (and a test) go on.
        WaitForSingleObject(browser.process, 2000);
        journal("browser.stop " + std::to_string(browser.id));
    }
    CloseHandle(browser.process);
    if (browser.job != nullptr) {
        CloseHandle(browser.job);
    }
    browser = BrowserProcess{};
}

std::wstring failureMode() {
    return environmentText(L"GRA_STANDIN_FAIL");
}

}  // namespace standin
