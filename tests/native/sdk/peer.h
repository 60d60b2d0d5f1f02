// A Linux UDP socket on 127.0.0.1 that plays the overlay program's side of
// the game link in the tests: it receives what a link sends and answers it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct Datagram {
    std::string bytes;
    uint16_t fromPort = 0;
    uint32_t fromAddress = 0; // host byte order
};

class Peer {
public:
    // Binds 127.0.0.1 on the given port; 0 picks an ephemeral one. A failed
    // bind leaves the peer closed (bound() is false).
    explicit Peer(uint16_t port = 0);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    bool bound() const { return fd_ >= 0; }
    uint16_t port() const { return port_; }
    // Waits up to timeoutMs for one datagram.
    std::optional<Datagram> receive(int timeoutMs = 2000);
    // Sends bytes as they stand to 127.0.0.1:port.
    void sendTo(uint16_t port, const std::string& bytes);

private:
    int fd_ = -1;
    uint16_t port_ = 0;
};

// Milliseconds on a monotonic clock.
long long nowMs();
