#include "gamelink/datagrams.h"

#include "app/counters.h"
#include "app/host_state.h"
#include "gamelink/game_commands.h"
#include "host/game_warnings.h"

namespace {

// Room for the largest datagram and a terminating zero byte.
char receiveBuffer[65536];

// A flood of datagrams must not keep the message loop from its other work
// (the tick, the page, the exit): the socket notifies again while datagrams
// wait, so nothing is lost by returning after a batch.
constexpr int datagramsPerNotification = 256;

}  // namespace

bool readEnds(int received, int error) {
    // Windows reports a reset on the next read after a datagram went to a
    // port that has closed; that is no datagram, and more may wait.
    if (received == SOCKET_ERROR && error == WSAECONNRESET) return false;
    return received <= 0;
}

void noteDatagramSource(const sockaddr_in& source) {
    uint16_t port = ntohs(source.sin_port);
    if (port == preferredGamePort || !host.preferredPortSeen) {
        host.replyAddress = source;
        host.replyAddressKnown = true;
        if (port == preferredGamePort) host.preferredPortSeen = true;
    }
    host.gamePort = port;
}

namespace {

// Every read while more datagrams wait posts another notification: a batch
// read with notifications on would leave up to a batch of them queued, and a
// flood would fill the message queue with them, ahead of the page's messages
// and of WM_QUIT (which is only taken from a queue with nothing else posted).
// So they are off while a batch is read; switching them on again posts one
// at once if datagrams still wait.
void pauseNotifications() {
    if (host.hostWindow) WSAAsyncSelect(host.gameSocket, host.hostWindow, 0, 0);
}

void resumeNotifications() {
    if (host.hostWindow) WSAAsyncSelect(host.gameSocket, host.hostWindow, socketMessage, FD_READ);
}

void readBatch() {
    // A program that is quitting changes nothing more, not even for the rest
    // of a batch that held "bye".
    for (int read = 0; read < datagramsPerNotification && !host.quitting; ++read) {
        sockaddr_in source{};
        int sourceLength = sizeof source;
        int received = recvfrom(host.gameSocket, receiveBuffer, 65535, 0, reinterpret_cast<sockaddr*>(&source),
                                &sourceLength);
        if (readEnds(received, received == SOCKET_ERROR ? WSAGetLastError() : 0)) break;
        if (received <= 0) continue;
        count(gameToHost);
        receiveBuffer[received] = '\0';
        bool addressWasKnown = host.replyAddressKnown;
        noteDatagramSource(source);
        dispatchGameDatagram(std::string(receiveBuffer));
        // What went wrong before the game first spoke is told now.
        if (!addressWasKnown) tellGameTheWarnings();
    }
}

}  // namespace

void receiveGameDatagrams() {
    pauseNotifications();
    readBatch();
    // A program that is quitting reads nothing more: nothing may stand
    // between it and its WM_QUIT.
    if (!host.quitting) resumeNotifications();
}

void sendToGame(const std::string& text) {
    if (!host.replyAddressKnown || host.gameSocket == INVALID_SOCKET) return;
    // The text is zero-terminated: a zero character that the page escaped
    // into a "game" argument ends it, as it ends the log line.
    std::string datagram = "GRAO " + std::string(text.c_str());
    count(hostToGame);
    sendto(host.gameSocket, datagram.data(), static_cast<int>(datagram.size()), 0,
           reinterpret_cast<const sockaddr*>(&host.replyAddress), sizeof host.replyAddress);
}
