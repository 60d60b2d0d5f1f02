#include "keyboard/layout_keeper.h"

#include <cstdarg>
#include <cstdio>

#include "app/host_state.h"
#include "app/log.h"
#include "app/text.h"

LayoutKeeperState layoutKeeper;

namespace {

constexpr uint32_t returnWindowMs = 1500;
constexpr uint32_t askSpacingMs = 750;
constexpr uint32_t holdMs = 3000;
constexpr uint32_t askLimitWindowMs = 60000;
constexpr int askLimit = 4;
constexpr UINT inputLanguageChangeRequest = 0x0050;

void dropOldAsks(LayoutKeeperState& state, uint32_t now) {
    int kept = 0;
    for (int i = 0; i < state.askCount; ++i) {
        if (now - state.askTimes[i] < askLimitWindowMs) state.askTimes[kept++] = state.askTimes[i];
    }
    state.askCount = kept;
}

int holdTest(LayoutKeeperState& state, uint32_t now, HKL layout, bool recent) {
    if (recent || layout == state.playedLayout || now - state.seenSince < holdMs) return layoutNothing;
    state.previousPlayedLayout = state.playedLayout;
    state.playedLayout = layout;
    return layoutLearnt;
}

int onForeignLayout(LayoutKeeperState& state, uint32_t now, HKL layout, bool recent) {
    if (recent && state.askStage == 0) {
        dropOldAsks(state, now);
        if (state.askCount >= askLimit) {
            state.justBack = 0;
            return layoutLimitReached;
        }
        state.askTimes[state.askCount++] = now;
        state.askStage = 1;
        state.askedAt = now;
        return layoutFirstAsk;
    }
    if (state.askStage != 0) {
        if (now - state.askedAt < askSpacingMs) return layoutNothing;
        if (state.askStage == 1) {
            state.askStage = 2;
            state.askedAt = now;
            return layoutSecondAsk;
        }
        state.seenSince = now;
        state.askStage = 0;
        state.justBack = 0;
        return layoutGaveUp;
    }
    return holdTest(state, now, layout, recent);
}

HWND secondAskTarget(DWORD gameThread) {
    static_assert(sizeof(GUITHREADINFO) == 72, "the 64-bit thread info");
    GUITHREADINFO info{};
    info.cbSize = sizeof info;
    if (!GetGUIThreadInfo(gameThread, &info)) return host.gameWindow;
    if (info.hwndFocus) return info.hwndFocus;
    if (info.hwndActive) return info.hwndActive;
    return host.gameWindow;
}

// Posted, never sent: the host never waits on the game's thread.
bool askForLayout(HWND target, HKL layout) {
    return PostMessageW(target, inputLanguageChangeRequest, 0, reinterpret_cast<LPARAM>(layout)) != 0;
}

void actOn(int action, HKL layout, DWORD gameThread) {
    const LayoutKeeperState& state = layoutKeeper;
    const char* switchNote = keepLayout ? "" : " (not asked: no_keep_layout.txt)";
    std::string current = layoutName(layout);
    std::string played = layoutName(state.playedLayout);
    switch (action) {
    case layoutLearnt: {
        std::string was = state.previousPlayedLayout ? " (was " + layoutName(state.previousPlayedLayout) + ")" : "";
        noteKeys("keyboard layout in play: %s%s", played.c_str(), was.c_str());
        break;
    }
    case layoutFirstAsk: {
        const char* refusal = keepLayout ? refusalNote(action, askForLayout(host.gameWindow, state.playedLayout)) : "";
        noteKeys("back from another application with the keyboard layout %s - the game's keys would land on other "
                 "actions; the game asked for %s again (the one played with)%s%s",
                 current.c_str(), played.c_str(), refusal, switchNote);
        break;
    }
    case layoutSecondAsk: {
        HWND target = secondAskTarget(gameThread);
        const char* refusal = keepLayout ? refusalNote(action, askForLayout(target, state.playedLayout)) : "";
        noteKeys("the game is still on %s - its focus window %p asked for %s%s%s", current.c_str(),
                 static_cast<void*>(target), played.c_str(), refusal, switchNote);
        break;
    }
    case layoutBackOnPlayed:
        noteKeys("the game is on %s again", played.c_str());
        break;
    case layoutGaveUp:
        noteKeys("the game kept %s - left as it is (the played one once it holds 3 s)", current.c_str());
        break;
    case layoutLimitReached:
        noteKeys("back with %s, played with %s - asked %u times this minute already: left as it is",
                 current.c_str(), played.c_str(), static_cast<unsigned>(askLimit));
        break;
    default:
        break;
    }
}

}  // namespace

int decideLayoutAction(LayoutKeeperState& state, uint32_t now, bool away, HKL layout) {
    if (away) {
        state.awayNoted = 1;
        return layoutNothing;
    }
    if (!layout) return layoutNothing;
    bool episode;
    if (state.awayNoted) {
        state.awayNoted = 0;
        state.justBack = 1;
        state.backAt = now;
        episode = true;
    } else {
        episode = state.justBack != 0;
    }
    if (layout != state.seenLayout) {
        state.seenLayout = layout;
        state.seenSince = now;
    }
    bool recent = episode && now - state.backAt < returnWindowMs;
    if (state.playedLayout && layout != state.playedLayout) return onForeignLayout(state, now, layout, recent);
    if (state.askStage != 0 && layout == state.playedLayout) {
        state.askStage = 0;
        state.justBack = 0;
        return layoutBackOnPlayed;
    }
    return holdTest(state, now, layout, recent);
}

const char* refusalNote(int action, bool posted) {
    if (posted) return "";
    return action == layoutFirstAsk ? " - the ask was refused" : " - refused";
}

std::string layoutName(HKL layout) {
    if (!layout) return "none";
    wchar_t locale[85] = L"?";
    LCID language = static_cast<LCID>(reinterpret_cast<uintptr_t>(layout) & 0xFFFF);
    if (LCIDToLocaleName(language, locale, 85, 0) == 0) {
        locale[0] = L'?';
        locale[1] = L'\0';
    }
    char name[160];
    formatText(name, sizeof name, "%s [%08x]", wideToUtf8(locale).c_str(),
               static_cast<unsigned>(reinterpret_cast<uintptr_t>(layout) & 0xFFFFFFFF));
    return name;
}

void noteKeys(const char* format, ...) {
    char line[1024];
    va_list args;
    va_start(args, format);
    formatTextList(line, sizeof line, format, args);
    va_end(args);
    logLine("keys: %s", line);
    FILE* file = _wfopen((host.docFolder + L"\\gra_keys.txt").c_str(), L"ab");
    if (!file) return;
    fprintf(file, "%s\n", line);
    fclose(file);
}

void keepKeyboardLayout() {
    if (!host.gameWindow || !IsWindow(host.gameWindow)) return;
    DWORD gameThread = GetWindowThreadProcessId(host.gameWindow, nullptr);
    HKL layout = gameThread ? GetKeyboardLayout(gameThread) : nullptr;
    int action = decideLayoutAction(layoutKeeper, GetTickCount(), host.gameAway, layout);
    // Most ticks decide nothing; the names are only looked up for a line.
    if (action != layoutNothing) actOn(action, layout, gameThread);
}
