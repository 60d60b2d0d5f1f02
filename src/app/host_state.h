// The one process-wide record of the host's state. Every subsystem reads and
// writes its fields directly, on the GUI thread only; nothing here locks.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

struct ICoreWebView2Controller;
struct ICoreWebView2;

// One counted COM reference that the record owns until process end. On
// destruction the pointer is taken out of the record before it is released.
template <typename T>
struct ComRef {
    T* ptr = nullptr;
    ComRef() = default;
    ComRef(const ComRef&) = delete;
    ComRef& operator=(const ComRef&) = delete;
    ~ComRef() { reset(); }
    void reset() {
        T* old = ptr;
        ptr = nullptr;
        if (old) old->Release();
    }
    T* get() const { return ptr; }
    explicit operator bool() const { return ptr != nullptr; }
    T* operator->() const { return ptr; }
};

struct PageRect {
    int32_t x = 0;
    int32_t y = 0;
    int32_t width = 0;
    int32_t height = 0;
};

// What the program has found that keeps the overlay from working, and what it
// has told about it (host/game_warnings.h).
struct GameWarnings {
    uint32_t tokenCheckedFor = 0;        // the game process whose token was compared last
    bool gameElevated = false;           // it runs elevated and this program does not
    bool exclusiveFullscreen = false;    // the state told last; windowed at start
    bool fullscreenAsked = false;        // the system has been asked at least once
    uint32_t fullscreenAskedAt = 0;      // tick count of the last question
    bool fullscreenQueryFailed = false;  // a failing question has been logged
};

enum Mode : int32_t { modeHidden = 0, modePassive = 1, modeActive = 2 };

// Fields in their declared order: the destructor releases them in reverse, so
// the web view reference goes before the controller reference, and both go
// after the lists and strings declared behind them.
struct HostState {
    HostState();
    ~HostState();
    HostState(const HostState&) = delete;
    HostState& operator=(const HostState&) = delete;

    HWND gameWindow = nullptr;
    HWND hostWindow = nullptr;
    bool childMode = true;
    bool activeMode = false;
    int32_t mode = modeHidden;
    std::wstring webFolder;
    std::wstring docFolder;
    std::wstring programFolder;
    std::wstring logPath;
    int32_t linkPort = 47632;
    SOCKET gameSocket = INVALID_SOCKET;
    sockaddr_in replyAddress{};
    bool replyAddressKnown = false;
    bool preferredPortSeen = false;
    ComRef<ICoreWebView2Controller> webController;
    ComRef<ICoreWebView2> webView;
    std::vector<PageRect> regionRects;
    bool coverUp = true;
    uint32_t startTicks = 0;
    uint32_t lastTickAt = 0;
    bool pageReady = false;
    std::wstring pendingPad;
    std::vector<std::wstring> pendingPageMessages;
    uint32_t droppedHeldMessages = 0;
    bool heldDropsSinceTick = false;
    uint32_t noGameWindowSince = 0;
    bool gameWindowHintGiven = false;
    uint32_t attachedInputThread = 0;
    bool gameBorderless = false;
    uint32_t savedGameStyle = 0;
    RECT savedGameRect{};
    bool gameAway = false;
    bool oldRuleAway = false;
    uint32_t gameProcessId = 0;
    uint32_t browserProcessId = 0;
    HWND lastForeground = nullptr;
    uint32_t lastBrowserProcessId = 0;
    bool foregroundIsBrowser = false;
    std::string exitReason;
    bool quitting = false;
    uint16_t gamePort = 0;
    bool closeReceived = false;
    bool throughWanted = false;
    bool mouseToGame = false;
    std::wstring gameTitle = L"Gravos Arena";
    std::wstring gameClass = L"Win32Window";
    std::wstring dataFolder;
    GameWarnings warnings;
};

extern HostState host;

// Process-wide values beside the record.
extern bool keepLayout;
extern const char* const buildString;

constexpr uint16_t preferredGamePort = 47630;
constexpr const char* modeNames[3] = {"hidden", "passive", "active"};
