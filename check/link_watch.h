// The check's end of the game link: it sends the game's commands with
// sdk/gra_link.h and keeps everything the program sends back, stamped with
// when it came, so that a step can look for a report that came earlier.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "gra_link.h"
#include "timing.h"

struct Heard {
    double at = 0;  // preciseMs() when it was read
    gra_link_report report{};
};

class GameLinkEnd {
public:
    GameLinkEnd() = default;
    ~GameLinkEnd() { close(); }
    GameLinkEnd(const GameLinkEnd&) = delete;
    GameLinkEnd& operator=(const GameLinkEnd&) = delete;

    bool open(unsigned short programPort, std::string& problem);
    void close();
    gra_link* link() { return &link_; }
    bool isOpen() const { return open_; }

    // Reads whatever arrived; the list of what was heard grows.
    void listen();
    const std::vector<Heard>& heard() const { return heard_; }
    void keep(const Heard& heard) { heard_.push_back(heard); }

private:
    gra_link link_{};
    bool open_ = false;
    std::vector<Heard> heard_;
};

// Finds, among what was heard from index `from` on, the page's game command
// `cmd` (or, with an empty cmd, the state report of `mode`); -1 when none.
int findGameCommand(const GameLinkEnd& end, const std::string& cmd, size_t from);
int findStateReport(const GameLinkEnd& end, int mode, size_t from);

// Listens until such a report has come or the deadline passes.
int waitForGameCommand(GameLinkEnd& end, const std::string& cmd, size_t from, Deadline deadline);
int waitForStateReport(GameLinkEnd& end, int mode, size_t from, Deadline deadline);

// The program's log: each line's message, without its "[gra-overlay] hh:mm:ss " prefix.
std::vector<std::string> logMessages(const std::wstring& logPath);
// The first message that starts with `start` (and holds `part`, when given); empty when none.
std::string findLogMessage(const std::vector<std::string>& messages, const std::string& start,
                           const std::string& part = "");
