#include "peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

namespace {
sockaddr_in loopback(uint16_t port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(port);
    return a;
}
} // namespace

Peer::Peer(uint16_t port) {
    fd_ = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd_ < 0) throw std::runtime_error("socket failed");
    sockaddr_in a = loopback(port);
    socklen_t len = sizeof a;
    if (bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        close(fd_);
        fd_ = -1;
        return;
    }
    port_ = ntohs(a.sin_port);
}

Peer::~Peer() {
    if (fd_ >= 0) close(fd_);
}

std::optional<Datagram> Peer::receive(int timeoutMs) {
    pollfd p{fd_, POLLIN, 0};
    if (fd_ < 0 || poll(&p, 1, timeoutMs) <= 0) return std::nullopt;
    static char buffer[65536];
    sockaddr_in from{};
    socklen_t fromLen = sizeof from;
    ssize_t n = recvfrom(fd_, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &fromLen);
    if (n < 0) return std::nullopt;
    Datagram d;
    d.bytes.assign(buffer, static_cast<size_t>(n));
    d.fromPort = ntohs(from.sin_port);
    d.fromAddress = ntohl(from.sin_addr.s_addr);
    return d;
}

void Peer::sendTo(uint16_t port, const std::string& bytes) {
    sockaddr_in to = loopback(port);
    ssize_t n = sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    if (n != static_cast<ssize_t>(bytes.size())) throw std::runtime_error("peer send failed");
}

long long nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
