#include <gtest/gtest.h>

#include "app/counters.h"
#include "app/host_state.h"
#include "gamelink/datagrams.h"
#include "gamelink/game_commands.h"
#include "fakes.h"
#include "host/modes.h"

namespace {

GameCommand parse(const std::string& text) {
    return parseGameDatagram(text);
}

TEST(GameDatagram, TheMagicWithoutItsSpaceOrShorterTextsAreDropped) {
    EXPECT_FALSE(parse("GRAO").valid);
    EXPECT_FALSE(parse("GRA").valid);
    EXPECT_FALSE(parse("").valid);
    EXPECT_FALSE(parse("GRAOshow").valid);
}

TEST(GameDatagram, TheMagicIsCaseSensitive) {
    EXPECT_FALSE(parse("grao show").valid);
    EXPECT_FALSE(parse("Grao show").valid);
}

TEST(GameDatagram, ExactlyTheMagicGivesAnEmptyWord) {
    GameCommand command = parse("GRAO ");
    EXPECT_TRUE(command.valid);
    EXPECT_EQ(command.word, "");
    EXPECT_EQ(command.argument, "");
}

TEST(GameDatagram, AWordWithoutArgument) {
    GameCommand command = parse("GRAO show");
    EXPECT_EQ(command.word, "show");
    EXPECT_EQ(command.argument, "");
}

TEST(GameDatagram, OneTrailingSpaceGivesAnEmptyArgument) {
    GameCommand command = parse("GRAO show ");
    EXPECT_EQ(command.word, "show");
    EXPECT_EQ(command.argument, "");
}

TEST(GameDatagram, TheArgumentKeepsItsLeadingSpace) {
    GameCommand command = parse("GRAO show  x");
    EXPECT_EQ(command.word, "show");
    EXPECT_EQ(command.argument, " x");
}

TEST(GameDatagram, ASecondSpaceBeforeTheWordGivesAnEmptyWord) {
    GameCommand command = parse("GRAO  show");
    EXPECT_EQ(command.word, "");
    EXPECT_EQ(command.argument, "show");
}

TEST(GameDatagram, TheArgumentIsPassedOnUnchanged) {
    GameCommand command = parse("GRAO note {\"a\": \"b c\"}  ");
    EXPECT_EQ(command.word, "note");
    EXPECT_EQ(command.argument, "{\"a\": \"b c\"}  ");
}

class ReplyAddress : public ::testing::Test {
protected:
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }
    static void reset() {
        host.replyAddress = sockaddr_in{};
        host.replyAddressKnown = false;
        host.preferredPortSeen = false;
        host.gamePort = 0;
    }
    static sockaddr_in from(uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(0x7F000001);
        return address;
    }
};

TEST_F(ReplyAddress, TheFirstDatagramFromAnyPortSetsIt) {
    noteDatagramSource(from(5000));
    EXPECT_TRUE(host.replyAddressKnown);
    EXPECT_FALSE(host.preferredPortSeen);
    EXPECT_EQ(ntohs(host.replyAddress.sin_port), 5000);
    EXPECT_EQ(host.gamePort, 5000);
}

TEST_F(ReplyAddress, ALaterPortMovesItUntilThePreferredPortIsSeen) {
    noteDatagramSource(from(5000));
    noteDatagramSource(from(5001));
    EXPECT_EQ(ntohs(host.replyAddress.sin_port), 5001);
    noteDatagramSource(from(47630));
    EXPECT_TRUE(host.preferredPortSeen);
    noteDatagramSource(from(5002));
    EXPECT_EQ(ntohs(host.replyAddress.sin_port), 47630);
    EXPECT_EQ(host.gamePort, 5002);
    EXPECT_TRUE(host.preferredPortSeen);
}

TEST_F(ReplyAddress, NothingIsCountedBeforeAnyDatagramArrivedNorWithoutASocket) {
    uint32_t before = activity.counter[hostToGame].total;
    sendToGame("state hidden");
    EXPECT_EQ(activity.counter[hostToGame].total, before);
    noteDatagramSource(from(5000));
    ASSERT_EQ(host.gameSocket, INVALID_SOCKET);
    sendToGame("state hidden");
    EXPECT_EQ(activity.counter[hostToGame].total, before);
}

}  // namespace

// ---- commands carried out against real windows and the recording web view

namespace {

class GameCommands : public fakes::ChildModeHostTest {
protected:
    uint32_t total(Counter which) const { return activity.counter[which].total; }
};

TEST_F(GameCommands, NoteWhileActiveLeavesTheModeAlone) {
    setMode(modeActive);
    game.receiveAll();
    size_t linesBefore = log.messages().size();
    dispatchGameDatagram("GRAO note 1");
    EXPECT_EQ(host.mode, modeActive);
    EXPECT_EQ(log.messages().size(), linesBefore);
    EXPECT_EQ(game.receiveAll(), std::vector<std::string>{});  // no state report: setMode was not called
    EXPECT_EQ(host.pendingPageMessages, std::vector<std::wstring>{L"{\"type\":\"note\",\"note\":1}"});
}

TEST_F(GameCommands, NoteWhilePassiveLeavesTheModeAlone) {
    setMode(modePassive);
    game.receiveAll();
    dispatchGameDatagram("GRAO note 2");
    EXPECT_EQ(host.mode, modePassive);
    EXPECT_EQ(game.receiveAll(), std::vector<std::string>{});
}

TEST_F(GameCommands, PageBeforeReadyIsPostedAtOnceAndCountedAsHostToPage) {
    host.webView.ptr = webView.get();
    host.pageReady = false;
    uint32_t before = total(hostToPage);
    dispatchGameDatagram("GRAO page {\"type\":\"x\"}");
    EXPECT_EQ(total(hostToPage), before + 1);
    EXPECT_EQ(webView.posted, std::vector<std::wstring>{L"{\"type\":\"x\"}"});
    EXPECT_TRUE(host.pendingPageMessages.empty());
}

TEST_F(GameCommands, FramedWhenNeverBorderlessOnlyRefitsTheHost) {
    host.gameBorderless = false;
    LONG styleBefore = GetWindowLongW(windows.game, GWL_STYLE);
    RECT placeBefore;
    GetWindowRect(windows.game, &placeBefore);
    SetWindowPos(windows.overlay, nullptr, 0, 0, 10, 10, SWP_NOZORDER | SWP_NOACTIVATE);
    uint32_t fitsBefore = total(fitToGame);
    dispatchGameDatagram("GRAO window framed");
    EXPECT_EQ(total(fitToGame), fitsBefore + 1);
    EXPECT_TRUE(log.messages().empty());
    EXPECT_EQ(GetWindowLongW(windows.game, GWL_STYLE), styleBefore);
    RECT placeAfter;
    GetWindowRect(windows.game, &placeAfter);
    EXPECT_TRUE(EqualRect(&placeBefore, &placeAfter));
    // The host fills the game's client area again.
    RECT client, hostClient;
    GetClientRect(windows.game, &client);
    GetClientRect(windows.overlay, &hostClient);
    EXPECT_EQ(hostClient.right, client.right);
    EXPECT_EQ(hostClient.bottom, client.bottom);
}

}  // namespace
