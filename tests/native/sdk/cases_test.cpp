// The table of cases shared with GraLink.cs (tests/sdk_cases/link_cases.txt):
// each command and argument is either sent as exactly the expected bytes or
// refused with the expected code, and a refusal sends nothing.
#include "gra_link.h"
#include "peer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace {

struct LinkCase {
    int line = 0;
    std::string command, argument, outcome;
};

std::vector<std::string> splitTabs(const std::string& line) {
    std::vector<std::string> fields(1);
    for (char c : line) {
        if (c == '\t')
            fields.emplace_back();
        else
            fields.back() += c;
    }
    return fields;
}

std::string unescape(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        char c = text[++i];
        if (c == 't') out += '\t';
        else if (c == 'n') out += '\n';
        else if (c == 'r') out += '\r';
        else if (c == '0') out += '\0';
        else if (c == 'x') {
            out += static_cast<char>(std::strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else out += c;
    }
    return out;
}

std::vector<LinkCase> readCases() {
    std::ifstream in(GRA_LINK_CASES_PATH, std::ios::binary);
    std::vector<LinkCase> cases;
    std::string line;
    for (int number = 1; std::getline(in, line); number++) {
        if (line.empty() || line[0] == '#') continue;
        std::vector<std::string> f = splitTabs(line);
        LinkCase c;
        c.line = number;
        c.command = f.at(0);
        std::string piece = unescape(f.at(1));
        int repeat = f.size() > 3 ? std::atoi(f[3].c_str()) : 1;
        for (int i = 0; i < repeat; i++) c.argument += piece;
        c.outcome = f.at(2);
        cases.push_back(c);
    }
    return cases;
}

int expectedCode(const std::string& outcome) {
    static const std::map<std::string, int> codes = {
        {"sent", GRA_LINK_OK},           {"zero-byte", GRA_LINK_E_ZERO_BYTE},
        {"too-long", GRA_LINK_E_TOO_LONG}, {"json", GRA_LINK_E_JSON},
        {"command", GRA_LINK_E_COMMAND},  {"window", GRA_LINK_E_WINDOW}};
    return codes.at(outcome);
}

TEST(LinkCases, EachCaseIsSentExactlyOrRefusedWithItsCode) {
    std::vector<LinkCase> cases = readCases();
    ASSERT_GE(cases.size(), 40u) << GRA_LINK_CASES_PATH;
    Peer peer;
    gra_link link;
    ASSERT_EQ(gra_link_open_port(&link, peer.port(), 0), GRA_LINK_OK);
    for (const LinkCase& c : cases) {
        SCOPED_TRACE("link_cases.txt line " + std::to_string(c.line));
        int code = gra_link_send(&link, c.command.c_str(), c.argument.data(), c.argument.size());
        EXPECT_EQ(code, expectedCode(c.outcome)) << gra_link_error_text(code);
        // A marker after each case shows that a refusal sent nothing.
        ASSERT_EQ(gra_link_state(&link), GRA_LINK_OK);
        if (code == GRA_LINK_OK) {
            auto d = peer.receive();
            std::string wire = "GRAO " + c.command + (c.argument.empty() ? "" : " " + c.argument);
            EXPECT_EQ(d ? d->bytes : "<nothing>", wire);
        }
        auto marker = peer.receive();
        EXPECT_EQ(marker ? marker->bytes : "<nothing>", "GRAO state");
    }
    gra_link_close(&link);
}

TEST(LinkCases, TheWindowFunctionSendsOnlyTheTwoWordsTheProgramReads) {
    Peer peer;
    gra_link link;
    ASSERT_EQ(gra_link_open_port(&link, peer.port(), 0), GRA_LINK_OK);
    ASSERT_EQ(gra_link_window(&link, 1), GRA_LINK_OK);
    auto d = peer.receive();
    EXPECT_EQ(d ? d->bytes : "", "GRAO window borderless");
    ASSERT_EQ(gra_link_window(&link, 0), GRA_LINK_OK);
    d = peer.receive();
    EXPECT_EQ(d ? d->bytes : "", "GRAO window framed");
    gra_link_close(&link);
}

TEST(LinkCases, ErrorTextsNameTheNewRefusals) {
    EXPECT_STREQ(gra_link_error_text(GRA_LINK_E_WINDOW),
                 "the window argument must be \"borderless\" or \"framed\"");
    EXPECT_STREQ(gra_link_error_text(GRA_LINK_E_LAUNCH), "the program could not be started");
}

} // namespace
