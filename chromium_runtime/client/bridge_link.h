// The runtime library's one connection to the bridge on the Linux side: a
// loopback TCP socket whose port comes from GRA_CHROMIUM_BRIDGE_PORT, served
// from a message-only window on the program's GUI thread, so that everything
// the bridge says (frames, page messages, replies) arrives from the program's
// own message loop, as the real runtime's callbacks do.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <functional>
#include <map>
#include <string>

namespace chromium_runtime {

using BridgeMessage = std::map<std::string, std::string>;
// One message from the bridge; body holds its raw bytes ("bytes" field), if any.
using BridgeListener = std::function<void(const BridgeMessage& message, const std::string& body)>;

// Connects (blocking, loopback only) and sends the first line. Returns 0 on
// success, else the Winsock error (WSAECONNREFUSED when no bridge listens,
// WSAEINVAL when the port variable is missing or not a port number).
int connectBridge(const std::string& firstLine, BridgeListener listener);

bool bridgeConnected();

// Queues one line for the bridge; it leaves as soon as the socket takes it.
void sendToBridge(const std::string& line);

// Runs work later on the GUI thread, from the message loop.
bool runLater(std::function<void()> work);

// This library's module: the instance its window classes belong to.
HMODULE runtimeModule();

// Closes the socket and the window (when called on their thread).
void closeBridge();

}  // namespace chromium_runtime
