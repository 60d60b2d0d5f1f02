// The stand-in's browser objects: environment, controller (answering
// ICoreWebView2Controller, 2 and 3), core web view (ICoreWebView2, _2, _3),
// settings and web-message arguments, and the "browser process".
#pragma once

#include "standin_interfaces.h"

#include <string>

namespace standin {

// A new environment object holding one reference for the caller.
ICoreWebView2Environment* newEnvironment();

// Hands a page message to every WebMessageReceived handler of the newest web
// view; returns the reply for the test: "done", "nohandler" or "closed".
std::string deliverPageMessage(const std::wstring& json);
// The same with arguments whose get_WebMessageAsJson fails.
std::string deliverFailingPageMessage();

// The value get_RasterizationScale reports from now on.
void setRasterizationScale(double scale);

// Ends the child started from GRA_STANDIN_BROWSER_CMD, if it runs. Journals
// the end unless the library is being unloaded.
void stopBrowserProcess(bool journalIt);

// The fault chosen with GRA_STANDIN_FAIL ("environment", "controller",
// "environment-null", "create"), empty for none.
std::wstring failureMode();

}  // namespace standin
