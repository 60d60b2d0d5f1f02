// The command line that gra_link_launch hands to Windows, and the wait for
// the program's first answer. The round trip through the system's own
// CommandLineToArgvW runs under Wine (tests/sdk_windows).
#include "gra_link.h"
#include "peer.h"
#include "quote_cases.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

namespace {

std::string quoted(const char* arg) {
    size_t need = gra_link_quote_argument(arg, nullptr, 0);
    std::string out(need + 1, '?');
    EXPECT_EQ(gra_link_quote_argument(arg, &out[0], out.size()), need);
    out.resize(need);
    return out;
}

std::string commandLine(const gra_link_launch_options& o) {
    size_t need = gra_link_command_line(&o, nullptr, 0);
    std::string out(need + 1, '?');
    EXPECT_EQ(gra_link_command_line(&o, &out[0], out.size()), need);
    out.resize(need);
    return out;
}

TEST(Quoting, EachHardCaseGivesItsExactText) {
    for (const QuoteCase& c : quoteCases) EXPECT_EQ(quoted(c.argument), c.quoted) << c.argument;
}

TEST(Quoting, ANullArgumentIsTheEmptyOne) { EXPECT_EQ(quoted(nullptr), "\"\""); }

TEST(Quoting, ASmallBufferGetsAsMuchAsFitsAndTheFullLength) {
    char out[5];
    EXPECT_EQ(gra_link_quote_argument("a b c d", out, sizeof out), 9u);
    EXPECT_STREQ(out, "\"a b");
    EXPECT_EQ(gra_link_quote_argument("a b", out, 0), 5u);
}

TEST(CommandLine, TheProgramAloneIsQuotedAsItIs) {
    gra_link_launch_options o{};
    o.program = "C:\\Games\\My Game\\overlay\\gra-overlay.exe";
    EXPECT_EQ(commandLine(o), "\"C:\\Games\\My Game\\overlay\\gra-overlay.exe\"");
}

TEST(CommandLine, EveryOptionInItsPlaceWithItsValueQuoted) {
    gra_link_launch_options o{};
    o.program = "gra-overlay.exe";
    o.web = "C:\\Game\\web\\";
    o.doc = "C:\\Users\\Ann\\Documents\\My Game";
    o.port = 47700;
    o.game = "Gravos \"Arena\" 2";
    o.game_class = "Win32Window";
    o.mode = "owned";
    o.log = "";
    o.data = "D:\\data\\";
    o.show = 1;
    EXPECT_EQ(commandLine(o),
              "\"gra-overlay.exe\" --web C:\\Game\\web\\ --doc \"C:\\Users\\Ann\\Documents\\My Game\""
              " --port 47700 --game \"Gravos \\\"Arena\\\" 2\" --game-class Win32Window"
              " --mode owned --log \"\" --data D:\\data\\ --show");
}

TEST(CommandLine, PortsAreWrittenInDecimal) {
    gra_link_launch_options o{};
    o.program = "p";
    o.port = 1;
    EXPECT_EQ(commandLine(o), "\"p\" --port 1");
    o.port = 65535;
    EXPECT_EQ(commandLine(o), "\"p\" --port 65535");
}

TEST(CommandLine, AProgramThatCannotBeQuotedIsRefused) {
    gra_link_launch_options o{};
    char out[16] = "untouched";
    EXPECT_EQ(gra_link_command_line(&o, out, sizeof out), 0u);
    EXPECT_STREQ(out, "");
    o.program = "";
    EXPECT_EQ(gra_link_command_line(&o, nullptr, 0), 0u);
    o.program = "C:\\a\"b.exe";
    EXPECT_EQ(gra_link_command_line(&o, nullptr, 0), 0u);
    EXPECT_EQ(gra_link_command_line(nullptr, nullptr, 0), 0u);
}

// A peer that answers "GRAO state" only after a few asks, as a program that
// is still starting would.
TEST(WaitReady, AsksAgainUntilTheProgramAnswers) {
    Peer peer;
    std::atomic<int> asks{0};
    std::thread program([&] {
        for (;;) {
            auto d = peer.receive(3000);
            if (!d) return;
            if (d->bytes != "GRAO state") continue;
            if (++asks == 3) {
                peer.sendTo(d->fromPort, "GRAO game jump");
                peer.sendTo(d->fromPort, "GRAO state passive");
                return;
            }
        }
    });
    gra_link link;
    ASSERT_EQ(gra_link_open_port(&link, peer.port(), 0), GRA_LINK_OK);
    int mode = -1;
    long long start = nowMs();
    EXPECT_EQ(gra_link_wait_ready(&link, 5000, &mode), 1);
    EXPECT_LT(nowMs() - start, 4000);
    EXPECT_EQ(mode, GRA_LINK_MODE_PASSIVE);
    EXPECT_EQ(asks.load(), 3);
    program.join();
    gra_link_close(&link);
}

TEST(WaitReady, GivesUpAfterTheTimeoutWhenNobodyAnswers) {
    Peer silent;
    gra_link link;
    ASSERT_EQ(gra_link_open_port(&link, silent.port(), 0), GRA_LINK_OK);
    int mode = -7;
    long long start = nowMs();
    EXPECT_EQ(gra_link_wait_ready(&link, 600, &mode), 0);
    EXPECT_GE(nowMs() - start, 600);
    EXPECT_EQ(mode, -7);
    // it asked more than once while it waited
    int asks = 0;
    while (auto d = silent.receive(50)) asks += d->bytes == "GRAO state";
    EXPECT_GE(asks, 2);
    gra_link_close(&link);
}

TEST(WaitReady, AClosedLinkIsRefused) {
    gra_link link{};
    EXPECT_EQ(gra_link_wait_ready(&link, 10, nullptr), GRA_LINK_E_INVALID);
    EXPECT_EQ(gra_link_wait_ready(nullptr, 10, nullptr), GRA_LINK_E_INVALID);
}

} // namespace
