// The keyboard layout keeper: learns the layout the game is played with and,
// right after the player comes back from another application on another
// layout, asks the game's thread for the played one again, at most four times
// a minute. Every event goes to the log and to "gra_keys.txt".
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

struct LayoutKeeperState {
    HKL seenLayout = nullptr;
    HKL playedLayout = nullptr;
    HKL previousPlayedLayout = nullptr;
    uint32_t seenSince = 0;
    uint32_t backAt = 0;
    uint32_t askedAt = 0;
    uint8_t awayNoted = 0;
    uint8_t justBack = 0;
    int32_t askStage = 0;
    uint32_t askTimes[4] = {0, 0, 0, 0};
    int32_t askCount = 0;
};

enum LayoutAction {
    layoutNothing = 0,
    layoutLearnt = 1,
    layoutFirstAsk = 2,
    layoutSecondAsk = 3,
    layoutBackOnPlayed = 4,
    layoutGaveUp = 5,
    layoutLimitReached = 6,
};

extern LayoutKeeperState layoutKeeper;

void keepKeyboardLayout();

// Updates the record for one tick and says what to do; performs no output.
int decideLayoutAction(LayoutKeeperState& state, uint32_t now, bool away, HKL layout);

// "<locale name> [<low 32 bits in hex>]", or "none".
std::string layoutName(HKL layout);

// What an ask's line adds when the game's window refused the posted ask
// (posted false): empty for an ask that went out.
const char* refusalNote(int action, bool posted);

void noteKeys(const char* format, ...);
