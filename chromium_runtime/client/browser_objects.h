// The browser objects the program holds: environment, controller (with its
// second and third interfaces), core web view (up to ICoreWebView2_3),
// settings and web message arguments. Each call is forwarded to the bridge,
// which carries it out in Chromium; what Chromium sends back (frames, page
// messages) arrives here from the program's message loop.
#pragma once

#include "page/webview2.h"

#include <string>

namespace chromium_runtime {

// Starts creating the environment: connects to the bridge, which starts the
// browser; the handler is invoked later from the message loop, with the
// environment or with the failure. Returns a failure only when the handler
// cannot be called at all.
HRESULT startEnvironment(const std::wstring& userDataFolder, const std::wstring& browserArguments, int runtimeType,
                         ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler);

// Unloading: closes the window and the connection.
void shutDownRuntime();

}  // namespace chromium_runtime
