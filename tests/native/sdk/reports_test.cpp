// The program's reports: parsing each kind, and polling them off the socket
// without blocking, from the program's address only.
#include "gra_link.h"
#include "peer.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

struct Parsed {
    int ok = 0;
    gra_link_report r{};
};

Parsed parse(const std::string& datagram) {
    Parsed p;
    p.ok = gra_link_parse_report(datagram.data(), datagram.size(), &p.r);
    return p;
}

TEST(ParseReport, StateReportsCarryTheMode) {
    const char* names[] = {"hidden", "passive", "active"};
    for (int mode = 0; mode < 3; mode++) {
        Parsed p = parse(std::string("GRAO state ") + names[mode]);
        ASSERT_EQ(p.ok, 1);
        EXPECT_EQ(p.r.kind, GRA_LINK_REPORT_STATE);
        EXPECT_EQ(p.r.mode, mode);
        EXPECT_EQ(p.r.text, std::string("state ") + names[mode]);
    }
}

TEST(ParseReport, UnknownStatesAreOtherReports) {
    for (const char* d : {"GRAO state Active", "GRAO state active ", "GRAO state", "GRAO state "}) {
        Parsed p = parse(d);
        ASSERT_EQ(p.ok, 1) << d;
        EXPECT_EQ(p.r.kind, GRA_LINK_REPORT_OTHER) << d;
        EXPECT_EQ(p.r.mode, -1) << d;
    }
}

TEST(ParseReport, ModalOnAndOff) {
    Parsed on = parse("GRAO modal on");
    EXPECT_EQ(on.r.kind, GRA_LINK_REPORT_MODAL);
    EXPECT_EQ(on.r.modal_on, 1);
    Parsed off = parse("GRAO modal off");
    EXPECT_EQ(off.r.kind, GRA_LINK_REPORT_MODAL);
    EXPECT_EQ(off.r.modal_on, 0);
    EXPECT_EQ(parse("GRAO modal maybe").r.kind, GRA_LINK_REPORT_OTHER);
    EXPECT_EQ(parse("GRAO modal on ").r.kind, GRA_LINK_REPORT_OTHER);
}

TEST(ParseReport, EachWarning) {
    Parsed elevated = parse("GRAO warn elevated");
    EXPECT_EQ(elevated.r.kind, GRA_LINK_REPORT_WARN);
    EXPECT_EQ(elevated.r.warning, GRA_LINK_WARN_ELEVATED);
    Parsed fullscreen = parse("GRAO warn fullscreen");
    EXPECT_EQ(fullscreen.r.kind, GRA_LINK_REPORT_WARN);
    EXPECT_EQ(fullscreen.r.warning, GRA_LINK_WARN_FULLSCREEN);
    Parsed windowed = parse("GRAO warn windowed");
    EXPECT_EQ(windowed.r.kind, GRA_LINK_REPORT_WARN);
    EXPECT_EQ(windowed.r.warning, GRA_LINK_WARN_WINDOWED);
    for (const char* other : {"GRAO warn", "GRAO warn ", "GRAO warn Elevated", "GRAO warn elevated ", "GRAO warn x"}) {
        Parsed p = parse(other);
        EXPECT_EQ(p.r.kind, GRA_LINK_REPORT_OTHER) << other;
        EXPECT_EQ(p.r.warning, GRA_LINK_WARN_NONE) << other;
    }
    EXPECT_EQ(parse("GRAO state active").r.warning, GRA_LINK_WARN_NONE);
}

TEST(ParseReport, GameReportsSplitCommandAndArgument) {
    Parsed p = parse("GRAO game jump 3");
    EXPECT_EQ(p.r.kind, GRA_LINK_REPORT_GAME);
    EXPECT_STREQ(p.r.cmd, "jump");
    EXPECT_STREQ(p.r.arg, "3");

    p = parse("GRAO game jump");
    EXPECT_EQ(p.r.kind, GRA_LINK_REPORT_GAME);
    EXPECT_STREQ(p.r.cmd, "jump");
    EXPECT_STREQ(p.r.arg, "");

    p = parse("GRAO game say hello  world ");
    EXPECT_EQ(p.r.kind, GRA_LINK_REPORT_GAME);
    EXPECT_STREQ(p.r.cmd, "say");
    EXPECT_STREQ(p.r.arg, "hello  world ");
}

TEST(ParseReport, GameReportLimitsFollowTheProgram) {
    std::string cmd39(39, 'c'), arg199(199, 'a');
    Parsed p = parse("GRAO game " + cmd39 + " " + arg199);
    EXPECT_EQ(p.r.kind, GRA_LINK_REPORT_GAME);
    EXPECT_EQ(std::string(p.r.cmd), cmd39);
    EXPECT_EQ(std::string(p.r.arg), arg199);
    EXPECT_EQ(parse("GRAO game " + cmd39 + "c").r.kind, GRA_LINK_REPORT_OTHER);
    EXPECT_EQ(parse("GRAO game x " + arg199 + "a").r.kind, GRA_LINK_REPORT_OTHER);
    EXPECT_EQ(parse("GRAO game ").r.kind, GRA_LINK_REPORT_OTHER);
    EXPECT_EQ(parse("GRAO game  x").r.kind, GRA_LINK_REPORT_OTHER);
}

TEST(ParseReport, AnythingElseAfterTheMagicIsOther) {
    Parsed p = parse("GRAO hello there");
    ASSERT_EQ(p.ok, 1);
    EXPECT_EQ(p.r.kind, GRA_LINK_REPORT_OTHER);
    EXPECT_STREQ(p.r.text, "hello there");
    EXPECT_EQ(parse("GRAO ").r.kind, GRA_LINK_REPORT_OTHER);
}

TEST(ParseReport, WithoutTheExactMagicThereIsNoReport) {
    for (const char* d : {"", "GRAO", "GRAOstate hidden", "grao state hidden", "XGRAO state hidden"})
        EXPECT_EQ(parse(d).ok, 0) << d;
}

TEST(ParseReport, TextEndsAtAZeroByte) {
    Parsed p = parse(std::string("GRAO state hidden\0 junk", 23));
    EXPECT_EQ(p.r.kind, GRA_LINK_REPORT_STATE);
    EXPECT_EQ(p.r.mode, GRA_LINK_MODE_HIDDEN);
}

TEST(ParseReport, TextsLongerThanAnyReportAreRefused) {
    EXPECT_EQ(parse("GRAO " + std::string(GRA_LINK_REPORT_MAX, 'x')).ok, 1);
    EXPECT_EQ(parse("GRAO " + std::string(GRA_LINK_REPORT_MAX + 1, 'x')).ok, 0);
}

class Poll : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(gra_link_open_port(&link, program.port(), 0), GRA_LINK_OK); }
    void TearDown() override { gra_link_close(&link); }
    void report(const std::string& bytes) { program.sendTo(link.local_port, bytes); }
    // Lets the loopback deliver what was just sent.
    void settle() { gra_link_wait(&link, 1000); }

    Peer program;
    gra_link link{};
    gra_link_report r{};
};

TEST_F(Poll, ReturnsZeroAtOnceWhenNothingIsWaiting) {
    long long start = nowMs();
    EXPECT_EQ(gra_link_poll(&link, &r), 0);
    EXPECT_LT(nowMs() - start, 50);
}

TEST_F(Poll, ReadsTheProgramsReportsInOrder) {
    report("GRAO state active");
    report("GRAO modal on");
    report("GRAO game jump 3");
    settle();
    ASSERT_EQ(gra_link_next_report(&link, &r, 1000), 1);
    EXPECT_EQ(r.kind, GRA_LINK_REPORT_STATE);
    EXPECT_EQ(r.mode, GRA_LINK_MODE_ACTIVE);
    ASSERT_EQ(gra_link_next_report(&link, &r, 1000), 1);
    EXPECT_EQ(r.kind, GRA_LINK_REPORT_MODAL);
    EXPECT_EQ(r.modal_on, 1);
    ASSERT_EQ(gra_link_next_report(&link, &r, 1000), 1);
    EXPECT_EQ(r.kind, GRA_LINK_REPORT_GAME);
    EXPECT_STREQ(r.cmd, "jump");
    EXPECT_STREQ(r.arg, "3");
    EXPECT_EQ(gra_link_poll(&link, &r), 0);
}

TEST_F(Poll, SkipsStrangersForeignDatagramsAndOversizedOnes) {
    Peer stranger;
    stranger.sendTo(link.local_port, "GRAO state active");
    report("not the magic");
    report("GRAO " + std::string(GRA_LINK_REPORT_MAX + 1, 'x'));
    report("GRAO " + std::string(5000, 'y'));
    report("GRAO state passive");
    ASSERT_EQ(gra_link_next_report(&link, &r, 1000), 1);
    EXPECT_EQ(r.kind, GRA_LINK_REPORT_STATE);
    EXPECT_EQ(r.mode, GRA_LINK_MODE_PASSIVE);
    EXPECT_EQ(gra_link_poll(&link, &r), 0);
}

TEST_F(Poll, WaitTimesOutAndNextReportGivesUp) {
    long long start = nowMs();
    EXPECT_EQ(gra_link_wait(&link, 150), 0);
    EXPECT_GE(nowMs() - start, 140);
    start = nowMs();
    EXPECT_EQ(gra_link_next_report(&link, &r, 200), 0);
    long long spent = nowMs() - start;
    EXPECT_GE(spent, 190);
    EXPECT_LT(spent, 1500);
}

TEST_F(Poll, NextReportWaitsForALateReport) {
    std::thread late([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        report("GRAO state hidden");
    });
    long long start = nowMs();
    int got = gra_link_next_report(&link, &r, 3000);
    late.join();
    ASSERT_EQ(got, 1);
    EXPECT_EQ(r.mode, GRA_LINK_MODE_HIDDEN);
    EXPECT_GE(nowMs() - start, 100);
}

TEST_F(Poll, AnAnswerToACommandComesBackToThisLink) {
    ASSERT_EQ(gra_link_state(&link), GRA_LINK_OK);
    auto asked = program.receive();
    ASSERT_TRUE(asked.has_value());
    EXPECT_EQ(asked->bytes, "GRAO state");
    program.sendTo(asked->fromPort, "GRAO state hidden");
    ASSERT_EQ(gra_link_next_report(&link, &r, 2000), 1);
    EXPECT_EQ(r.kind, GRA_LINK_REPORT_STATE);
    EXPECT_STREQ(r.text, "state hidden");
}

} // namespace
