// The exact bytes of every command on the wire, and the refusals: what the
// program would drop or misread never leaves the link.
#include "gra_link.h"
#include "peer.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class Commands : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(gra_link_open_port(&link, peer.port(), 0), GRA_LINK_OK); }
    void TearDown() override { gra_link_close(&link); }

    // The bytes of the next datagram, or "<nothing>" when none came.
    std::string next(int timeoutMs = 2000) {
        auto d = peer.receive(timeoutMs);
        return d ? d->bytes : "<nothing>";
    }
    void expectNothingSent() { EXPECT_EQ(next(100), "<nothing>"); }

    Peer peer;
    gra_link link{};
};

TEST_F(Commands, ShowCarriesThePadTextAsItStands) {
    ASSERT_EQ(gra_link_show(&link, "Wave 3: \"go\" \\ now"), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO show Wave 3: \"go\" \\ now");
}

TEST_F(Commands, ShowWithoutPadIsTheBareCommand) {
    ASSERT_EQ(gra_link_show(&link, nullptr), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO show");
    ASSERT_EQ(gra_link_show(&link, ""), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO show");
}

TEST_F(Commands, APadsLeadingSpaceAndUtf8AreKept) {
    ASSERT_EQ(gra_link_show_n(&link, " x", 2), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO show  x");
    ASSERT_EQ(gra_link_show(&link, "\xC3\x84rger \xE2\x9C\x93"), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO show \xC3\x84rger \xE2\x9C\x93");
}

TEST_F(Commands, ShowNSendsExactlyTheGivenLength) {
    ASSERT_EQ(gra_link_show_n(&link, "abcdef", 3), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO show abc");
}

TEST_F(Commands, Hide) {
    ASSERT_EQ(gra_link_hide(&link), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO hide");
}

TEST_F(Commands, Toggle) {
    ASSERT_EQ(gra_link_toggle(&link, "pad"), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO toggle pad");
    ASSERT_EQ(gra_link_toggle(&link, nullptr), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO toggle");
    ASSERT_EQ(gra_link_toggle_n(&link, "pad", 0), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO toggle");
}

TEST_F(Commands, NoteCarriesTheJsonValueUnchanged) {
    ASSERT_EQ(gra_link_note(&link, "{\"hp\": 3, \"tags\": [\"a\"]}"), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO note {\"hp\": 3, \"tags\": [\"a\"]}");
    ASSERT_EQ(gra_link_note(&link, "\"plain\""), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO note \"plain\"");
    ASSERT_EQ(gra_link_note(&link, "42"), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO note 42");
}

TEST_F(Commands, NoteTextSendsTheTextAsAnEscapedJsonString) {
    ASSERT_EQ(gra_link_note_text(&link, "say \"hi\"\\\n\tnow \xE2\x9C\x93"), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO note \"say \\\"hi\\\"\\\\\\n\\tnow \xE2\x9C\x93\"");
    ASSERT_EQ(gra_link_note_text(&link, ""), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO note \"\"");
}

TEST_F(Commands, NoteTextEscapesAZeroByteInsteadOfRefusingIt) {
    ASSERT_EQ(gra_link_note_text_n(&link, "a\0b", 3), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO note \"a\\u0000b\"");
}

TEST_F(Commands, PagePassesAWholeJsonText) {
    ASSERT_EQ(gra_link_page(&link, "{\"type\":\"score\",\"value\":7}"), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO page {\"type\":\"score\",\"value\":7}");
}

TEST_F(Commands, ReloadStateAndBye) {
    ASSERT_EQ(gra_link_reload(&link), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO reload");
    ASSERT_EQ(gra_link_state(&link), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO state");
    ASSERT_EQ(gra_link_bye(&link), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO bye");
}

TEST_F(Commands, WindowSaysBorderlessOrFramed) {
    ASSERT_EQ(gra_link_window(&link, 1), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO window borderless");
    ASSERT_EQ(gra_link_window(&link, 7), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO window borderless");
    ASSERT_EQ(gra_link_window(&link, 0), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO window framed");
}

TEST_F(Commands, SendByNameBuildsTheSameBytes) {
    ASSERT_EQ(gra_link_send(&link, "show", "two words", 9), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO show two words");
    ASSERT_EQ(gra_link_send(&link, "hide", nullptr, 0), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO hide");
}

TEST_F(Commands, CommandsArriveInTheOrderSent) {
    ASSERT_EQ(gra_link_show(&link, "1"), GRA_LINK_OK);
    ASSERT_EQ(gra_link_note(&link, "2"), GRA_LINK_OK);
    ASSERT_EQ(gra_link_hide(&link), GRA_LINK_OK);
    EXPECT_EQ(next(), "GRAO show 1");
    EXPECT_EQ(next(), "GRAO note 2");
    EXPECT_EQ(next(), "GRAO hide");
}

TEST_F(Commands, AnArgumentWithAZeroByteIsRefused) {
    EXPECT_EQ(gra_link_show_n(&link, "a\0b", 3), GRA_LINK_E_ZERO_BYTE);
    EXPECT_EQ(gra_link_toggle_n(&link, "\0", 1), GRA_LINK_E_ZERO_BYTE);
    EXPECT_EQ(gra_link_note_n(&link, "\"a\0\"", 4), GRA_LINK_E_ZERO_BYTE);
    EXPECT_EQ(gra_link_page_n(&link, "{}\0", 3), GRA_LINK_E_ZERO_BYTE);
    expectNothingSent();
}

TEST_F(Commands, UnknownOrMiscasedCommandWordsAreRefused) {
    EXPECT_EQ(gra_link_send(&link, "Show", nullptr, 0), GRA_LINK_E_COMMAND);
    EXPECT_EQ(gra_link_send(&link, "jump", nullptr, 0), GRA_LINK_E_COMMAND);
    EXPECT_EQ(gra_link_send(&link, "", nullptr, 0), GRA_LINK_E_COMMAND);
    EXPECT_EQ(gra_link_send(&link, "show ", nullptr, 0), GRA_LINK_E_COMMAND);
    EXPECT_EQ(gra_link_send(&link, nullptr, nullptr, 0), GRA_LINK_E_INVALID);
    EXPECT_EQ(gra_link_send(&link, "show", nullptr, 3), GRA_LINK_E_INVALID);
    expectNothingSent();
}

TEST_F(Commands, NoteAndPageMustBeValidJson) {
    EXPECT_EQ(gra_link_note(&link, "hello"), GRA_LINK_E_JSON);
    EXPECT_EQ(gra_link_note(&link, ""), GRA_LINK_E_JSON);
    EXPECT_EQ(gra_link_note(&link, nullptr), GRA_LINK_E_JSON);
    EXPECT_EQ(gra_link_note(&link, "1} ,\"type\":\"x\""), GRA_LINK_E_JSON);
    EXPECT_EQ(gra_link_page(&link, "{\"type\":"), GRA_LINK_E_JSON);
    EXPECT_EQ(gra_link_page(&link, "  "), GRA_LINK_E_JSON);
    expectNothingSent();
}

TEST_F(Commands, TheLargestDatagramGoesOutWholeAndOneByteMoreIsRefused) {
    // "GRAO show " is 10 bytes; the pad fills the rest up to 65,507.
    std::string pad(GRA_LINK_MAX_DATAGRAM - 10, 'p');
    ASSERT_EQ(gra_link_show(&link, pad.c_str()), GRA_LINK_OK);
    std::string got = next();
    EXPECT_EQ(got.size(), 65507u);
    EXPECT_EQ(got, "GRAO show " + pad);

    pad += 'p';
    EXPECT_EQ(gra_link_show(&link, pad.c_str()), GRA_LINK_E_TOO_LONG);
    std::string json = "\"" + std::string(GRA_LINK_MAX_DATAGRAM, 'n') + "\"";
    EXPECT_EQ(gra_link_note(&link, json.c_str()), GRA_LINK_E_TOO_LONG);
    EXPECT_EQ(gra_link_note_text(&link, pad.c_str()), GRA_LINK_E_TOO_LONG);
    expectNothingSent();
}

TEST_F(Commands, ALargeNoteTextIsEscapedWhole) {
    std::string text(3000, '"');
    ASSERT_EQ(gra_link_note_text(&link, text.c_str()), GRA_LINK_OK);
    std::string escaped;
    for (int i = 0; i < 3000; i++) escaped += "\\\"";
    EXPECT_EQ(next(), "GRAO note \"" + escaped + "\"");
}

} // namespace
