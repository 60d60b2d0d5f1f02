// The embedded browser: creates the WebView2 environment and controller,
// serves the page folder under a virtual host name, shows the page, and
// carries web messages both ways.
#pragma once

#include <string>

#include "page/webview2.h"

// The page's virtual host name. The .invalid top-level domain is reserved and
// can never resolve, so the page is never confused with a real site.
constexpr const wchar_t* pageHostName = L"gra-overlay.invalid";
constexpr const wchar_t* pageAddress = L"https://gra-overlay.invalid/index.html";

// The program's Application User Model ID. Without an explicit one, WebView2
// stamps a generated ID on the root window of the web view's parent: in child
// mode that is the game's own window, whose taskbar button would then group
// under the browser instead of the game.
constexpr const wchar_t* taskbarIdentity = L"GRA.Overlay";

// Starts the asynchronous creation once the host window exists and COM is
// initialised single-threaded on this thread; the rest arrives as callbacks.
void startWebView();

// The bodies of the three callback objects; each returns S_OK.
HRESULT onEnvironmentCreated(HRESULT result, ICoreWebView2Environment* environment);
HRESULT onControllerCreated(HRESULT result, ICoreWebView2Controller* controller);
HRESULT onWebMessageReceived(ICoreWebView2* sender, ICoreWebView2WebMessageReceivedEventArgs* args);

// The callback objects, each created holding one reference for the caller.
ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* newEnvironmentCreatedHandler();
ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* newControllerCreatedHandler();
ICoreWebView2WebMessageReceivedEventHandler* newWebMessageReceivedHandler();

// The browser's user data folder: the "--data" folder, else the local
// application data folder followed by "\GRA\overlay", else empty (the runtime
// then chooses).
std::wstring browserDataFolder();

// The one way to send a message to the page; does nothing before the web view
// exists. Nothing is queued here.
void postToPage(const std::wstring& json);
