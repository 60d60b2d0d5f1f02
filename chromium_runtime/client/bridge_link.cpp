#include "bridge_link.h"

#include "json_line.h"

#include <ws2tcpip.h>

#include <cstdlib>
#include <memory>

namespace chromium_runtime {
namespace {

constexpr UINT kRunLaterMessage = WM_APP + 1;
constexpr UINT kSocketMessage = WM_APP + 2;
const wchar_t kPumpClass[] = L"GraChromiumRuntimePump";

struct Link {
    HWND pump = nullptr;
    SOCKET socket = INVALID_SOCKET;
    BridgeListener listener;
    std::string incoming;
    std::string outgoing;
    BridgeMessage waitingForBody;  // a message whose bytes have not all arrived
    size_t bodyBytes = 0;
    bool delivering = false;  // a listener runs; data read meanwhile waits for it to return
    bool winsockStarted = false;
};

Link link;

void flushOutgoing() {
    while (!link.outgoing.empty() && link.socket != INVALID_SOCKET) {
        const int chunk = link.outgoing.size() > 65536 ? 65536 : static_cast<int>(link.outgoing.size());
        const int sent = send(link.socket, link.outgoing.data(), chunk, 0);
        if (sent <= 0) {
            return;  // FD_WRITE says when the socket takes more
        }
        link.outgoing.erase(0, static_cast<size_t>(sent));
    }
}

// Hands every complete message in the buffer to the listener. A listener may
// pump messages (the program's handlers do); data that arrives meanwhile is
// only appended, and the outer call delivers it in order.
void deliverIncoming() {
    if (link.delivering) {
        return;
    }
    link.delivering = true;
    size_t at = 0;
    for (;;) {
        if (!link.waitingForBody.empty()) {
            if (link.incoming.size() - at < link.bodyBytes) {
                break;
            }
            const std::string body = link.incoming.substr(at, link.bodyBytes);
            at += link.bodyBytes;
            const BridgeMessage message = std::move(link.waitingForBody);
            link.waitingForBody.clear();
            link.listener(message, body);
            continue;
        }
        const size_t end = link.incoming.find('\n', at);
        if (end == std::string::npos) {
            break;
        }
        BridgeMessage message = readJsonLine(link.incoming.substr(at, end - at));
        at = end + 1;
        const auto bytes = message.find("bytes");
        const size_t count = bytes == message.end() ? 0 : std::strtoul(bytes->second.c_str(), nullptr, 10);
        if (count > 0) {
            link.waitingForBody = std::move(message);
            link.bodyBytes = count;
        } else if (!message.empty()) {
            link.listener(message, std::string());
        }
    }
    link.incoming.erase(0, at);
    link.delivering = false;
}

void readSocket() {
    char chunk[65536];
    for (;;) {
        const int received = recv(link.socket, chunk, sizeof chunk, 0);
        if (received <= 0) {
            break;
        }
        link.incoming.append(chunk, static_cast<size_t>(received));
    }
    deliverIncoming();
}

void onSocketClosed() {
    if (link.socket != INVALID_SOCKET) {
        closesocket(link.socket);
        link.socket = INVALID_SOCKET;
    }
    link.outgoing.clear();
    BridgeMessage closed;
    closed["op"] = "bridge-closed";
    link.listener(closed, std::string());
}

LRESULT CALLBACK pumpProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == kRunLaterMessage) {
        std::unique_ptr<std::function<void()>> work(reinterpret_cast<std::function<void()>*>(lParam));
        (*work)();
        return 0;
    }
    if (message == kSocketMessage) {
        const int event = WSAGETSELECTEVENT(lParam);
        if (event == FD_READ) readSocket();
        if (event == FD_WRITE) flushOutgoing();
        if (event == FD_CLOSE) {
            readSocket();
            onSocketClosed();
        }
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

HWND pumpWindow() {
    if (link.pump == nullptr) {
        WNDCLASSEXW windowClass{};
        windowClass.cbSize = sizeof windowClass;
        windowClass.lpfnWndProc = pumpProcedure;
        windowClass.hInstance = runtimeModule();
        windowClass.lpszClassName = kPumpClass;
        RegisterClassExW(&windowClass);
        link.pump = CreateWindowExW(0, kPumpClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, runtimeModule(), nullptr);
    }
    return link.pump;
}

int bridgePort() {
    wchar_t text[16] = {};
    const DWORD length = GetEnvironmentVariableW(L"GRA_CHROMIUM_BRIDGE_PORT", text, 16);
    if (length == 0 || length >= 16) {
        return 0;
    }
    const long port = std::wcstol(text, nullptr, 10);
    return port > 0 && port < 65536 ? static_cast<int>(port) : 0;
}

}  // namespace

int connectBridge(const std::string& firstLine, BridgeListener listener) {
    const int port = bridgePort();
    if (port == 0) {
        return WSAEINVAL;
    }
    if (!link.winsockStarted) {
        WSADATA data;
        if (WSAStartup(MAKEWORD(2, 2), &data) != 0) {
            return WSASYSNOTREADY;
        }
        link.winsockStarted = true;
    }
    if (pumpWindow() == nullptr) {
        return static_cast<int>(GetLastError());
    }
    SOCKET candidate = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (candidate == INVALID_SOCKET) {
        return WSAGetLastError();
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<u_short>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(candidate, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        const int error = WSAGetLastError();
        closesocket(candidate);
        return error;
    }
    BOOL noDelay = TRUE;
    setsockopt(candidate, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&noDelay), sizeof noDelay);
    link.socket = candidate;
    link.listener = std::move(listener);
    WSAAsyncSelect(link.socket, link.pump, kSocketMessage, FD_READ | FD_WRITE | FD_CLOSE);
    sendToBridge(firstLine);
    return 0;
}

HMODULE runtimeModule() {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&runtimeModule), &module);
    return module;
}

bool bridgeConnected() { return link.socket != INVALID_SOCKET; }

void sendToBridge(const std::string& line) {
    if (link.socket == INVALID_SOCKET) {
        return;
    }
    link.outgoing += line;
    flushOutgoing();
}

bool runLater(std::function<void()> work) {
    if (pumpWindow() == nullptr) {
        return false;
    }
    auto* queued = new std::function<void()>(std::move(work));
    if (!PostMessageW(link.pump, kRunLaterMessage, 0, reinterpret_cast<LPARAM>(queued))) {
        delete queued;
        return false;
    }
    return true;
}

void closeBridge() {
    if (link.socket != INVALID_SOCKET) {
        closesocket(link.socket);
        link.socket = INVALID_SOCKET;
    }
    if (link.pump != nullptr && GetWindowThreadProcessId(link.pump, nullptr) == GetCurrentThreadId()) {
        DestroyWindow(link.pump);
        link.pump = nullptr;
        UnregisterClassW(kPumpClass, runtimeModule());
    }
}

}  // namespace chromium_runtime
