// The game link's datagrams on 127.0.0.1: reading every waiting datagram,
// keeping the reply address (the game's preferred source port 47630 wins for
// good once seen), and the one way to send a datagram to the game.
#pragma once

#include <winsock2.h>

#include <cstdint>
#include <string>

// The message that tells the host window the link's socket can be read.
constexpr UINT socketMessage = WM_APP + 1;

// Reads what waits, at most a bounded batch, and nothing once the program is
// quitting; counts, notes the sender and dispatches each one. The socket's
// notifications are paused while it reads, and stay off once the program is
// quitting.
void receiveGameDatagrams();

// Whether a recvfrom result (and its error code) ends a read; a reset
// report does not, and is no datagram.
bool readEnds(int received, int error);

// Notes where a datagram came from (reply address, preferred port, gamePort).
void noteDatagramSource(const sockaddr_in& source);

// Sends "GRAO " + text (up to its first zero character) to the reply
// address; dropped (not counted) while no datagram has arrived yet.
void sendToGame(const std::string& text);
