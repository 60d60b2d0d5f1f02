// The check's results: every named check with its outcome, the figures it
// measured and the screenshots it took; printed as they come, and written as
// an HTML page with the PNG files beside it.
#pragma once

#include <string>
#include <vector>

#include "environment.h"
#include "screen.h"

enum class Outcome { pass, fail, skipped };

struct CheckResult {
    std::string group;  // which run: "owned, game first", "set-up", ...
    std::string name;
    Outcome outcome = Outcome::pass;
    std::string reason;  // why it failed or was skipped; what was seen when it passed
};

struct Figure {
    std::string group;
    std::string name;
    std::string value;
};

struct Screenshot {
    std::string group;
    std::string file;  // the PNG's name inside the report folder
    std::string caption;
};

struct Report {
    std::wstring folder;
    std::vector<CheckResult> checks;
    std::vector<Figure> figures;
    std::vector<Screenshot> screenshots;
};

void recordPass(Report& report, const std::string& group, const std::string& name, const std::string& seen = "");
void recordFail(Report& report, const std::string& group, const std::string& name, const std::string& reason);
void recordSkip(Report& report, const std::string& group, const std::string& name, const std::string& reason);
void recordFigure(Report& report, const std::string& group, const std::string& name, const std::string& value);
// Writes the picture as <file>.png into the report folder and lists it; the
// file's name, or empty when it could not be written.
std::string saveScreenshot(Report& report, const std::string& group, const std::string& file,
                           const std::string& caption, const Picture& picture);

bool writeHtmlReport(const Report& report, const EnvironmentFacts& facts, const std::string& title);
std::string summaryLine(const Report& report);
bool anyFailed(const Report& report);

// A text for the console, which Windows shows in its own code page: UTF-8
// written through WriteConsoleW when the output is a console.
void printLine(const std::string& line);
