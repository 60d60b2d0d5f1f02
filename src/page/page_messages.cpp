#include "page/page_messages.h"

#include <cstddef>
#include <cstdint>
#include <cwchar>

#include "app/log.h"
#include "app/numbers.h"
#include "app/text.h"
#include "gamelink/datagrams.h"
#include "host/modes.h"
#include "page/json_text.h"
#include "page/page_files.h"
#include "page/show.h"
#include "page/web_view.h"

namespace {

// What waits for a page that is not ready is bounded, so that a page that
// never becomes ready and a game that keeps sending notes cannot exhaust
// the program's memory.
constexpr size_t heldMessagesMost = 256;
constexpr size_t heldBytesMost = 4 * 1024 * 1024;

std::wstring field(const std::wstring& text, const wchar_t* key) {
    return jsonField(text, key);
}

bool isTrue(const std::wstring& text, const wchar_t* key) {
    return field(text, key) == L"true";
}

void ready() {
    host.pageReady = true;
    logLine("page ready");
    if (host.mode == modeActive) postToPage(showMessage(host.pendingPad == L"-" ? L"" : host.pendingPad));
    host.pendingPad.clear();
    for (const std::wstring& message : host.pendingPageMessages) postToPage(message);
    host.pendingPageMessages.clear();
    postToPage(L"{\"type\":\"host\",\"through\":true,\"hit\":true}");
}

void through(const std::wstring& text) {
    bool wanted = isTrue(text, L"on");
    if (wanted == host.throughWanted) return;
    host.throughWanted = wanted;
    logLine("through %s", wanted ? "on" : "off");
    updateMouseOwner();
}

void mode(const std::wstring& text) {
    std::wstring name = field(text, L"mode");
    setMode(name == L"active" ? modeActive : name == L"passive" ? modePassive : modeHidden);
}

void region(const std::wstring& text) {
    host.regionRects = parseRects(field(text, L"rects"));
    setRegion(true);
}

const wchar_t* okText(bool ok) {
    return ok ? L"true" : L"false";
}

void load(const std::wstring& text) {
    std::wstring name = field(text, L"file");
    std::string bytes;
    std::wstring contents;
    // A file too long for the text conversion is not loaded rather than
    // handed over cut short.
    bool ok = isPageFileName(name) && readWholeFile(pageFilePath(name), bytes) &&
              utf8ToWideWhole(bytes.data(), bytes.size(), contents);
    if (!ok) contents.clear();
    postToPage(L"{\"type\":\"file\",\"name\":\"" + jsonEscape(name) + L"\",\"ok\":" + okText(ok) + L",\"text\":\"" +
               jsonEscape(contents) + L"\"}");
}

void save(const std::wstring& text) {
    std::wstring name = field(text, L"file");
    std::wstring contents = field(text, L"text");
    std::string bytes;
    bool ok = isPageFileName(name) && wideToUtf8Whole(contents.data(), contents.size(), bytes) &&
              writeFileReplacing(pageFilePath(name), bytes);
    logLine("save %s: %s", wideToUtf8(name).c_str(), ok ? "ok" : "FAILED");
    postToPage(L"{\"type\":\"saved\",\"name\":\"" + jsonEscape(name) + L"\",\"ok\":" + okText(ok) + L"}");
}

void game(const std::wstring& text) {
    std::string cmd = wideToUtf8(field(text, L"cmd"));
    std::string arg = wideToUtf8(field(text, L"arg"));
    std::string datagram = gameCommandText(cmd, arg);
    if (datagram.empty()) return;
    sendToGame(datagram);
    logLine("game: %s %s", cmd.c_str(), arg.c_str());
}

}  // namespace

std::string gameCommandText(const std::string& cmd, const std::string& arg) {
    if (cmd.empty() || cmd.size() > 39) return std::string();
    if (cmd.find_first_not_of("abcdefghijklmnopqrstuvwxyz_") != std::string::npos) return std::string();
    if (arg.size() >= 200) return std::string();
    if (arg.find_first_of("\r\n") != std::string::npos) return std::string();
    return arg.empty() ? "game " + cmd : "game " + cmd + " " + arg;
}

std::vector<PageRect> parseRects(const std::wstring& text) {
    std::wstring scanned = text + L" ";
    std::vector<double> numbers;
    std::wstring token;
    for (wchar_t unit : scanned) {
        if ((unit >= L'0' && unit <= L'9') || unit == L'-' || unit == L'.') {
            token += unit;
            continue;
        }
        if (!token.empty()) numbers.push_back(wcstod(token.c_str(), nullptr));
        token.clear();
    }
    std::vector<PageRect> rects;
    for (size_t i = 0; i + 4 <= numbers.size(); i += 4) {
        rects.push_back(PageRect{truncateToInt32(numbers[i]), truncateToInt32(numbers[i + 1]),
                                 truncateToInt32(numbers[i + 2]), truncateToInt32(numbers[i + 3])});
    }
    return rects;
}

void holdForPage(const std::wstring& json) {
    std::vector<std::wstring>& held = host.pendingPageMessages;
    held.push_back(json);
    size_t bytes = 0;
    for (const std::wstring& text : held) bytes += text.size() * sizeof(wchar_t);
    size_t dropped = 0;
    while (dropped < held.size() && (held.size() - dropped > heldMessagesMost || bytes > heldBytesMost)) {
        bytes -= held[dropped].size() * sizeof(wchar_t);
        ++dropped;
    }
    if (dropped == 0) return;
    held.erase(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(dropped));
    host.droppedHeldMessages += static_cast<uint32_t>(dropped);
    host.heldDropsSinceTick = true;
}

void reportDroppedHeldMessages() {
    // A burst ends with the first tick that saw no drop of its own.
    if (host.heldDropsSinceTick) {
        host.heldDropsSinceTick = false;
        return;
    }
    if (host.droppedHeldMessages == 0) return;
    logLine("%u messages held for the page were dropped - it is not ready, and at most 256 messages or 4 MiB "
            "wait for it",
            static_cast<unsigned>(host.droppedHeldMessages));
    host.droppedHeldMessages = 0;
}

void dispatchPageMessage(const std::wstring& text) {
    std::wstring type = field(text, L"type");
    if (type == L"ready") {
        ready();
    } else if (type == L"cover") {
        if (!isTrue(text, L"on")) coverOff("the page has drawn");
    } else if (type == L"through") {
        through(text);
    } else if (type == L"hide") {
        setMode(modeHidden);
    } else if (type == L"mode") {
        mode(text);
    } else if (type == L"modal") {
        sendToGame(isTrue(text, L"on") ? "modal on" : "modal off");
    } else if (type == L"region") {
        region(text);
    } else if (type == L"load") {
        load(text);
    } else if (type == L"save") {
        save(text);
    } else if (type == L"game") {
        game(text);
    } else if (type == L"log") {
        logLine("page: %s", wideToUtf8(field(text, L"text")).c_str());
    }
}
