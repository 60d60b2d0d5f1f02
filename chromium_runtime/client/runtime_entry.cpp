// The client library of the Chromium-backed WebView2 runtime for Wine
// (EBWebView\x64\EmbeddedBrowserWebView.dll). Pointing
// WEBVIEW2_BROWSER_EXECUTABLE_FOLDER at the folder holding it makes the
// program load it as it loads any fixed-version runtime. The browser itself
// runs on the Linux side, behind the bridge (chromium_runtime/bridge), whose
// loopback port the library reads from GRA_CHROMIUM_BRIDGE_PORT.
//
// Other environment variables:
//   GRA_CHROMIUM_SCALE  the web view's rasterization scale (default: the
//                       parent window's DPI / 96)

#include "browser_objects.h"

#include <objbase.h>

#include <string>

namespace {

std::wstring optionText(ICoreWebView2EnvironmentOptions* options) {
    LPWSTR value = nullptr;
    if (options == nullptr || FAILED(options->get_AdditionalBrowserArguments(&value)) || value == nullptr) {
        return std::wstring();
    }
    std::wstring text(value);
    CoTaskMemFree(value);
    return text;
}

// The options are read during the call, as the real runtime reads them.
std::wstring browserArguments(IUnknown* object) {
    if (object == nullptr) {
        return std::wstring();
    }
    ICoreWebView2EnvironmentOptions* options = nullptr;
    if (FAILED(object->QueryInterface(IID_ICoreWebView2EnvironmentOptions, reinterpret_cast<void**>(&options))) ||
        options == nullptr) {
        return std::wstring();
    }
    std::wstring text = optionText(options);
    options->Release();
    return text;
}

}  // namespace

extern "C" HRESULT STDMETHODCALLTYPE CreateWebViewEnvironmentWithOptionsInternal(
    bool checkRunningInstance, int runtimeType, PCWSTR userDataFolder, IUnknown* environmentOptions,
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
    (void)checkRunningInstance;
    return chromium_runtime::startEnvironment(userDataFolder != nullptr ? userDataFolder : L"",
                                              browserArguments(environmentOptions), runtimeType, handler);
}

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(instance);
    } else if (reason == DLL_PROCESS_DETACH && reserved == nullptr) {
        // FreeLibrary, not process exit: the windows must go before their procedures do.
        chromium_runtime::shutDownRuntime();
    }
    return TRUE;
}
