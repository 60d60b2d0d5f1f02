// A stand-in for the WebView2 runtime's client library
// (EBWebView\x64\EmbeddedBrowserWebView.dll). Tests point
// WEBVIEW2_BROWSER_EXECUTABLE_FOLDER at the folder holding it; the program
// then loads it as it would load a fixed-version runtime. It shows no page:
// it records what the program does with the browser objects and lets a test
// play the page's part over UDP.
//
// Environment variables:
//   GRA_STANDIN_JOURNAL      file (Windows path) that receives the journal
//   GRA_STANDIN_PAGE_PORT    UDP port on 127.0.0.1 for playing the page
//                            (commands in page_link.h)
//   GRA_STANDIN_FAIL         environment      -> environment callback gets
//                                                0x80004005 and null
//                            environment-null -> S_OK and a null environment
//                            controller       -> controller callback gets
//                                                0x8007000e and null
//                            create           -> the exported function itself
//                                                fails with 0x8000ffff
//   GRA_STANDIN_SCALE        initial rasterization scale (default 1)
//   GRA_STANDIN_BROWSER_CMD  command line started when a web view is created,
//                            standing for the browser process: its pid is the
//                            one get_BrowserProcessId reports (else 77777); it
//                            is ended when the controller is closed or the
//                            library unloaded, and with the program (job)
//   GRA_STANDIN_NO_PID=1     get_BrowserProcessId fails with E_FAIL
//   GRA_STANDIN_DENY         comma-separated interface names that
//                            QueryInterface refuses, e.g.
//                            "ICoreWebView2_3,ICoreWebView2Controller2"
//
// Journal: UTF-8, one line per event, LF-terminated; CR and LF inside a text
// are written as \r and \n. Null strings appear as "(null)". The lines:
//   create checkRunningInstance=<0|1> runtimeType=<n> userDataFolder=<text>
//   options (none)                             null options object
//   options (no ICoreWebView2EnvironmentOptions 0x........)
//   options AdditionalBrowserArguments=<text>  (then TargetCompatibleBrowserVersion,
//   options TargetCompatibleBrowserVersion=<text>   Language, in this order;
//   options Language=<text>                         a failing getter gives
//   options AllowSingleSignOnUsingOSPrimaryAccount=<0|1>  "(failed 0x........)")
//   options qi-other <ok|no>                   answer to a newer, unknown IID
//   invoke environment-handler <hresult> <environment|null>
//   release environment-handler <count left>
//   environment.CreateCoreWebView2Controller parent=<16 upper-case hex digits>
//   invoke controller-handler <hresult> <controller|null>
//   release controller-handler <count left>
//   browser.start <pid> | browser.start-failed <error> | browser.stop <pid>
//   controller.put_IsVisible <n>, controller.put_Bounds <l> <t> <r> <b>,
//   controller.MoveFocus <reason>, controller.Close, controller.get_CoreWebView2,
//   controller.get_IsVisible, controller.get_Bounds,
//   controller2.put_DefaultBackgroundColor <A> <R> <G> <B>,
//   controller2.get_DefaultBackgroundColor,
//   controller3.get_RasterizationScale <scale>
//   webview.get_Settings, webview.Navigate <uri>, webview.Reload,
//   webview.PostWebMessageAsJson <json>, webview.add_WebMessageReceived token=<null|given>,
//   webview.remove_WebMessageReceived <token>, webview.get_BrowserProcessId <pid|failed>,
//   webview3.SetVirtualHostNameToFolderMapping <host> <folder> <kind>
//   settings.put_<Name> <n>, settings.get_<Name>
//   args.get_WebMessageAsJson
//   qi <object> <interface name or {IID}> <ok|no>   every QueryInterface other
//                            than IUnknown and the object's own interface
//   unexpected <object>.<method>   a slot the program should not call (E_NOTIMPL)
//   page.listen <port> | page.listen-failed <port> <error>
//   page.post <json>, page.done <json>        around the program's handlers
//   page.post-fail, page.done-fail            the same for a failing message
//   page.nohandler <json>, page.closed <json>, page.scale <scale>
//   page.crash <access|stack>                 right before the crash asked for
//   release webmessage-handler <count left>   when the web view goes away
//   destroy environment | destroy controller | destroy webview
//   pump.create-failed <error> | pump.post-failed <error>

#include "browser_objects.h"
#include "journal.h"
#include "message_pump.h"
#include "page_link.h"

#include <objbase.h>

#include <string>

namespace standin {
namespace {

// An interface identifier no runtime version uses: the program's options
// object must refuse it, as it must refuse the newer option interfaces.
constexpr GUID kOtherOptionsIid = {0x6a1e2c37, 0x0b5d, 0x4f3e, {0x9c, 0x41, 0x2d, 0x7f, 0x83, 0x15, 0xa0, 0x6e}};

using TextGetter = HRESULT (STDMETHODCALLTYPE ICoreWebView2EnvironmentOptions::*)(LPWSTR*);

void journalOptionText(ICoreWebView2EnvironmentOptions* options, const char* name, TextGetter getter) {
    LPWSTR value = nullptr;
    const HRESULT hr = (options->*getter)(&value);
    const std::string text = FAILED(hr) ? "(failed " + hresultText(hr) + ")" : utf8(value);
    journal(std::string("options ") + name + "=" + text);
    CoTaskMemFree(value);
}

void journalOtherInterface(IUnknown* options) {
    void* other = nullptr;
    const HRESULT hr = options->QueryInterface(kOtherOptionsIid, &other);
    journal(std::string("options qi-other ") + (SUCCEEDED(hr) ? "ok" : "no"));
    if (SUCCEEDED(hr) && other != nullptr) {
        static_cast<IUnknown*>(other)->Release();
    }
}

// The real runtime reads the options during the call; so does the stand-in.
void journalOptions(IUnknown* object) {
    if (object == nullptr) {
        journal("options (none)");
        return;
    }
    ICoreWebView2EnvironmentOptions* options = nullptr;
    const HRESULT hr = object->QueryInterface(IID_ICoreWebView2EnvironmentOptions, reinterpret_cast<void**>(&options));
    if (FAILED(hr) || options == nullptr) {
        journal("options (no ICoreWebView2EnvironmentOptions " + hresultText(hr) + ")");
        return;
    }
    journalOptionText(options, "AdditionalBrowserArguments", &ICoreWebView2EnvironmentOptions::get_AdditionalBrowserArguments);
    journalOptionText(options, "TargetCompatibleBrowserVersion",
                      &ICoreWebView2EnvironmentOptions::get_TargetCompatibleBrowserVersion);
    journalOptionText(options, "Language", &ICoreWebView2EnvironmentOptions::get_Language);
    BOOL allow = FALSE;
    const HRESULT allowResult = options->get_AllowSingleSignOnUsingOSPrimaryAccount(&allow);
    journal(std::string("options AllowSingleSignOnUsingOSPrimaryAccount=") +
            (FAILED(allowResult) ? "(failed " + hresultText(allowResult) + ")" : std::to_string(allow)));
    journalOtherInterface(options);
    options->Release();
}

// Completes the environment creation from the message loop.
void completeEnvironment(ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
    const std::wstring mode = failureMode();
    HRESULT code = S_OK;
    ICoreWebView2Environment* environment = nullptr;
    if (mode == L"environment") {
        code = E_FAIL;
    } else if (mode != L"environment-null") {
        environment = newEnvironment();
    }
    journal("invoke environment-handler " + hresultText(code) + (environment != nullptr ? " environment" : " null"));
    handler->Invoke(code, environment);
    journal("release environment-handler " + std::to_string(handler->Release()));
    if (environment != nullptr) {
        environment->Release();
    }
}

}  // namespace
}  // namespace standin

extern "C" HRESULT STDMETHODCALLTYPE CreateWebViewEnvironmentWithOptionsInternal(
    bool checkRunningInstance, int runtimeType, PCWSTR userDataFolder, IUnknown* environmentOptions,
    standin::ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
    using namespace standin;
    journal(std::string("create checkRunningInstance=") + (checkRunningInstance ? "1" : "0") +
            " runtimeType=" + std::to_string(runtimeType) + " userDataFolder=" + utf8(userDataFolder));
    journalOptions(environmentOptions);
    if (handler == nullptr) {
        return E_POINTER;
    }
    HWND window = pumpWindow();
    if (window == nullptr) {
        return E_FAIL;
    }
    // Listening first lets a test meet the stand-in even when creation fails.
    openPageLink(window);
    if (failureMode() == L"create") {
        return E_UNEXPECTED;
    }
    // Held until the callback has run, as the real runtime does.
    handler->AddRef();
    if (!runLater([handler] { completeEnvironment(handler); })) {
        handler->Release();
        return E_FAIL;
    }
    return S_OK;
}

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(instance);
    } else if (reason == DLL_PROCESS_DETACH) {
        standin::stopBrowserProcess(false);
        // At process exit (reserved set) the system tears everything down;
        // on FreeLibrary the window must go before its procedure does.
        if (reserved == nullptr) {
            standin::closePump();
        }
    }
    return TRUE;
}
