// The Linux gra-send, run as a process against a peer that plays the program.
#include "gra_link.h"
#include "peer.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <unistd.h>
#include <cstdlib>
#include <vector>

namespace {

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

std::string quoted(const std::string& word) {
    std::string q = "'";
    for (char c : word) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

// Starts gra-send with the words, runs meanwhile() while it is running (to
// play the program's part), then collects its output and exit status.
Outcome runGraSend(const std::vector<std::string>& words,
                   const std::function<void()>& meanwhile = [] {}) {
    std::string errPath = "/tmp/gra_send_test_err." + std::to_string(getpid());
    std::string command = GRA_SEND_PATH;
    for (const std::string& w : words) command += " " + quoted(w);
    command += " 2>" + errPath;
    Outcome run;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return run;
    meanwhile();
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) run.out.append(buffer, n);
    int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream err(errPath);
    std::stringstream text;
    text << err.rdbuf();
    run.err = text.str();
    std::remove(errPath.c_str());
    return run;
}

class GraSend : public ::testing::Test {
protected:
    std::string port() const { return std::to_string(program.port()); }
    // Runs gra-send aimed at the peer, from any free local port.
    Outcome send(std::vector<std::string> words, const std::function<void()>& meanwhile = [] {}) {
        words.insert(words.begin(), {"--port", port(), "--from", "0"});
        return runGraSend(words, meanwhile);
    }
    // What gra-send sent, or "<nothing>".
    std::string received(int timeoutMs = 2000) {
        auto d = program.receive(timeoutMs);
        if (!d) return "<nothing>";
        lastSender = d->fromPort;
        return d->bytes;
    }

    Peer program;
    uint16_t lastSender = 0;
};

TEST_F(GraSend, ShowJoinsItsWordsIntoThePadText) {
    Outcome run = send({"show", "hello", "world"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(received(), "GRAO show hello world");
}

TEST_F(GraSend, EachCommandSendsItsBytes) {
    struct Case {
        std::vector<std::string> words;
        const char* bytes;
    };
    const Case cases[] = {
        {{"show"}, "GRAO show"},
        {{"show", "two  spaces"}, "GRAO show two  spaces"},
        {{"hide"}, "GRAO hide"},
        {{"toggle", "pad"}, "GRAO toggle pad"},
        {{"note", "{\"hp\":3}"}, "GRAO note {\"hp\":3}"},
        {{"note-text", "say \"hi\""}, "GRAO note \"say \\\"hi\\\"\""},
        {{"page", "{\"type\":\"x\"}"}, "GRAO page {\"type\":\"x\"}"},
        {{"reload"}, "GRAO reload"},
        {{"window", "borderless"}, "GRAO window borderless"},
        {{"window", "framed"}, "GRAO window framed"},
        {{"bye"}, "GRAO bye"},
        {{"show", "--port"}, "GRAO show --port"},
    };
    for (const Case& c : cases) {
        Outcome run = send(c.words);
        EXPECT_EQ(run.status, 0) << c.bytes << ": " << run.err;
        EXPECT_EQ(received(), c.bytes);
    }
}

TEST_F(GraSend, StatePrintsTheProgramsAnswer) {
    Outcome run = send({"state"}, [&] {
        EXPECT_EQ(received(), "GRAO state");
        program.sendTo(lastSender, "GRAO modal on"); // not the answer: skipped
        program.sendTo(lastSender, "GRAO state hidden");
    });
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "state hidden\n");
}

TEST_F(GraSend, StateWithoutAnswerGivesUpAfterTheWait) {
    long long start = nowMs();
    Outcome run = send({"--wait", "300", "state"});
    long long spent = nowMs() - start;
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("no state report"), std::string::npos) << run.err;
    EXPECT_GE(spent, 290);
    EXPECT_LT(spent, 3000);
    EXPECT_EQ(received(), "GRAO state");
}

TEST_F(GraSend, ListenAsksForTheStateThenPrintsEveryReport) {
    Outcome run = send({"--count", "3", "listen"}, [&] {
        EXPECT_EQ(received(), "GRAO state");
        program.sendTo(lastSender, "GRAO state hidden");
        program.sendTo(lastSender, "GRAO game jump 3");
        program.sendTo(lastSender, "GRAO modal off");
    });
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "state hidden\ngame jump 3\nmodal off\n");
    EXPECT_NE(run.err.find("listening on 127.0.0.1:"), std::string::npos) << run.err;
}

TEST_F(GraSend, VerboseTellsTheLocalPort) {
    Outcome run = send({"--verbose", "hide"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(received(), "GRAO hide");
    EXPECT_NE(run.err.find("sending from 127.0.0.1:" + std::to_string(lastSender)), std::string::npos)
        << run.err;
}

TEST_F(GraSend, BadCommandLinesAreUsageErrorsAndSendNothing) {
    const std::vector<std::vector<std::string>> lines = {
        {}, {"jump"}, {"Show"}, {"window"}, {"window", "Borderless"}, {"note"}, {"--port"},
        {"--port", "70000", "hide"}, {"--port", "12ab", "hide"}, {"--wait", "-1", "state"},
        {"--bogus", "hide"},
    };
    for (const auto& words : lines) {
        Outcome run = send(words);
        EXPECT_EQ(run.status, 2) << (words.empty() ? "(none)" : words[0]);
        EXPECT_NE(run.err.find("usage: gra-send"), std::string::npos);
    }
    EXPECT_EQ(received(200), "<nothing>");
}

TEST_F(GraSend, RefusalsOfTheLibraryExitWithThree) {
    Outcome run = send({"note", "not json"});
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.err, "gra-send: the argument is not valid JSON\n");
    EXPECT_EQ(received(200), "<nothing>");
}

TEST_F(GraSend, UsageListsEveryCommand) {
    Outcome run = runGraSend({});
    EXPECT_EQ(run.status, 2);
    for (const char* word : {"show", "hide", "toggle", "note", "note-text", "page", "reload", "state",
                             "window", "bye", "listen", "--port", "--from", "--wait", "--count"})
        EXPECT_NE(run.err.find(word), std::string::npos) << word;
}

TEST_F(GraSend, HelpPrintsTheUsageOnStandardOutputAndSucceeds) {
    for (const auto& words : std::vector<std::vector<std::string>>{{"--help"}, {"-h"}, {"--port", "1", "--help"}}) {
        Outcome run = send(words);
        EXPECT_EQ(run.status, 0) << words.back() << ": " << run.err;
        EXPECT_EQ(run.out.rfind("usage: gra-send [options] COMMAND [TEXT...]\n", 0), 0u) << run.out;
        EXPECT_NE(run.out.find("  --help      print this text and end\n"), std::string::npos);
        EXPECT_EQ(run.err, "");
    }
    // after the command, "--help" is text like any other
    Outcome run = send({"show", "--help"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(received(), "GRAO show --help");
    EXPECT_EQ(received(200), "<nothing>");
}

} // namespace
