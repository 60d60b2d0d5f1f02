#include <gtest/gtest.h>

#include "app/counters.h"
#include "app/host_state.h"
#include "gamelink/datagrams.h"
#include "gamelink/game_commands.h"

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
