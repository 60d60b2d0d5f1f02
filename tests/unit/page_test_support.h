// Helpers for the page bridge's unit tests: a scratch folder, a stand-in web
// view that records what the program posts to the page, a game end of the
// game link that receives the program's datagrams, and a plain window that
// can stand for the host window.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>
#include <vector>

namespace page_test {

// A fresh folder in the temporary folder, removed with everything in it.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    std::wstring file(const std::wstring& name) const { return path + L"\\" + name; }
    std::wstring path;
};

void writeBytes(const std::wstring& path, const std::string& bytes);

// An object laid out like a COM object whose every virtual-table slot is a
// stand-in: slot 32 (PostWebMessageAsJson) records its text, every other slot
// records its number and fails. Only ever used through ICoreWebView2.
struct FakeWebView {
    FakeWebView();
    void* const* table;
    std::vector<std::wstring> posted;
    std::vector<int> otherSlots;
};

// Two UDP sockets on 127.0.0.1: one the program sends from (host.gameSocket
// is pointed at it by the caller) and one the game receives on.
class GameEnd {
public:
    GameEnd();
    ~GameEnd();
    GameEnd(const GameEnd&) = delete;
    GameEnd& operator=(const GameEnd&) = delete;
    SOCKET programSocket = INVALID_SOCKET;
    sockaddr_in gameAddress{};
    // The next datagram, or "(none)" when nothing comes within the time.
    std::string receive(int milliseconds = 2000);
    // Every datagram that arrives until none has come for a while.
    std::vector<std::string> receiveAll(int quietMilliseconds = 300);

private:
    SOCKET gameSocket = INVALID_SOCKET;
};

// A hidden top-level window of a system class, destroyed with the object.
class PlainWindow {
public:
    PlainWindow();
    ~PlainWindow();
    PlainWindow(const PlainWindow&) = delete;
    PlainWindow& operator=(const PlainWindow&) = delete;
    HWND handle = nullptr;
};

}  // namespace page_test
