#include "page/web_view.h"

#include <shlobj.h>
#include <shobjidl.h>

#include <cwchar>
#include <new>

#include "app/counters.h"
#include "app/host_state.h"
#include "app/log.h"
#include "app/text.h"
#include "host/fit.h"
#include "page/environment_options.h"
#include "page/page_messages.h"
#include "page/webview2_loader.h"

namespace {

const wchar_t* const browserArguments = L"--autoplay-policy=no-user-gesture-required";

// Under the cover the page's background matches the host window's class brush,
// RGB(11, 11, 24); afterwards it is see-through.
const COREWEBVIEW2_COLOR coverColour{255, 11, 11, 24};
const COREWEBVIEW2_COLOR transparentColour{0, 0, 0, 0};

// One reference-counted COM object per handler interface, whose Invoke hands
// its arguments to a free function and reports success whatever happened.
template <typename Interface, const IID& interfaceId, typename... Args>
class Callback final : public Interface {
public:
    using Body = HRESULT (*)(Args...);
    explicit Callback(Body body) : body(body) {}

    STDMETHOD(QueryInterface)(REFIID riid, void** object) override {
        if (!object) return E_POINTER;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, interfaceId)) {
            *object = static_cast<Interface*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHOD_(ULONG, AddRef)() override { return static_cast<ULONG>(InterlockedIncrement(&references)); }
    STDMETHOD_(ULONG, Release)() override {
        LONG left = InterlockedDecrement(&references);
        if (left == 0) delete this;
        return static_cast<ULONG>(left);
    }
    STDMETHOD(Invoke)(Args... args) override {
        // No exception of the program's own may unwind into the runtime.
        try {
            body(args...);
        } catch (const std::bad_alloc&) {
            logLine("WebView2 callback stopped - not enough memory to carry it out");
        } catch (...) {
            logLine("WebView2 callback stopped - an error while carrying it out");
        }
        return S_OK;
    }

private:
    ~Callback() = default;
    LONG references = 1;
    Body body;
};

using EnvironmentCreatedHandler =
    Callback<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler,
             IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler, HRESULT, ICoreWebView2Environment*>;
using ControllerCreatedHandler =
    Callback<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler,
             IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler, HRESULT, ICoreWebView2Controller*>;
using WebMessageReceivedHandler =
    Callback<ICoreWebView2WebMessageReceivedEventHandler, IID_ICoreWebView2WebMessageReceivedEventHandler,
             ICoreWebView2*, ICoreWebView2WebMessageReceivedEventArgs*>;

unsigned long hresultBits(HRESULT result) {
    return static_cast<unsigned long>(result);
}

// A second controller callback, should one ever come, replaces the first.
void keepController(ICoreWebView2Controller* controller) {
    if (controller == host.webController.get()) return;
    controller->AddRef();
    host.webController.reset();
    host.webController.ptr = controller;
}

void takeWebView() {
    host.webView.reset();
    ICoreWebView2* webView = nullptr;
    host.webController->get_CoreWebView2(&webView);
    host.webView.ptr = webView;

    UINT32 processId = 0;
    if (host.webView && SUCCEEDED(host.webView->get_BrowserProcessId(&processId))) {
        host.browserProcessId = processId;
        logLine("WebView2 browser process pid %u", processId);
    }
}

// Returns the controller's second interface, kept until the set-up is done.
ICoreWebView2Controller2* setBackgroundColour() {
    ICoreWebView2Controller2* controller2 = nullptr;
    if (FAILED(host.webController->QueryInterface(IID_ICoreWebView2Controller2,
                                                  reinterpret_cast<void**>(&controller2)))) {
        return nullptr;
    }
    if (controller2) controller2->put_DefaultBackgroundColor(host.coverUp ? coverColour : transparentColour);
    return controller2;
}

// No context menus, status bar or zooming on an overlay; the developer tools
// stay on on purpose. Everything else keeps the runtime's defaults.
ICoreWebView2Settings* applySettings() {
    ICoreWebView2Settings* settings = nullptr;
    if (!host.webView) return nullptr;
    host.webView->get_Settings(&settings);
    if (!settings) return nullptr;
    settings->put_AreDefaultContextMenusEnabled(FALSE);
    settings->put_IsStatusBarEnabled(FALSE);
    settings->put_IsZoomControlEnabled(FALSE);
    settings->put_AreDevToolsEnabled(TRUE);
    return settings;
}

// Without the mapping the navigation below still happens.
ICoreWebView2_3* mapPageFolder() {
    ICoreWebView2_3* webView3 = nullptr;
    if (!host.webView ||
        FAILED(host.webView->QueryInterface(IID_ICoreWebView2_3, reinterpret_cast<void**>(&webView3)))) {
        return nullptr;
    }
    if (webView3) {
        webView3->SetVirtualHostNameToFolderMapping(pageHostName, host.webFolder.c_str(),
                                                    COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND_ALLOW);
    }
    return webView3;
}

// The handler is never removed, so its token is taken in a local and
// discarded: no runtime has to accept a registration without one.
void listenForWebMessages() {
    if (!host.webView) return;
    ICoreWebView2WebMessageReceivedEventHandler* handler = newWebMessageReceivedHandler();
    EventRegistrationToken token{};
    host.webView->add_WebMessageReceived(handler, &token);
    handler->Release();
}

}  // namespace

ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* newEnvironmentCreatedHandler() {
    return new EnvironmentCreatedHandler(onEnvironmentCreated);
}

ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* newControllerCreatedHandler() {
    return new ControllerCreatedHandler(onControllerCreated);
}

ICoreWebView2WebMessageReceivedEventHandler* newWebMessageReceivedHandler() {
    return new WebMessageReceivedHandler(onWebMessageReceived);
}

std::wstring browserDataFolder() {
    if (!host.dataFolder.empty()) return host.dataFolder;
    std::wstring folder;
    PWSTR localAppData = nullptr;
    if (SUCCEEDED(SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, &localAppData)) && localAppData) {
        folder = std::wstring(localAppData) + L"\\GRA\\overlay";
    }
    CoTaskMemFree(localAppData);
    return folder;
}

namespace {

// "File not found" is how the loader and the runtime say that there is no
// runtime; the failure's own line does not tell a studio what to do.
void hintAtMissingRuntime(HRESULT result) {
    if (hresultBits(result) == 0x80070002ul)
        logLine("no WebView2 runtime was found - players need the WebView2 runtime installed");
}

}  // namespace

void startWebView() {
    // Before the environment exists, so that the runtime finds it set.
    HRESULT identity = SetCurrentProcessExplicitAppUserModelID(taskbarIdentity);
    if (FAILED(identity)) logLine("SetCurrentProcessExplicitAppUserModelID: 0x%08lx", hresultBits(identity));

    // An empty folder is passed as an empty string, not as null: the runtime
    // then picks a folder itself. The runtime creates the folder.
    std::wstring dataFolder = browserDataFolder();

    CoreWebView2EnvironmentOptions* options = new CoreWebView2EnvironmentOptions();
    options->put_AdditionalBrowserArguments(browserArguments);

    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler = newEnvironmentCreatedHandler();
    HRESULT result = CreateCoreWebView2EnvironmentWithOptions(nullptr, dataFolder.c_str(), options, handler);
    handler->Release();
    // No retry: without a runtime the host runs on without a page.
    if (FAILED(result)) {
        logLine("CreateCoreWebView2EnvironmentWithOptions: 0x%08lx", hresultBits(result));
        hintAtMissingRuntime(result);
    }
    options->Release();
}

HRESULT onEnvironmentCreated(HRESULT result, ICoreWebView2Environment* environment) {
    if (FAILED(result) || !environment) {
        logLine("WebView2 environment failed: 0x%08lx (is the runtime installed?)", hresultBits(result));
        hintAtMissingRuntime(result);
        return S_OK;
    }
    // The environment is needed for this one call only and is not kept.
    ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler = newControllerCreatedHandler();
    environment->CreateCoreWebView2Controller(host.hostWindow, handler);
    handler->Release();
    return S_OK;
}

HRESULT onControllerCreated(HRESULT result, ICoreWebView2Controller* controller) {
    if (FAILED(result) || !controller) {
        logLine("WebView2 controller failed: 0x%08lx", hresultBits(result));
        return S_OK;
    }
    keepController(controller);
    takeWebView();
    // The temporary references go when this function ends, however it ends.
    ComRef<ICoreWebView2Controller2> controller2;
    controller2.ptr = setBackgroundColour();
    ComRef<ICoreWebView2Settings> settings;
    settings.ptr = applySettings();
    ComRef<ICoreWebView2_3> webView3;
    webView3.ptr = mapPageFolder();
    listenForWebMessages();

    fit_to_game();
    // Visible from the start only when the mode is already active; the next
    // switch to passive or active shows it otherwise.
    host.webController->put_IsVisible(host.activeMode ? TRUE : FALSE);
    if (host.webView) host.webView->Navigate(pageAddress);
    logLine("WebView2 ready, page %s from %s", wideToUtf8(pageAddress).c_str(),
            wideToUtf8(host.webFolder).c_str());
    return S_OK;
}

HRESULT onWebMessageReceived(ICoreWebView2*, ICoreWebView2WebMessageReceivedEventArgs* args) {
    // Counted first, also when the text cannot be taken.
    count(pageToHost);
    LPWSTR json = nullptr;
    if (!args || FAILED(args->get_WebMessageAsJson(&json)) || !json) return S_OK;
    // Whatever document the web view shows may drive the host: neither the
    // sender nor the source address is looked at. A message the program
    // cannot handle (a huge one when memory runs short) is dropped, and the
    // runtime's text is freed all the same.
    size_t length = wcslen(json);
    try {
        dispatchPageMessage(std::wstring(json, length));
    } catch (const std::bad_alloc&) {
        logLine("page message of %llu characters dropped - not enough memory to handle it",
                static_cast<unsigned long long>(length));
    } catch (...) {
        logLine("page message of %llu characters dropped - an error while handling it",
                static_cast<unsigned long long>(length));
    }
    CoTaskMemFree(json);
    return S_OK;
}

void postToPage(const std::wstring& json) {
    if (!host.webView) return;
    count(hostToPage);
    // Its result is not looked at; nothing is queued or logged here.
    host.webView->PostWebMessageAsJson(json.c_str());
}
