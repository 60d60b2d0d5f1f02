// Opening and closing a link: the loopback binding, the preferred source
// port 47630 and the fallback to an ephemeral port.
#include "gra_link.h"
#include "peer.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>

namespace {

// Sends one command and returns where the peer saw it come from.
Datagram sourceOf(gra_link& link, Peer& peer) {
    EXPECT_EQ(gra_link_hide(&link), GRA_LINK_OK);
    auto d = peer.receive();
    EXPECT_TRUE(d.has_value());
    return d.value_or(Datagram{});
}

TEST(Link, OpenOnAGivenPortSendsFromLoopbackAndThatPort) {
    Peer peer;
    gra_link link;
    ASSERT_EQ(gra_link_open_port(&link, peer.port(), 0), GRA_LINK_OK);
    EXPECT_EQ(link.host_port, peer.port());
    EXPECT_NE(link.local_port, 0);
    EXPECT_NE(link.local_port, GRA_LINK_GAME_PORT);
    EXPECT_EQ(link.preferred, 0);
    Datagram d = sourceOf(link, peer);
    EXPECT_EQ(d.fromAddress, INADDR_LOOPBACK);
    EXPECT_EQ(d.fromPort, link.local_port);
    gra_link_close(&link);
}

TEST(Link, ZeroHostPortMeansTheProgramsDefaultPort) {
    gra_link link;
    ASSERT_EQ(gra_link_open_port(&link, 0, 0), GRA_LINK_OK);
    EXPECT_EQ(link.host_port, 47632);
    gra_link_close(&link);
}

TEST(Link, OpenTakesPort47630WhenItIsFree) {
    Peer peer;
    gra_link link;
    ASSERT_EQ(gra_link_open(&link, peer.port()), GRA_LINK_OK);
    if (link.local_port != GRA_LINK_GAME_PORT) {
        gra_link_close(&link);
        GTEST_SKIP() << "port 47630 is taken by another process; the preferred binding is not checked";
    }
    EXPECT_EQ(link.preferred, 1);
    EXPECT_EQ(sourceOf(link, peer).fromPort, GRA_LINK_GAME_PORT);
    gra_link_close(&link);
}

TEST(Link, OpenFallsBackToAnEphemeralPortWhen47630IsTaken) {
    Peer peer;
    Peer blocker(GRA_LINK_GAME_PORT); // fails to bind if someone else holds it: fine too
    gra_link link;
    ASSERT_EQ(gra_link_open(&link, peer.port()), GRA_LINK_OK);
    if (!blocker.bound() && link.local_port == GRA_LINK_GAME_PORT) {
        gra_link_close(&link);
        GTEST_SKIP() << "port 47630 was released by another process mid-test; fallback not checked";
    }
    EXPECT_NE(link.local_port, GRA_LINK_GAME_PORT);
    EXPECT_NE(link.local_port, 0);
    EXPECT_EQ(link.preferred, 0);
    EXPECT_EQ(sourceOf(link, peer).fromPort, link.local_port);
    gra_link_close(&link);
}

TEST(Link, ASecondLinkDoesNotShareThePreferredPort) {
    Peer peer;
    gra_link first, second;
    ASSERT_EQ(gra_link_open(&first, peer.port()), GRA_LINK_OK);
    ASSERT_EQ(gra_link_open(&second, peer.port()), GRA_LINK_OK);
    EXPECT_NE(first.local_port, second.local_port);
    EXPECT_EQ(second.preferred, 0);
    EXPECT_EQ(sourceOf(second, peer).fromPort, second.local_port);
    gra_link_close(&second);
    gra_link_close(&first);
}

TEST(Link, BindingATakenPortExactlyFails) {
    Peer holder;
    gra_link link;
    EXPECT_EQ(gra_link_open_port(&link, 0, holder.port()), GRA_LINK_E_SOCKET);
    EXPECT_EQ(link.is_open, 0);
}

TEST(Link, AClosedOrMissingLinkIsRefused) {
    gra_link link;
    gra_link_report report;
    ASSERT_EQ(gra_link_open_port(&link, 0, 0), GRA_LINK_OK);
    gra_link_close(&link);
    gra_link_close(&link); // twice is harmless
    EXPECT_EQ(gra_link_show(&link, "x"), GRA_LINK_E_INVALID);
    EXPECT_EQ(gra_link_poll(&link, &report), GRA_LINK_E_INVALID);
    EXPECT_EQ(gra_link_wait(&link, 0), GRA_LINK_E_INVALID);
    EXPECT_EQ(gra_link_hide(nullptr), GRA_LINK_E_INVALID);
    EXPECT_EQ(gra_link_open(nullptr, 0), GRA_LINK_E_INVALID);
    gra_link_close(nullptr);
}

TEST(Link, ErrorAndModeNamesAreReadable) {
    EXPECT_STREQ(gra_link_error_text(GRA_LINK_OK), "ok");
    EXPECT_STREQ(gra_link_error_text(GRA_LINK_E_ZERO_BYTE), "the argument holds a zero byte");
    EXPECT_STREQ(gra_link_error_text(GRA_LINK_E_TOO_LONG), "the datagram would be longer than 65507 bytes");
    EXPECT_STREQ(gra_link_error_text(-100), "unknown error");
    EXPECT_STREQ(gra_link_mode_name(GRA_LINK_MODE_HIDDEN), "hidden");
    EXPECT_STREQ(gra_link_mode_name(GRA_LINK_MODE_PASSIVE), "passive");
    EXPECT_STREQ(gra_link_mode_name(GRA_LINK_MODE_ACTIVE), "active");
    EXPECT_STREQ(gra_link_mode_name(3), "?");
}

} // namespace
