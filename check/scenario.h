// The runs of the check: the program started beside a game, in one mode and
// one start order, and every named check carried out against it.
#pragma once

#include <string>
#include <vector>

#include "environment.h"
#include "report.h"

struct CheckSettings {
    std::wstring checkExe;
    std::wstring programExe;
    std::wstring pageFolder;
    std::wstring scratchFolder;
    bool underWine = false;
    // --game: the player's running game instead of the check's own
    std::wstring existingTitle;
    std::wstring existingClass;
    std::string existingMode = "child";
};

struct RunPlan {
    bool childMode = false;
    bool gameFirst = true;
};

// The checks of one run with the check's own game, in the order they run.
const std::vector<std::string>& ownGameCheckNames();
// The checks of a run against the player's game (--game).
const std::vector<std::string>& existingGameCheckNames();

std::string groupOf(const RunPlan& plan);

void runWithOwnGame(const CheckSettings& settings, const RunPlan& plan, int runNumber, Report& report);
void runWithExistingGame(const CheckSettings& settings, Report& report);

// Every check of a run that was not started, with the reason.
void skipRun(Report& report, const std::string& group, const std::vector<std::string>& names,
             const std::string& reason);
