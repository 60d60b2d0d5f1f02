#include "page_test_support.h"

#include <array>
#include <utility>

#include "test_support.h"

namespace page_test {
namespace {

void removeTree(const std::wstring& folder) {
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &found);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            std::wstring name = found.cFileName;
            if (name == L"." || name == L"..") continue;
            std::wstring inner = folder + L"\\" + name;
            SetFileAttributesW(inner.c_str(), FILE_ATTRIBUTE_NORMAL);
            if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                removeTree(inner);
            } else {
                DeleteFileW(inner.c_str());
            }
        } while (FindNextFileW(search, &found));
        FindClose(search);
    }
    RemoveDirectoryW(folder.c_str());
}

// ---- the stand-in web view's slots ----

HRESULT STDMETHODCALLTYPE postWebMessageAsJson(FakeWebView* self, LPCWSTR json) {
    self->posted.push_back(json ? json : L"(null)");
    return S_OK;
}

template <int slot>
HRESULT STDMETHODCALLTYPE otherSlot(FakeWebView* self) {
    self->otherSlots.push_back(slot);
    return E_NOTIMPL;
}

constexpr int slotCount = 64;
constexpr int postSlot = 32;

template <size_t... slots>
std::array<void*, slotCount> makeTable(std::index_sequence<slots...>) {
    return {{(slots == postSlot ? reinterpret_cast<void*>(&postWebMessageAsJson)
                                : reinterpret_cast<void*>(&otherSlot<static_cast<int>(slots)>))...}};
}

const std::array<void*, slotCount> fakeTable = makeTable(std::make_index_sequence<slotCount>());

int waitForSocket(SOCKET socket, int milliseconds) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(socket, &readable);
    timeval wait{milliseconds / 1000, (milliseconds % 1000) * 1000};
    return select(0, &readable, nullptr, nullptr, &wait);
}

SOCKET boundLoopbackSocket(sockaddr_in& address) {
    SOCKET socket = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    address = sockaddr_in{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    int length = sizeof address;
    getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
    return socket;
}

}  // namespace

ScratchFolder::ScratchFolder() : path(test_support::scratchPath(L"page-folder")) {
    CreateDirectoryW(path.c_str(), nullptr);
}

ScratchFolder::~ScratchFolder() {
    removeTree(path);
}

void writeBytes(const std::wstring& path, const std::string& bytes) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return;
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(file);
}

FakeWebView::FakeWebView() : table(fakeTable.data()) {}

GameEnd::GameEnd() {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    sockaddr_in programAddress{};
    programSocket = boundLoopbackSocket(programAddress);
    gameSocket = boundLoopbackSocket(gameAddress);
}

GameEnd::~GameEnd() {
    closesocket(programSocket);
    closesocket(gameSocket);
    WSACleanup();
}

std::string GameEnd::receive(int milliseconds) {
    if (waitForSocket(gameSocket, milliseconds) <= 0) return "(none)";
    char buffer[70000];
    int got = recv(gameSocket, buffer, sizeof buffer, 0);
    if (got < 0) return "(error)";
    return std::string(buffer, static_cast<size_t>(got));
}

std::vector<std::string> GameEnd::receiveAll(int quietMilliseconds) {
    std::vector<std::string> all;
    for (;;) {
        std::string datagram = receive(quietMilliseconds);
        if (datagram == "(none)") return all;
        all.push_back(datagram);
    }
}

PlainWindow::PlainWindow() {
    handle = CreateWindowExW(0, L"STATIC", L"stand-in host", WS_POPUP, 0, 0, 320, 200, nullptr, nullptr,
                             GetModuleHandleW(nullptr), nullptr);
}

PlainWindow::~PlainWindow() {
    if (handle) DestroyWindow(handle);
}

}  // namespace page_test
