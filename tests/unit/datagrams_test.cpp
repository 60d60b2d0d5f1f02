// Reading the link's socket: a bounded batch per notification, nothing after
// "bye", and a reset report that ends no read; and the notes held for a page
// that is not ready, bounded in count and size.
#include "gamelink/datagrams.h"

#include <winsock2.h>
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/counters.h"
#include "app/host_state.h"
#include "fakes.h"
#include "gamelink/game_commands.h"
#include "page/page_messages.h"
#include "host_windows_support.h"
#include "test_support.h"

using fakes::HostStateGuard;
using test_support::ScratchLog;

namespace {

using Strings = std::vector<std::string>;

// The program's socket, non-blocking as WSAAsyncSelect makes it, and the
// game's socket that sends to it.
class LinkSocket : public ::testing::Test {
protected:
    void SetUp() override {
        fakes::resetModeFields();
        host.hostWindow = nullptr;
        host.gameWindow = nullptr;
        host.exitReason.clear();
        host.quitting = false;
        host.replyAddressKnown = false;
        host.preferredPortSeen = false;
        WSADATA data;
        ASSERT_EQ(WSAStartup(0x0202, &data), 0);
        program = bound();
        game = bound();
        // Room for every datagram of a test, as the program's own socket has.
        int room = 0x400000;
        setsockopt(program, SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&room), sizeof room);
        u_long nonBlocking = 1;
        ioctlsocket(program, FIONBIO, &nonBlocking);
        int length = sizeof programAddress;
        getsockname(program, reinterpret_cast<sockaddr*>(&programAddress), &length);
        host.gameSocket = program;
    }

    void TearDown() override {
        closesocket(program);
        closesocket(game);
        WSACleanup();
        host_windows::takeQuitMessage();
    }

    static SOCKET bound() {
        SOCKET s = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(s, reinterpret_cast<const sockaddr*>(&local), sizeof local);
        return s;
    }

    void send(const std::string& text) {
        sendto(game, text.data(), static_cast<int>(text.size()), 0,
               reinterpret_cast<const sockaddr*>(&programAddress), sizeof programAddress);
    }

    // Sends the texts and returns once the last of them can be read: the
    // loopback delivers datagrams in order.
    void sendAll(const std::vector<std::string>& texts) {
        for (const std::string& text : texts) send(text);
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(program, &readable);
        timeval wait{2, 0};
        select(0, &readable, nullptr, nullptr, &wait);
        Sleep(200);
    }

    uint32_t received() const { return activity.counter[gameToHost].total - before; }

    HostStateGuard saved;  // first in, last out
    ScratchLog log;
    SOCKET program = INVALID_SOCKET;
    SOCKET game = INVALID_SOCKET;
    sockaddr_in programAddress{};
    uint32_t before = activity.counter[gameToHost].total;
};

TEST_F(LinkSocket, OneNotificationReadsABoundedBatch) {
    std::vector<std::string> texts;
    for (int i = 0; i < 300; ++i) texts.push_back("GRAO nothing " + std::to_string(i));
    sendAll(texts);
    receiveGameDatagrams();
    EXPECT_EQ(received(), 256u);
    // Nothing is lost: the next notification reads the rest.
    receiveGameDatagrams();
    EXPECT_EQ(received(), 300u);
    receiveGameDatagrams();
    EXPECT_EQ(received(), 300u);
}

TEST_F(LinkSocket, NothingAfterByeIsCarriedOut) {
    sendAll({"GRAO bye", "GRAO note 1", "GRAO note 2"});
    receiveGameDatagrams();
    EXPECT_EQ(received(), 1u);
    EXPECT_TRUE(host.quitting);
    EXPECT_EQ(host.exitReason.substr(0, 20), "'bye' from UDP port ");
    // A later notification of the program that is quitting reads nothing.
    receiveGameDatagrams();
    EXPECT_EQ(received(), 1u);
    EXPECT_TRUE(host.pendingPageMessages.empty());
    EXPECT_TRUE(host_windows::takeQuitMessage());
}

// The same, with the socket's notifications posted to a window as the
// program's own socket has them.
class NotifyingLinkSocket : public LinkSocket {
protected:
    void SetUp() override {
        LinkSocket::SetUp();
        window = host_windows::makeGameWindow(L"GraNotifiedWindow", host_windows::uniqueName(L"notified"), false);
        host.hostWindow = window;
        ASSERT_EQ(WSAAsyncSelect(program, window, socketMessage, FD_READ), 0);
    }

    void TearDown() override {
        WSAAsyncSelect(program, window, 0, 0);
        DestroyWindow(window);
        takeNotifications();
        LinkSocket::TearDown();
    }

    // Waits (up to 10 s) until a notification is queued; true if one is.
    bool notified() {
        DWORD start = GetTickCount();
        MSG message;
        while (!PeekMessageW(&message, window, socketMessage, socketMessage, PM_NOREMOVE)) {
            if (GetTickCount() - start > 10000) return false;
            Sleep(10);
        }
        return true;
    }

    // Removes the queued notifications and says how many there were.
    int takeNotifications() {
        MSG message;
        int taken = 0;
        while (PeekMessageW(&message, window, socketMessage, socketMessage, PM_REMOVE)) ++taken;
        return taken;
    }

    HWND window = nullptr;
};

TEST_F(NotifyingLinkSocket, ABatchLeavesOneNotificationQueuedWhileMoreWait) {
    std::vector<std::string> texts;
    for (int i = 0; i < 300; ++i) texts.push_back("GRAO nothing " + std::to_string(i));
    sendAll(texts);
    ASSERT_TRUE(notified());
    takeNotifications();
    receiveGameDatagrams();
    EXPECT_EQ(received(), 256u);
    // Not one per read (a flood would fill the queue with them), but the
    // one that brings the rest.
    ASSERT_TRUE(notified());
    EXPECT_EQ(takeNotifications(), 1);
    receiveGameDatagrams();
    EXPECT_EQ(received(), 300u);
}

TEST_F(NotifyingLinkSocket, AfterByeNoNotificationIsLeftToHoldUpTheQuit) {
    std::vector<std::string> texts{"GRAO bye"};
    for (int i = 0; i < 300; ++i) texts.push_back("GRAO nothing " + std::to_string(i));
    sendAll(texts);
    ASSERT_TRUE(notified());
    takeNotifications();
    receiveGameDatagrams();
    EXPECT_TRUE(host.quitting);
    EXPECT_TRUE(host_windows::takeQuitMessage());
    // More datagrams come, and none of them is announced: nothing stands
    // between the program and its exit. (Nothing can show that a message
    // will never come; a notification would be posted at once.)
    sendAll({"GRAO nothing more"});
    MSG message;
    EXPECT_FALSE(PeekMessageW(&message, window, socketMessage, socketMessage, PM_NOREMOVE));
    EXPECT_EQ(takeNotifications(), 0);
}

TEST(ReadOutcome, AResetReportIsNoDatagramAndEndsNoRead) {
    EXPECT_FALSE(readEnds(SOCKET_ERROR, WSAECONNRESET));
    EXPECT_TRUE(readEnds(SOCKET_ERROR, WSAEWOULDBLOCK));
    EXPECT_TRUE(readEnds(SOCKET_ERROR, WSAEMSGSIZE));
    EXPECT_TRUE(readEnds(SOCKET_ERROR, WSAENOTSOCK));
    EXPECT_TRUE(readEnds(0, 0));
    EXPECT_FALSE(readEnds(1, 0));
    EXPECT_FALSE(readEnds(65535, 0));
}

// -- notes held for a page that is not ready

class HeldNotes : public ::testing::Test {
protected:
    void SetUp() override {
        fakes::resetModeFields();
        host.hostWindow = nullptr;
        host.webView.ptr = nullptr;
        host.droppedHeldMessages = 0;
        host.heldDropsSinceTick = false;
    }

    HostStateGuard saved;  // first in, last out
    ScratchLog log;
};

TEST_F(HeldNotes, AtMost256AreKeptTheOldestGoFirst) {
    for (int i = 0; i < 300; ++i) dispatchGameDatagram("GRAO note " + std::to_string(i));
    ASSERT_EQ(host.pendingPageMessages.size(), 256u);
    EXPECT_EQ(host.pendingPageMessages.front(), L"{\"type\":\"note\",\"note\":44}");
    EXPECT_EQ(host.pendingPageMessages.back(), L"{\"type\":\"note\",\"note\":299}");
    for (size_t i = 1; i < host.pendingPageMessages.size(); ++i) {
        EXPECT_EQ(host.pendingPageMessages[i], L"{\"type\":\"note\",\"note\":" + std::to_wstring(44 + i) + L"}");
    }
}

TEST_F(HeldNotes, AtMostFourMebibytesOfTextAreKept) {
    // Each held text is 60,000 characters of note and its frame.
    std::string filler(60000 - 26, 'n');
    for (int i = 0; i < 50; ++i) dispatchGameDatagram("GRAO note \"" + filler + std::to_string(i % 10) + "\"");
    size_t bytes = 0;
    for (const std::wstring& text : host.pendingPageMessages) bytes += text.size() * sizeof(wchar_t);
    EXPECT_LE(bytes, 4u * 1024 * 1024);
    // 34 texts of 120,000 bytes fit, a 35th would not.
    ASSERT_EQ(host.pendingPageMessages.size(), 34u);
    EXPECT_EQ(host.pendingPageMessages.back().substr(host.pendingPageMessages.back().size() - 3), L"9\"}");
    EXPECT_EQ(host.pendingPageMessages.front().substr(host.pendingPageMessages.front().size() - 3), L"6\"}");
}

TEST_F(HeldNotes, OneLinePerBurstSaysHowManyWereDropped) {
    for (int i = 0; i < 300; ++i) dispatchGameDatagram("GRAO note " + std::to_string(i));
    EXPECT_TRUE(log.messages().empty());
    // The tick that saw the drops says nothing yet; the next one ends the
    // burst with its line.
    reportDroppedHeldMessages();
    EXPECT_TRUE(log.messages().empty());
    reportDroppedHeldMessages();
    reportDroppedHeldMessages();
    EXPECT_EQ(log.messages(),
              Strings{"44 messages held for the page were dropped - it is not ready, and at most 256 messages "
                      "or 4 MiB wait for it"});
}

}  // namespace
