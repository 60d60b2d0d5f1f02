#define GRA_LINK_IMPLEMENTATION
#include "link_watch.h"

#include <cstring>

#include "files.h"

bool GameLinkEnd::open(unsigned short programPort, std::string& problem) {
    close();
    int result = gra_link_open(&link_, programPort);
    if (result != GRA_LINK_OK) {
        problem = std::string("the game link could not be opened: ") + gra_link_error_text(result);
        return false;
    }
    open_ = true;
    return true;
}

void GameLinkEnd::close() {
    if (open_) gra_link_close(&link_);
    open_ = false;
}

void GameLinkEnd::listen() {
    if (!open_) return;
    Heard heard;
    while (gra_link_poll(&link_, &heard.report) == 1) {
        heard.at = preciseMs();
        heard_.push_back(heard);
    }
}

int findGameCommand(const GameLinkEnd& end, const std::string& cmd, size_t from) {
    const std::vector<Heard>& heard = end.heard();
    for (size_t i = from; i < heard.size(); ++i) {
        if (heard[i].report.kind == GRA_LINK_REPORT_GAME && cmd == heard[i].report.cmd) return static_cast<int>(i);
    }
    return -1;
}

int findStateReport(const GameLinkEnd& end, int mode, size_t from) {
    const std::vector<Heard>& heard = end.heard();
    for (size_t i = from; i < heard.size(); ++i) {
        if (heard[i].report.kind == GRA_LINK_REPORT_STATE && heard[i].report.mode == mode) return static_cast<int>(i);
    }
    return -1;
}

int waitForGameCommand(GameLinkEnd& end, const std::string& cmd, size_t from, Deadline deadline) {
    for (;;) {
        end.listen();
        int found = findGameCommand(end, cmd, from);
        if (found >= 0 || deadline.passed(nowMs())) return found;
        if (end.isOpen()) gra_link_wait(end.link(), 20);
        pumpMessages();
    }
}

int waitForStateReport(GameLinkEnd& end, int mode, size_t from, Deadline deadline) {
    for (;;) {
        end.listen();
        int found = findStateReport(end, mode, from);
        if (found >= 0 || deadline.passed(nowMs())) return found;
        if (end.isOpen()) gra_link_wait(end.link(), 20);
        pumpMessages();
    }
}

std::vector<std::string> logMessages(const std::wstring& logPath) {
    std::string bytes;
    std::vector<std::string> messages;
    if (!readFileBytes(logPath, bytes)) return messages;
    static const char prefix[] = "[gra-overlay] ";
    const size_t stamp = 9;  // "hh:mm:ss "
    size_t at = 0;
    while (at < bytes.size()) {
        size_t end = bytes.find('\n', at);
        if (end == std::string::npos) break;  // a line still being written
        std::string line = bytes.substr(at, end - at);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.compare(0, sizeof prefix - 1, prefix) == 0 && line.size() >= sizeof prefix - 1 + stamp) {
            line = line.substr(sizeof prefix - 1 + stamp);
        }
        messages.push_back(line);
        at = end + 1;
    }
    return messages;
}

std::string findLogMessage(const std::vector<std::string>& messages, const std::string& start,
                           const std::string& part) {
    for (const std::string& message : messages) {
        if (message.compare(0, start.size(), start) == 0 &&
            (part.empty() || message.find(part) != std::string::npos)) {
            return message;
        }
    }
    return std::string();
}
