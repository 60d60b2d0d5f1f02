#include "page_link.h"

#include "browser_objects.h"
#include "journal.h"
#include "message_pump.h"

#include <cstdlib>
#include <vector>

namespace standin {
namespace {

SOCKET pageSocket = INVALID_SOCKET;
sockaddr_in latestSender{};
bool haveSender = false;

bool startsWith(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

void sendTo(const sockaddr_in& address, const std::string& text) {
    sendto(pageSocket, text.data(), static_cast<int>(text.size()), 0, reinterpret_cast<const sockaddr*>(&address),
           sizeof address);
}

// Each call takes a page of stack; the call goes through a pointer the
// compiler cannot see through, so that the recursion is neither removed nor
// turned into a loop.
int useStack(int depth);
int (*volatile nextLevel)(int) = useStack;

int useStack(int depth) {
    volatile char page[4096];
    page[depth % 4096] = static_cast<char>(depth);
    return nextLevel(depth + 1) + page[depth % 4096];
}

// A write to a page that allows no access at all: a null pointer would not
// do, since Wine may have memory at address 0.
void writeWhereNothingMayBeWritten() {
    void* page = VirtualAlloc(nullptr, 4096, MEM_RESERVE | MEM_COMMIT, PAGE_NOACCESS);
    *static_cast<volatile int*>(page) = 1;
}

void crash(const std::string& how) {
    journal("page.crash " + how);
    if (how == "stack") {
        nextLevel(0);
    } else {
        writeWhereNothingMayBeWritten();
    }
}

std::string answerScale(const std::string& number) {
    char* end = nullptr;
    const double scale = std::strtod(number.c_str(), &end);
    if (number.empty() || end == nullptr || *end != '\0' || !(scale > 0.0)) {
        return "bad scale";
    }
    setRasterizationScale(scale);
    return "ok";
}

// One command in, one reply out; the socket code only moves datagrams.
std::string answerPageCommand(const std::string& command) {
    if (command == "hello") {
        return "ok";
    }
    if (startsWith(command, "hello ")) {
        return "ok " + command.substr(6);
    }
    if (startsWith(command, "post ")) {
        return deliverPageMessage(wide(command.substr(5)));
    }
    if (command == "post-fail") {
        return deliverFailingPageMessage();
    }
    if (startsWith(command, "scale ")) {
        return answerScale(command.substr(6));
    }
    if (command == "crash access" || command == "crash stack") {
        crash(command.substr(6));
    }
    return "unknown";
}

}  // namespace

void openPageLink(HWND window) {
    const std::wstring portText = environmentText(L"GRA_STANDIN_PAGE_PORT");
    if (portText.empty() || pageSocket != INVALID_SOCKET) {
        return;
    }
    const int port = _wtoi(portText.c_str());
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    pageSocket = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<u_short>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (pageSocket == INVALID_SOCKET ||
        bind(pageSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        WSAAsyncSelect(pageSocket, window, kPageSocketMessage, FD_READ) != 0) {
        journal("page.listen-failed " + std::to_string(port) + " " + std::to_string(WSAGetLastError()));
        closePageLink();
        return;
    }
    journal("page.listen " + std::to_string(port));
}

void onPageSocketEvent(int event) {
    if (event != FD_READ || pageSocket == INVALID_SOCKET) {
        return;
    }
    std::vector<char> buffer(65536);
    for (;;) {
        sockaddr_in sender{};
        int senderSize = sizeof sender;
        const int received = recvfrom(pageSocket, buffer.data(), static_cast<int>(buffer.size()), 0,
                                      reinterpret_cast<sockaddr*>(&sender), &senderSize);
        if (received < 0) {
            // A datagram of ours that met a closed port comes back as a
            // reset on the next read; it is no reason to stop reading.
            if (WSAGetLastError() == WSAECONNRESET) {
                continue;
            }
            return;
        }
        latestSender = sender;
        haveSender = true;
        const std::string reply = answerPageCommand(std::string(buffer.data(), static_cast<size_t>(received)));
        if (pageSocket == INVALID_SOCKET) {
            return;
        }
        sendTo(sender, reply);
    }
}

void sendPosted(const std::string& json) {
    if (pageSocket != INVALID_SOCKET && haveSender) {
        sendTo(latestSender, "posted " + json);
    }
}

void closePageLink() {
    if (pageSocket != INVALID_SOCKET) {
        closesocket(pageSocket);
        pageSocket = INVALID_SOCKET;
        WSACleanup();
    }
    haveSender = false;
}

}  // namespace standin
