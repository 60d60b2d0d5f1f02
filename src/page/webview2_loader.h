// Finds the WebView2 runtime and asks it for a browser environment: the work
// that the SDK's separate loader library does, done by the program itself.
#pragma once

#include <functional>
#include <string>

#include "page/webview2.h"

// Same meaning as the SDK's function: browserExecutableFolder names a
// fixed-version runtime (null or empty: the installed one); the environment
// arrives later through environmentCreatedHandler. Returns the runtime's
// HRESULT, or HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) at once when no
// runtime, client library or entry point is found. As the SDK's loader does,
// it honours WEBVIEW2_BROWSER_EXECUTABLE_FOLDER, WEBVIEW2_USER_DATA_FOLDER and
// WEBVIEW2_ADDITIONAL_BROWSER_ARGUMENTS (appended to the options' own browser
// arguments, which are changed in the options object the caller hands in).
HRESULT CreateCoreWebView2EnvironmentWithOptions(
    PCWSTR browserExecutableFolder, PCWSTR userDataFolder, ICoreWebView2EnvironmentOptions* environmentOptions,
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* environmentCreatedHandler);

// An environment variable's value; empty when it is not set. The loader reads
// its WEBVIEW2_* settings with it, and the self-check the same way.
std::wstring environmentValue(const wchar_t* name);

// Runtime types as the runtime's entry point understands them.
enum RuntimeType { installedRuntime = 0, fixedVersionRuntime = 1 };

struct RuntimeFolder {
    std::wstring folder;  // empty: no runtime found
    RuntimeType type = installedRuntime;
};

// The folder decision: the WEBVIEW2_BROWSER_EXECUTABLE_FOLDER value first,
// then the caller's folder, then the installed runtime's folder as the
// registry reader reports it (called only when needed; empty means none).
RuntimeFolder chooseRuntimeFolder(const std::wstring& environmentFolder, PCWSTR argumentFolder,
                                  const std::function<std::wstring()>& readInstalledFolder);

// The browser arguments the runtime receives: the program's own, then those
// of WEBVIEW2_ADDITIONAL_BROWSER_ARGUMENTS, one space between.
std::wstring combinedBrowserArguments(const std::wstring& own, const std::wstring& fromEnvironment);

// The installed (stable channel) runtime's folder from the registry, machine
// first, then user; empty when neither has it.
std::wstring readInstalledRuntimeFolder();

// The runtime's client library inside a runtime folder, for this build's
// processor.
std::wstring runtimeClientLibrary(const std::wstring& runtimeFolder);
