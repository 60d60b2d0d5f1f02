#include "host/foreground.h"

#include <tlhelp32.h>

#include "app/host_state.h"
#include "app/log.h"
#include "host/game_window.h"
#include "page/web_view.h"

namespace {

// The snapshot is the one costly step: taken only for a foreground window of
// a fourth process, and the answer cached until the foreground window (or the
// browser process) changes.
void refreshBrowserClassification(HWND foreground, uint32_t foregroundPid, uint32_t ourPid,
                                  ParentProcessLookup parentOf) {
    if (foreground == host.lastForeground && host.browserProcessId == host.lastBrowserProcessId) return;
    host.lastForeground = foreground;
    host.lastBrowserProcessId = host.browserProcessId;
    BrowserFacts facts;
    facts.foregroundNull = foreground == nullptr;
    facts.foregroundPid = foregroundPid;
    facts.gamePid = host.gameProcessId;
    facts.ourPid = ourPid;
    facts.browserPid = host.browserProcessId;
    host.foregroundIsBrowser = foregroundIsBrowserProcess(facts, parentOf);
}

void tellAwayChange(bool nowAway, bool iconic, HWND foreground) {
    host.gameAway = nowAway;
    if (host.webView) postToPage(nowAway ? L"{\"type\":\"away\"}" : L"{\"type\":\"back\"}");
    const char* state = !nowAway ? "back in front"
                        : iconic ? "away (minimised)"
                                 : "away (another application in front)";
    logLine("game %s - foreground: %s", state, describeWindow(foreground).c_str());
}

void compareOldRule(HWND foreground, bool iconic) {
    HWND rootOwner = foreground ? GetAncestor(foreground, GA_ROOTOWNER) : nullptr;
    bool oldAway = iconic || (foreground != host.hostWindow && rootOwner != host.gameWindow);
    if (oldAway == host.oldRuleAway) return;
    host.oldRuleAway = oldAway;
    if (oldAway == host.gameAway) return;
    logLine("(the old GA_ROOTOWNER rule would say %s now - foreground: %s, root owner %p, game window %p)",
            oldAway ? "away" : "in front", describeWindow(foreground).c_str(), static_cast<void*>(rootOwner),
            static_cast<void*>(host.gameWindow));
}

}  // namespace

uint32_t parentProcessOf(uint32_t processId) {
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) return 0;
    uint32_t parent = 0;
    static_assert(sizeof(PROCESSENTRY32W) == 568, "the 64-bit process entry");
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry)) {
        if (entry.th32ProcessID == processId) {
            parent = entry.th32ParentProcessID;
            break;
        }
    }
    CloseHandle(snapshot);
    return parent;
}

bool foregroundIsBrowserProcess(const BrowserFacts& facts, ParentProcessLookup parentOf) {
    if (facts.foregroundNull) return false;
    if (facts.foregroundPid == facts.gamePid || facts.foregroundPid == facts.ourPid || facts.foregroundPid == 0 ||
        facts.browserPid == 0) {
        return false;
    }
    if (facts.foregroundPid == facts.browserPid) return true;
    return parentOf(facts.foregroundPid) == facts.browserPid;
}

AwayVerdict currentRuleSays(const ForegroundFacts& facts) {
    if (facts.iconic) return AwayVerdict::away;
    if (facts.foregroundNull) return AwayVerdict::unknown;
    if (facts.foregroundIsHost || facts.foregroundIsBrowser) return AwayVerdict::back;
    if (facts.foregroundPid == 0) return AwayVerdict::away;
    if (facts.foregroundPid == facts.gamePid || facts.foregroundPid == facts.ourPid) return AwayVerdict::back;
    return AwayVerdict::away;
}

void trackForeground() {
    trackForegroundWindow(GetForegroundWindow(), parentProcessOf);
}

void trackForegroundWindow(HWND foreground, ParentProcessLookup parentOf) {
    if (!host.gameWindow || !IsWindow(host.gameWindow)) return;
    if (host.gameProcessId == 0) {
        DWORD processId = 0;
        GetWindowThreadProcessId(host.gameWindow, &processId);
        host.gameProcessId = processId;
    }
    uint32_t ourPid = GetCurrentProcessId();
    DWORD foregroundPid = 0;
    if (foreground) GetWindowThreadProcessId(foreground, &foregroundPid);
    refreshBrowserClassification(foreground, foregroundPid, ourPid, parentOf);

    ForegroundFacts facts;
    facts.iconic = IsIconic(host.gameWindow) != 0;
    facts.foregroundNull = foreground == nullptr;
    facts.foregroundIsHost = foreground == host.hostWindow;
    facts.foregroundIsBrowser = host.foregroundIsBrowser;
    facts.foregroundPid = foregroundPid;
    facts.gamePid = host.gameProcessId;
    facts.ourPid = ourPid;
    AwayVerdict verdict = currentRuleSays(facts);
    if (verdict != AwayVerdict::unknown) {
        bool nowAway = verdict == AwayVerdict::away;
        if (nowAway != host.gameAway) tellAwayChange(nowAway, facts.iconic, foreground);
    }
    compareOldRule(foreground, facts.iconic);
}
