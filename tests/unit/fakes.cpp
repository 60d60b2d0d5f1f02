#include "fakes.h"

#include <ws2tcpip.h>

#include <array>
#include <utility>

#include "app/counters.h"
#include "app/host_state.h"
#include "host/fit.h"
#include "keyboard/layout_keeper.h"

namespace fakes {

// --- RecordingController ---

std::vector<std::string> RecordingController::callsStartingWith(const std::string& prefix) const {
    std::vector<std::string> found;
    for (const std::string& call : calls) {
        if (call.rfind(prefix, 0) == 0) found.push_back(call);
    }
    return found;
}

HRESULT RecordingController::unexpected(const char* name) {
    calls.push_back(std::string("unexpected ") + name);
    return E_NOTIMPL;
}

STDMETHODIMP RecordingController::QueryInterface(REFIID riid, void** object) {
    bool offered = IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ICoreWebView2Controller) ||
                   (offerController2 && IsEqualIID(riid, IID_ICoreWebView2Controller2)) ||
                   (offerController3 && IsEqualIID(riid, IID_ICoreWebView2Controller3));
    if (!offered) {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    *object = this;
    return S_OK;
}

STDMETHODIMP RecordingController::put_IsVisible(BOOL isVisible) {
    calls.push_back("put_IsVisible " + std::to_string(isVisible));
    visibility.push_back(isVisible);
    return S_OK;
}

STDMETHODIMP RecordingController::put_Bounds(RECT rect) {
    calls.push_back("put_Bounds " + std::to_string(rect.left) + " " + std::to_string(rect.top) + " " +
                    std::to_string(rect.right) + " " + std::to_string(rect.bottom));
    bounds.push_back(rect);
    return S_OK;
}

STDMETHODIMP RecordingController::MoveFocus(COREWEBVIEW2_MOVE_FOCUS_REASON reason) {
    calls.push_back("MoveFocus " + std::to_string(static_cast<int>(reason)));
    return S_OK;
}

STDMETHODIMP RecordingController::put_DefaultBackgroundColor(COREWEBVIEW2_COLOR value) {
    calls.push_back("put_DefaultBackgroundColor " + std::to_string(value.A) + " " + std::to_string(value.R) + " " +
                    std::to_string(value.G) + " " + std::to_string(value.B));
    return S_OK;
}

STDMETHODIMP RecordingController::get_RasterizationScale(double* value) {
    calls.push_back("get_RasterizationScale");
    *value = scale;
    return S_OK;
}

// --- RecordingWebView ---

namespace {

// ICoreWebView2's slots, IUnknown's three included (see page/webview2.h).
constexpr int slotCount = 61;
constexpr int postJsonSlot = 32;

HRESULT STDMETHODCALLTYPE postWebMessageAsJson(RecordingWebView* self, LPCWSTR json) {
    self->posted.push_back(json ? json : L"(null)");
    return S_OK;
}

template <int N>
HRESULT STDMETHODCALLTYPE unexpectedSlot(RecordingWebView* self) {
    self->unexpectedSlots.push_back(N);
    return E_NOTIMPL;
}

template <int... N>
std::array<void*, sizeof...(N)> webViewTable(std::integer_sequence<int, N...>) {
    return {{(N == postJsonSlot ? reinterpret_cast<void*>(&postWebMessageAsJson)
                                : reinterpret_cast<void*>(&unexpectedSlot<N>))...}};
}

const std::array<void*, slotCount> recordingWebViewTable = webViewTable(std::make_integer_sequence<int, slotCount>{});

}  // namespace

RecordingWebView::RecordingWebView() : table(recordingWebViewTable.data()) {}

// --- GameSocket ---

namespace {

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

int waitForSocket(SOCKET socket, int milliseconds) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(socket, &readable);
    timeval wait{milliseconds / 1000, (milliseconds % 1000) * 1000};
    return select(0, &readable, nullptr, nullptr, &wait);
}

}  // namespace

GameSocket::GameSocket() {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    gameEnd = boundLoopbackSocket(gameAddress);
    sockaddr_in programAddress{};
    programEnd = boundLoopbackSocket(programAddress);
}

GameSocket::~GameSocket() {
    closesocket(gameEnd);
    closesocket(programEnd);
    WSACleanup();
}

void GameSocket::install() {
    host.gameSocket = programEnd;
    host.replyAddress = gameAddress;
    host.replyAddressKnown = true;
}

std::string GameSocket::receive(int milliseconds) {
    if (waitForSocket(gameEnd, milliseconds) <= 0) return "(none)";
    std::vector<char> buffer(65536);  // the largest datagram
    int got = recv(gameEnd, buffer.data(), static_cast<int>(buffer.size()), 0);
    if (got < 0) return "(error)";
    return std::string(buffer.data(), static_cast<size_t>(got));
}

std::vector<std::string> GameSocket::receiveAll(int quietMilliseconds) {
    std::vector<std::string> all;
    for (;;) {
        std::string datagram = receive(quietMilliseconds);
        if (datagram == "(none)") return all;
        all.push_back(datagram);
    }
}

// --- HostStateGuard ---

HostStateGuard::HostStateGuard() {
    keep(host.gameWindow);
    keep(host.hostWindow);
    keep(host.childMode);
    keep(host.activeMode);
    keep(host.mode);
    keep(host.webFolder);
    keep(host.docFolder);
    keep(host.programFolder);
    keep(host.logPath);
    keep(host.linkPort);
    keep(host.gameSocket);
    keep(host.replyAddress);
    keep(host.replyAddressKnown);
    keep(host.preferredPortSeen);
    keep(host.webController.ptr);
    keep(host.webView.ptr);
    keep(host.regionRects);
    keep(host.coverUp);
    keep(host.startTicks);
    keep(host.lastTickAt);
    keep(host.pageReady);
    keep(host.pendingPad);
    keep(host.pendingPageMessages);
    keep(host.droppedHeldMessages);
    keep(host.heldDropsSinceTick);
    keep(host.noGameWindowSince);
    keep(host.gameWindowHintGiven);
    keep(host.attachedInputThread);
    keep(host.gameBorderless);
    keep(host.savedGameStyle);
    keep(host.savedGameRect);
    keep(host.gameAway);
    keep(host.oldRuleAway);
    keep(host.gameProcessId);
    keep(host.browserProcessId);
    keep(host.lastForeground);
    keep(host.lastBrowserProcessId);
    keep(host.foregroundIsBrowser);
    keep(host.exitReason);
    keep(host.quitting);
    keep(host.gamePort);
    keep(host.closeReceived);
    keep(host.throughWanted);
    keep(host.mouseToGame);
    keep(host.gameTitle);
    keep(host.gameClass);
    keep(host.dataFolder);
    keep(host.warnings);
    keep(keepLayout);
    keep(activity);
    keep(lastGameClient);
    keep(lastGameOrigin);
    keep(layoutKeeper);
}

HostStateGuard::~HostStateGuard() {
    for (auto restore = restorers.rbegin(); restore != restorers.rend(); ++restore) (*restore)();
}

void resetModeFields() {
    host.mode = modeHidden;
    host.activeMode = false;
    host.coverUp = true;
    host.throughWanted = false;
    host.mouseToGame = false;
    host.regionRects.clear();
    host.attachedInputThread = 0;
    host.pageReady = false;
    host.pendingPad.clear();
    host.pendingPageMessages.clear();
}

void ChildModeHostTest::SetUp() {
    ASSERT_TRUE(gameAnswers.applied());
    host.hostWindow = windows.overlay;
    host.gameWindow = windows.game;
    host.childMode = true;
    resetModeFields();
    host.webController.ptr = &controller;
    host.webView.ptr = nullptr;
    game.install();
}

}  // namespace fakes
