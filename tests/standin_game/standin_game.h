// The stand-in game's process-wide record, shared by its window code and its
// command table. Everything runs on the one GUI thread.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>
#include <vector>

struct StandinOptions {
    std::wstring title = L"Standin Game";
    std::wstring className = L"StandinGame";
    int port = 0;
    bool hidden = false;
    bool still = false;  // the scene drawn without its animation timer
    int x = 100, y = 100, width = 640, height = 480;
    HWND owner = nullptr;
    bool childProcessOfBrowser = false;
};

// One WM_INPUTLANGCHANGEREQUEST as it reached a window of this process.
struct LangRequest {
    WPARAM wParam;
    LPARAM lParam;
    HWND window;
};

struct Standin {
    StandinOptions options;
    HWND gameWindow = nullptr;
    SOCKET socket = INVALID_SOCKET;
    std::vector<LangRequest> langRequests;
    std::vector<POINT> clicks;  // left-button presses on the game window, client coordinates
    DWORD freezeMilliseconds = 0;  // for AfterReply::freezeThread
};

extern Standin standin;

// Registers the window class (once) and creates a top-level overlapped window.
HWND createTopLevelWindow(const std::wstring& className, const std::wstring& title, const RECT& place, HWND owner,
                          bool visible);

// Starts another copy of this program with the given arguments; the copy is
// ended together with this process. Returns its process id, 0 on failure.
DWORD startCopy(const std::wstring& arguments);

// What a command asks to do once its reply has been sent.
// freezeThread stops the one thread, messages and all, for
// standin.freezeMilliseconds, as a game in a long load or a debugger does.
enum class AfterReply { nothing, destroyGameWindow, exitProcess, freezeThread };

// Carries out one control datagram and returns its JSON reply.
std::string runCommand(const std::string& text, AfterReply* after);
