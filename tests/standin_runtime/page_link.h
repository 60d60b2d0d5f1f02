// "Playing the page": a UDP socket on 127.0.0.1 (port from
// GRA_STANDIN_PAGE_PORT) served on the pump window with WSAAsyncSelect, so a
// test can make the page post messages while everything still runs on the
// program's GUI thread. Datagram commands and their replies:
//   hello [tag]     -> "ok" or "ok <tag>"
//   post <json>     -> "done" after the program's handlers returned,
//                      "nohandler" when none is registered, "closed" after
//                      the controller was closed
//   post-fail       -> the same, with arguments whose get_WebMessageAsJson
//                      fails (E_FAIL, null text)
//   scale <number>  -> "ok": the rasterization scale reported from now on;
//                      "bad scale" when the number cannot be read
//   crash access    -> no reply: the program's process crashes right here, in
//                      this callback on its GUI thread, with an access
//                      violation (a write to a page that allows no access)
//   crash stack     -> no reply: the same with a stack overflow
//   anything else   -> "unknown"
// Every PostWebMessageAsJson of the program is sent as "posted <json>" to
// the address that sent the latest datagram.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>

namespace standin {

// Binds the socket when GRA_STANDIN_PAGE_PORT is set (once; later calls do
// nothing) and has its events sent to the window.
void openPageLink(HWND window);

// Reads and answers every datagram waiting; called by the pump window.
void onPageSocketEvent(int event);

// Sends "posted <json>" to the latest sender, if any.
void sendPosted(const std::string& json);

void closePageLink();

}  // namespace standin
