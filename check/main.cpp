// gra-overlay-check.exe: proves on the machine it runs on that gra-overlay
// works there, or says what exactly fails. Run beside gra-overlay.exe (in the
// release's check folder) with no arguments; see "Checking on Windows" in the
// README.
#include <winsock2.h>
#include <windows.h>

#include <cwchar>
#include <string>
#include <vector>

#include "app/text.h"
#include "environment.h"
#include "files.h"
#include "game_role.h"
#include "report.h"
#include "scenario.h"

namespace {

const char* const usage =
    "usage: gra-overlay-check [--game TITLE [--game-class CLASS] [--mode child|owned]]\n"
    "                         [--program EXE] [--page FOLDER] [--report FOLDER]\n"
    "  no arguments: runs every check with a game window of its own, in both modes and both start orders\n"
    "  --game TITLE: runs the checks that need no game of its own against your running game\n"
    "  --program: gra-overlay.exe (default: beside this program, or one folder up)\n"
    "  --page: the check's page folder (default: page beside this program)\n"
    "  --report: where the report goes (default: gra-overlay-check-report in the current folder)\n"
    "Exit code 0 when no check failed, 1 when one did, 2 for a wrong command line.";

struct Arguments {
    CheckSettings settings;
    std::wstring reportFolder = L"gra-overlay-check-report";
    bool help = false;
    std::string problem;
};

std::wstring ownPath() {
    wchar_t buffer[MAX_PATH * 4];
    DWORD length = GetModuleFileNameW(nullptr, buffer, static_cast<DWORD>(sizeof buffer / sizeof buffer[0]));
    return std::wstring(buffer, length);
}

bool fileExists(const std::wstring& path) {
    DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

// Beside the check (a build's bin folder), or one folder up (the release's check folder).
std::wstring defaultProgram(const std::wstring& checkFolder) {
    std::wstring beside = checkFolder + L"\\gra-overlay.exe";
    std::wstring above = folderOf(checkFolder) + L"\\gra-overlay.exe";
    if (!fileExists(beside) && fileExists(above)) return above;
    return fileExists(beside) ? beside : above;
}

Arguments readArguments(int argc, wchar_t** argv) {
    Arguments arguments;
    CheckSettings& settings = arguments.settings;
    settings.checkExe = ownPath();
    std::wstring checkFolder = folderOf(settings.checkExe);
    settings.programExe = defaultProgram(checkFolder);
    settings.pageFolder = checkFolder + L"\\page";
    for (int i = 1; i < argc; ++i) {
        std::wstring name = argv[i];
        if (name == L"-h" || name == L"--help" || name == L"/?") {
            arguments.help = true;
            continue;
        }
        if (i + 1 >= argc) {
            arguments.problem = "missing value after " + wideToUtf8(name);
            break;
        }
        std::wstring value = argv[++i];
        if (name == L"--game") settings.existingTitle = value;
        else if (name == L"--game-class") settings.existingClass = value;
        else if (name == L"--mode") settings.existingMode = wideToUtf8(value);
        else if (name == L"--program") settings.programExe = fullPath(value);
        else if (name == L"--page") settings.pageFolder = fullPath(value);
        else if (name == L"--report") arguments.reportFolder = value;
        else arguments.problem = "unknown option " + wideToUtf8(name);
    }
    if (settings.existingMode != "child" && settings.existingMode != "owned") {
        arguments.problem = "--mode takes child or owned";
    }
    if (!settings.existingClass.empty() && settings.existingTitle.empty()) {
        arguments.problem = "--game-class needs --game";
    }
    arguments.reportFolder = fullPath(arguments.reportFolder);
    return arguments;
}

// Physical pixels everywhere, as the program sees them (it is per-monitor aware too).
void becomeDpiAware() {
    using SetContext = BOOL(WINAPI*)(HANDLE);
    auto set = reinterpret_cast<SetContext>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"user32.dll"), "SetProcessDpiAwarenessContext")));
    if (set) set(reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-4)));  // per monitor, version 2
}

std::string textOf(const std::string& path) {
    std::string bytes;
    readFileBytes(utf8ToWide(path), bytes);
    return bytes;
}

// The report folder holds only this run's files: earlier screenshots go.
bool prepareReportFolder(const std::wstring& folder) {
    if (!makeFolders(folder)) return false;
    deleteFilesMatching(folder, L"*.png");
    deleteFilesMatching(folder, L"index.html");
    return true;
}

// What must be in place before any run: a failure here is the reason for everything after.
std::string checkSetUp(const CheckSettings& settings, const EnvironmentFacts& facts, Report& report) {
    const std::string group = "set-up";
    std::string firstFailure;
    auto failWith = [&](const std::string& name, const std::string& reason) {
        recordFail(report, group, name, reason);
        if (firstFailure.empty()) firstFailure = name;
    };
    if (facts.programVersion.empty()) {
        failWith("gra-overlay.exe found", "no gra-overlay.exe at " + facts.programPath +
                                              " - run the check from the release's check folder, beside the program's "
                                              "folder, or name the program with --program");
    } else {
        recordPass(report, group, "gra-overlay.exe found", facts.programPath + ", version " + facts.programVersion);
    }
    if (!facts.runtimeProblem.empty()) {
        failWith("WebView2 runtime found", facts.runtimeProblem);
    } else {
        recordPass(report, group, "WebView2 runtime found", facts.runtimeFolder + ", version " + facts.runtimeVersion);
    }
    std::string page = wideToUtf8(settings.pageFolder);
    std::string index = textOf(page + "\\index.html");
    bool hasBox = index.find("id=\"box\"") != std::string::npos && index.find("data-hit") != std::string::npos;
    if (index.empty()) {
        failWith("check page present", "no index.html in " + page + " - put the release's check\\page folder back, or "
                                       "name the check's page with --page");
    } else if (!hasBox) {
        failWith("check page present", page + "\\index.html has no data-hit element with the id \"box\": it is not the "
                                       "check's own page - put the release's check\\page folder back");
    } else if (textOf(page + "\\gra-overlay.js").empty() || textOf(page + "\\check.js").empty()) {
        failWith("check page present", page + " lacks check.js or gra-overlay.js - put the release's check\\page folder back");
    } else {
        recordPass(report, group, "check page present", page);
    }
    return firstFailure;
}

std::wstring scratchFolder() {
    wchar_t temp[MAX_PATH + 1];
    DWORD length = GetTempPathW(MAX_PATH + 1, temp);
    std::wstring base = length ? std::wstring(temp, length) : std::wstring(L".\\");
    if (base.back() != L'\\') base.push_back(L'\\');
    return base + L"gra-overlay-check-" + std::to_wstring(GetCurrentProcessId());
}

void runChecks(CheckSettings& settings, const std::string& setUpFailure, Report& report) {
    if (!settings.existingTitle.empty()) {
        if (!setUpFailure.empty()) {
            skipRun(report, "your game", existingGameCheckNames(), "not run - the set-up check \"" + setUpFailure + "\" failed");
        } else {
            runWithExistingGame(settings, report);
        }
        return;
    }
    const RunPlan plans[] = {{false, true}, {false, false}, {true, true}, {true, false}};
    int runNumber = 0;
    for (const RunPlan& plan : plans) {
        ++runNumber;
        if (!setUpFailure.empty()) {
            skipRun(report, groupOf(plan), ownGameCheckNames(),
                    "not run - the set-up check \"" + setUpFailure + "\" failed");
            continue;
        }
        runWithOwnGame(settings, plan, runNumber, report);
    }
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    becomeDpiAware();
    if (argc == 5 && std::wstring(argv[1]) == L"--game-role") {
        return runGameRole(argv[2], argv[3], static_cast<DWORD>(wcstoul(argv[4], nullptr, 10)));
    }
    Arguments arguments = readArguments(argc, argv);
    if (arguments.help || !arguments.problem.empty()) {
        if (!arguments.problem.empty()) printLine("gra-overlay-check: " + arguments.problem);
        printLine(usage);
        return arguments.help && arguments.problem.empty() ? 0 : 2;
    }
    WSADATA wsa;
    WSAStartup(MAKEWORD(2, 2), &wsa);
    CheckSettings& settings = arguments.settings;
    EnvironmentFacts facts = readEnvironment(settings.programExe);
    settings.underWine = facts.underWine;
    settings.scratchFolder = scratchFolder();
    printLine("gra-overlay check " + facts.checkVersion);
    for (const auto& line : environmentLines(facts)) printLine("  " + line.first + ": " + line.second);
    Report report;
    report.folder = arguments.reportFolder;
    if (!prepareReportFolder(report.folder)) {
        printLine("gra-overlay-check: the report folder " + wideToUtf8(report.folder) + " cannot be made");
        return 1;
    }
    printLine("");
    printLine("set-up:");
    std::string setUpFailure = checkSetUp(settings, facts, report);
    runChecks(settings, setUpFailure, report);
    removeFolderTree(settings.scratchFolder);
    if (!writeHtmlReport(report, facts, "gra-overlay check")) {
        printLine("gra-overlay-check: the report " + wideToUtf8(report.folder) + "\\index.html could not be written");
    }
    WSACleanup();
    printLine("");
    printLine(summaryLine(report));
    return anyFailed(report) ? 1 : 0;
}
