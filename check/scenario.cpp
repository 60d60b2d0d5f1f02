#include "scenario.h"

#include <windows.h>

#include <cmath>
#include <cstdlib>
#include <cstdio>
#include <functional>

#include "app/text.h"
#include "files.h"
#include "game_role.h"
#include "link_watch.h"
#include "processes.h"
#include "screen.h"
#include "timing.h"

namespace {

const char* const checkFound = "game found and attached";
const char* const checkReady = "page ready and cover down";
const char* const checkShown = "box seen over the game after show";
const char* const checkTyped = "active: typed text reaches the page's field";
const char* const checkClickOutside = "passive: click outside the box reaches the game";
const char* const checkClickInside = "passive: click inside the box reaches the page";
const char* const checkFollows = "overlay follows a move and a resize";
const char* const checkMovedBox = "box seen after the move and resize";
const char* const checkAway = "away and back reach the page";
const char* const checkFile = "page file saved and loaded back";
const char* const checkWindow = "window borderless and framed";
const char* const checkHide = "hide answered";
const char* const checkBye = "bye ends the program with exit code 0";

// The check page's box (check/page/index.html), in the page's CSS pixels.
const Rgb boxColour{224, 32, 144};
const wchar_t* const hostWindowClass = L"GRAOverlayHost";
const wchar_t* const otherWindowClass = L"GraOverlayCheckOtherWindow";
const char* const typedText = "gra check";

struct Run {
    Run(const CheckSettings& s, Report& r) : settings(s), report(r) {}
    const CheckSettings& settings;
    Report& report;
    RunPlan plan;
    std::string group;
    std::string slug;  // names the run's screenshots
    std::wstring folder, docFolder, logPath, dataFolder;
    std::wstring title, windowClass;
    unsigned short port = 0;
    StartedProcess game, program;
    HWND gameWindow = nullptr;
    HWND hostWindow = nullptr;
    GameLinkEnd link;
    RECT boxCss{};  // left, top, right, bottom
    double scale = 1.0;
    double programStartedAt = 0;
    std::string stopReason;
    std::vector<std::string> done;
};

// -- recording ------------------------------------------------------------------

void pass(Run& run, const char* name, const std::string& seen) {
    run.done.push_back(name);
    recordPass(run.report, run.group, name, seen);
}

void fail(Run& run, const char* name, const std::string& reason) {
    run.done.push_back(name);
    recordFail(run.report, run.group, name, reason);
}

void skip(Run& run, const char* name, const std::string& reason) {
    run.done.push_back(name);
    recordSkip(run.report, run.group, name, reason);
}

// A failure after which the run cannot go on: the rest is skipped with it.
bool stop(Run& run, const char* name, const std::string& reason) {
    fail(run, name, reason);
    run.stopReason = std::string("not reached - \"") + name + "\" failed";
    return false;
}

void skipUnreached(Run& run, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        bool recorded = false;
        for (const std::string& done : run.done) recorded = recorded || done == name;
        if (!recorded) {
            run.done.push_back(name);
            recordSkip(run.report, run.group, name, run.stopReason.empty() ? "not reached" : run.stopReason);
        }
    }
}

std::string number(double value, const char* format = "%.0f") {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string rectText(const RECT& r) {
    char text[96];
    std::snprintf(text, sizeof text, "(%ld,%ld)-(%ld,%ld) %ldx%ld", r.left, r.top, r.right, r.bottom,
                  r.right - r.left, r.bottom - r.top);
    return text;
}

std::string lastLogLines(const Run& run, size_t count) {
    std::vector<std::string> messages = logMessages(run.logPath);
    std::string text;
    size_t first = messages.size() > count ? messages.size() - count : 0;
    for (size_t i = first; i < messages.size(); ++i) text += (text.empty() ? "\"" : "; \"") + messages[i] + "\"";
    return text.empty() ? "the program's log is empty" : "the program's log ends " + text;
}

// -- windows and the screen ---------------------------------------------------------

RECT windowRectOf(HWND window) {
    RECT r{};
    GetWindowRect(window, &r);
    return r;
}

RECT clientOnScreen(HWND window) {
    RECT r{};
    GetClientRect(window, &r);
    POINT origin{0, 0};
    ClientToScreen(window, &origin);
    OffsetRect(&r, origin.x, origin.y);
    return r;
}

bool sameRect(const RECT& a, const RECT& b) { return EqualRect(&a, &b) != FALSE; }

struct OwnedSearch {
    HWND game;
    HWND found;
};

BOOL CALLBACK findOwnedHost(HWND window, LPARAM context) {
    auto* search = reinterpret_cast<OwnedSearch*>(context);
    wchar_t name[64] = L"";
    GetClassNameW(window, name, 64);
    if (lstrcmpW(name, hostWindowClass) == 0 && GetWindow(window, GW_OWNER) == search->game) {
        search->found = window;
        return FALSE;
    }
    return TRUE;
}

HWND findHostWindow(const Run& run) {
    if (!run.gameWindow) return nullptr;
    if (run.plan.childMode) return FindWindowExW(run.gameWindow, nullptr, hostWindowClass, nullptr);
    OwnedSearch search{run.gameWindow, nullptr};
    EnumWindows(findOwnedHost, reinterpret_cast<LPARAM>(&search));
    return search.found;
}

bool hostMatchesGame(const Run& run) {
    return run.hostWindow && IsWindow(run.hostWindow) &&
           sameRect(windowRectOf(run.hostWindow), clientOnScreen(run.gameWindow));
}

double monitorScaleOf(HWND window) {
    UINT dpi = monitorDpi(MonitorFromWindow(window, MONITOR_DEFAULTTONEAREST));
    return dpi ? dpi / 96.0 : 1.0;
}

bool pixelsVisible(const Run& run, std::string& why) {
    if (run.plan.childMode && run.settings.underWine) {
        why = "Wine does not draw a window that is the child of another process's window, so the overlay in child "
              "mode cannot be seen on screen under Wine (on Windows it can: run the check there)";
        return false;
    }
    return true;
}

RECT boxOnScreen(const Run& run) {
    RECT client = clientOnScreen(run.gameWindow);
    auto scaled = [&run](LONG css) { return static_cast<LONG>(std::lround(css * run.scale)); };
    return RECT{client.left + scaled(run.boxCss.left), client.top + scaled(run.boxCss.top),
                client.left + scaled(run.boxCss.right), client.top + scaled(run.boxCss.bottom)};
}

RECT captureArea(const Run& run) {
    RECT area = windowRectOf(run.gameWindow);
    InflateRect(&area, 16, 16);
    return area;
}

// Moves a point off the edges of the game's pattern squares, where a pixel
// rounding would make either colour right.
LONG offCellEdge(LONG clientCoordinate) {
    LONG within = ((clientCoordinate % patternCell) + patternCell) % patternCell;
    if (within < 5) return clientCoordinate + 6;
    if (within > patternCell - 6) return clientCoordinate - 6;
    return clientCoordinate;
}

std::vector<std::string> boxProblems(const Run& run, const Picture& picture, bool patternAround) {
    std::vector<std::string> problems;
    RECT box = boxOnScreen(run);
    RECT client = clientOnScreen(run.gameWindow);
    LONG w = box.right - box.left, h = box.bottom - box.top;
    // Inside: the upper part of the box; its text field lies in the lower part.
    for (double fy : {0.12, 0.3, 0.5}) {
        for (double fx : {0.15, 0.5, 0.85}) {
            POINT p{box.left + static_cast<LONG>(w * fx), box.top + static_cast<LONG>(h * fy)};
            Rgb seen;
            if (!colourAt(picture, p, seen) || !colourNear(seen, boxColour, 28)) {
                problems.push_back("inside the box at (" + std::to_string(p.x) + "," + std::to_string(p.y) + ") " +
                                   colourText(seen) + " instead of the box's " + colourText(boxColour));
            }
        }
    }
    LONG d = static_cast<LONG>(std::lround(24 * run.scale));
    std::vector<POINT> around = {{box.left - d, box.top + h / 2}, {box.right + d, box.top + h / 2},
                                 {box.left + w / 2, box.top - d}, {box.left + w / 2, box.bottom + d},
                                 {box.left - d, box.top - d},     {box.right + d, box.bottom + d},
                                 {client.left + 24, client.top + 24}, {client.right - 24, client.bottom - 24}};
    for (POINT p : around) {
        p.x = client.left + offCellEdge(p.x - client.left);
        p.y = client.top + offCellEdge(p.y - client.top);
        if (!PtInRect(&client, p)) continue;
        Rgb seen;
        if (!colourAt(picture, p, seen)) continue;
        if (patternAround) {
            Rgb expected = patternColourAt(p.x - client.left, p.y - client.top);
            if (!colourNear(seen, expected, 16)) {
                problems.push_back("beside the box at (" + std::to_string(p.x) + "," + std::to_string(p.y) + ") " +
                                   colourText(seen) + " instead of the game's " + colourText(expected));
            }
        } else if (colourNear(seen, boxColour, 28)) {
            problems.push_back("beside the box at (" + std::to_string(p.x) + "," + std::to_string(p.y) +
                               ") the box's colour: the overlay is not cut to its box");
        }
    }
    return problems;
}

std::string firstProblems(const std::vector<std::string>& problems) {
    std::string text;
    for (size_t i = 0; i < problems.size() && i < 3; ++i) text += (i ? "; " : "") + problems[i];
    if (problems.size() > 3) text += "; and " + std::to_string(problems.size() - 3) + " more points";
    return text;
}

// Looks at the screen until it shows the box where it belongs, or the deadline passes.
bool waitForBox(const Run& run, Deadline deadline, bool patternAround, Picture& picture,
                std::vector<std::string>& problems) {
    for (;;) {
        DWORD error = 0;
        if (!captureScreen(captureArea(run), picture, error)) {
            problems = {"the screen could not be read (error " + std::to_string(error) + ")"};
        } else {
            problems = boxProblems(run, picture, patternAround);
            if (problems.empty()) return true;
        }
        if (deadline.passed(nowMs())) return false;
        // A copy of the screen is costly; the page draws on the same cores.
        pollPause(60);
    }
}

// -- input, as a player's mouse and keyboard give it ---------------------------------

void clickAt(POINT screen) {
    SetCursorPos(screen.x, screen.y);
    RECT desktop = virtualScreen();
    INPUT inputs[3]{};
    inputs[0].type = INPUT_MOUSE;
    inputs[0].mi.dx = MulDiv(screen.x - desktop.left, 65535, desktop.right - desktop.left - 1);
    inputs[0].mi.dy = MulDiv(screen.y - desktop.top, 65535, desktop.bottom - desktop.top - 1);
    inputs[0].mi.dwFlags = MOUSEEVENTF_MOVE | MOUSEEVENTF_ABSOLUTE | MOUSEEVENTF_VIRTUALDESK;
    inputs[1].type = INPUT_MOUSE;
    inputs[1].mi.dwFlags = MOUSEEVENTF_LEFTDOWN;
    inputs[2].type = INPUT_MOUSE;
    inputs[2].mi.dwFlags = MOUSEEVENTF_LEFTUP;
    SendInput(3, inputs, sizeof(INPUT));
}

void typeText(const std::string& text) {
    std::vector<INPUT> inputs;
    for (char c : text) {
        WORD key = c == ' ' ? static_cast<WORD>(VK_SPACE) : static_cast<WORD>(LOBYTE(VkKeyScanW(static_cast<wchar_t>(c))));
        for (DWORD flags : {DWORD{0}, DWORD{KEYEVENTF_KEYUP}}) {
            INPUT input{};
            input.type = INPUT_KEYBOARD;
            input.ki.wVk = key;
            input.ki.dwFlags = flags;
            inputs.push_back(input);
        }
    }
    SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT));
}

bool waitForeground(HWND window, Deadline deadline) {
    while (GetForegroundWindow() != window) {
        if (deadline.passed(nowMs())) return false;
        pollPause(20);
    }
    return true;
}

void bringGameToFront(const Run& run) {
    if (GetForegroundWindow() == run.gameWindow) return;
    AllowSetForegroundWindow(run.game.id ? run.game.id : ASFW_ANY);
    askGameToFront(run.gameWindow);
    waitForeground(run.gameWindow, deadlineIn(nowMs(), 5000));
}

// The other application's window that comes in front of the game.
class OtherWindow {
public:
    explicit OtherWindow(const RECT& place) {
        static bool registered = false;
        if (!registered) {
            WNDCLASSEXW wc{};
            wc.cbSize = sizeof wc;
            wc.lpfnWndProc = DefWindowProcW;
            wc.hInstance = GetModuleHandleW(nullptr);
            wc.hbrBackground = static_cast<HBRUSH>(GetStockObject(GRAY_BRUSH));
            wc.lpszClassName = otherWindowClass;
            registered = RegisterClassExW(&wc) != 0;
        }
        window_ = CreateWindowExW(0, otherWindowClass, L"gra-overlay check: another application", WS_POPUP | WS_BORDER,
                                  place.left, place.top, place.right - place.left, place.bottom - place.top, nullptr,
                                  nullptr, GetModuleHandleW(nullptr), nullptr);
        if (window_) ShowWindow(window_, SW_SHOW);
    }
    ~OtherWindow() { close(); }
    OtherWindow(const OtherWindow&) = delete;
    OtherWindow& operator=(const OtherWindow&) = delete;
    HWND get() const { return window_; }
    void close() {
        if (window_) DestroyWindow(window_);
        window_ = nullptr;
        pumpMessages();
    }

private:
    HWND window_ = nullptr;
};

// -- what the page and the program say ---------------------------------------------------

int waitHeard(GameLinkEnd& end, size_t from, Deadline deadline, const std::function<bool(const gra_link_report&)>& wanted) {
    for (;;) {
        end.listen();
        const std::vector<Heard>& heard = end.heard();
        for (size_t i = from; i < heard.size(); ++i) {
            if (wanted(heard[i].report)) return static_cast<int>(i);
        }
        if (deadline.passed(nowMs())) return -1;
        gra_link_wait(end.link(), 20);
        pumpMessages();
    }
}

std::string heardFromPage(const GameLinkEnd& end, size_t from) {
    std::string text;
    for (size_t i = from; i < end.heard().size(); ++i) {
        if (!text.empty()) text += ", ";
        text += std::string("\"") + end.heard()[i].report.text + "\"";
    }
    return text.empty() ? "nothing" : text;
}

void sendToPage(Run& run, const std::string& json) { gra_link_page(run.link.link(), json.c_str()); }

std::string waitLogMessage(const Run& run, const std::string& start, const std::string& part, Deadline deadline) {
    for (;;) {
        std::string found = findLogMessage(logMessages(run.logPath), start, part);
        if (!found.empty() || deadline.passed(nowMs())) return found;
        pollPause(100);
    }
}

// -- the steps --------------------------------------------------------------------------------

void prepareRun(Run& run, int runNumber) {
    std::wstring number = std::to_wstring(runNumber);
    run.folder = run.settings.scratchFolder + L"\\run-" + number;
    run.docFolder = run.folder + L"\\Documents";
    run.dataFolder = run.folder + L"\\browser-data";
    run.logPath = run.folder + L"\\gra_overlay.log";
    makeFolders(run.docFolder);
    run.title = L"gra-overlay check game " + std::to_wstring(GetCurrentProcessId()) + L"-" + number;
    run.windowClass = L"GraOverlayCheckGame" + number;
    run.port = freeUdpPort();
}

const char* const runtimeFailures[] = {"WebView2 environment failed", "CreateCoreWebView2EnvironmentWithOptions",
                                       "WebView2 controller failed", "no WebView2 runtime was found"};

std::string browserFailure(const Run& run) {
    std::vector<std::string> messages = logMessages(run.logPath);
    for (const char* start : runtimeFailures) {
        std::string found = findLogMessage(messages, start);
        if (!found.empty()) return found;
    }
    return std::string();
}

bool startOwnGame(Run& run) {
    DWORD error = 0;
    if (!startGameRole(run.settings.checkExe, run.title, run.windowClass, run.game, error)) {
        return stop(run, checkFound, "the check's own game could not be started (error " + std::to_string(error) + ")");
    }
    Deadline deadline = deadlineIn(nowMs(), 20000);
    while (!(run.gameWindow = FindWindowW(run.windowClass.c_str(), run.title.c_str()))) {
        if (deadline.passed(nowMs())) return stop(run, checkFound, "the check's own game window did not appear in 20 s");
        pollPause(50);
    }
    bringGameToFront(run);
    return true;
}

bool launchProgram(Run& run) {
    ProgramOptions options;
    options.program = wideToUtf8(run.settings.programExe);
    options.web = wideToUtf8(run.settings.pageFolder);
    options.doc = wideToUtf8(run.docFolder);
    options.log = wideToUtf8(run.logPath);
    options.data = wideToUtf8(run.dataFolder);
    options.game = wideToUtf8(run.title);
    options.gameClass = wideToUtf8(run.windowClass);
    options.mode = run.plan.childMode ? "child" : "owned";
    options.port = run.port;
    std::string problem;
    run.programStartedAt = preciseMs();
    if (!startProgram(options, run.program, problem)) {
        return stop(run, checkFound, "gra-overlay.exe could not be started: " + problem);
    }
    return true;
}

bool openLink(Run& run) {
    std::string problem;
    if (!run.link.open(run.port, problem)) return stop(run, checkFound, problem);
    int mode = -1;
    if (gra_link_wait_ready(run.link.link(), 30000, &mode) != 1) {
        DWORD code = 0;
        std::string ended = processEnded(run.program, 0, code) ? " (it ended with exit code " + std::to_string(code) + ")" : "";
        return stop(run, checkFound, "the program did not answer \"GRAO state\" on UDP port " +
                                         std::to_string(run.port) + " within 30 s" + ended + " - " +
                                         lastLogLines(run, 3));
    }
    return true;
}

bool startInOrder(Run& run) {
    if (run.plan.gameFirst) return startOwnGame(run) && launchProgram(run) && openLink(run);
    // The link is opened at once, so that the page's word that it is ready finds the check.
    if (!launchProgram(run) || !openLink(run)) return false;
    // The web view is made while there is no game to show it over; the game comes once the page
    // is up (the program's cover gives the page 10 s from the program's start, game or not).
    Deadline pageDeadline = deadlineIn(nowMs(), 60000);
    while (findGameCommand(run.link, "page_ready", 0) < 0 && !pageDeadline.passed(nowMs())) {
        run.link.listen();
        if (!browserFailure(run).empty()) break;
        // The log is read a few times a second only: the browser is starting on the same cores.
        pollPause(200);
    }
    // The game appears a few seconds after that: this pause is the start order itself.
    Deadline later = deadlineIn(nowMs(), 3000);
    while (!later.passed(nowMs())) pollPause(50);
    return startOwnGame(run);
}

bool checkFoundAndAttached(Run& run) {
    Deadline deadline = deadlineIn(nowMs(), 20000);
    std::string found;
    for (;;) {
        found = findLogMessage(logMessages(run.logPath), "game window ", " found (");
        run.hostWindow = findHostWindow(run);
        if ((!found.empty() && run.hostWindow) || deadline.passed(nowMs())) break;
        pollPause(100);
    }
    const char* relation = run.plan.childMode ? "a child of" : "owned by";
    if (found.empty()) {
        return stop(run, checkFound, "the program did not find the game window \"" + wideToUtf8(run.title) +
                                         "\" of class \"" + wideToUtf8(run.windowClass) + "\" within 20 s - " +
                                         lastLogLines(run, 2));
    }
    if (!run.hostWindow) {
        return stop(run, checkFound, "the program logged \"" + found + "\" but no overlay window is " + relation +
                                         " the game window");
    }
    pass(run, checkFound, "\"" + found + "\"; the overlay window is " + relation + " it");
    return true;
}

bool readBox(Run& run, const std::string& text) {
    long x = 0, y = 0, w = 0, h = 0;
    if (std::sscanf(text.c_str(), "%ld %ld %ld %ld", &x, &y, &w, &h) != 4 || w <= 0 || h <= 0) return false;
    run.boxCss = RECT{x, y, x + w, y + h};
    return true;
}

int waitPageReady(Run& run, std::string& problem) {
    Deadline deadline = deadlineIn(nowMs(), 90000);
    ULONGLONG nextPing = nowMs() + 1000;
    ULONGLONG nextLogRead = nowMs();
    for (;;) {
        run.link.listen();
        int ready = findGameCommand(run.link, "page_ready", 0);
        if (ready < 0) ready = findGameCommand(run.link, "pong", 0);
        if (ready >= 0) return ready;
        if (nowMs() < nextLogRead) {
            gra_link_wait(run.link.link(), 20);
            pumpMessages();
            continue;
        }
        // The log is read a few times a second only: the browser is starting on the same cores.
        nextLogRead = nowMs() + 250;
        std::string failure = browserFailure(run);
        DWORD code = 0;
        if (!failure.empty()) {
            problem = "the program could not start its browser: \"" + failure +
                      "\" - install or repair the WebView2 runtime";
        } else if (processEnded(run.program, 0, code)) {
            problem = "the program ended (exit code " + std::to_string(code) + ") before the page was ready - " +
                      lastLogLines(run, 3);
        } else if (deadline.passed(nowMs())) {
            problem = findLogMessage(logMessages(run.logPath), "page ready").empty()
                          ? "the page did not say it was ready within 90 s - " + lastLogLines(run, 3)
                          : "the program logged \"page ready\" but the page's game commands never reached the game";
        }
        if (!problem.empty()) return -1;
        if (nowMs() >= nextPing) {
            // In case the page was ready before the program knew where the game is.
            sendToPage(run, "{\"type\":\"check\",\"op\":\"ping\"}");
            nextPing = nowMs() + 1000;
        }
        gra_link_wait(run.link.link(), 20);
        pumpMessages();
    }
}

bool checkPageReady(Run& run) {
    std::string problem;
    int ready = waitPageReady(run, problem);
    if (ready < 0) return stop(run, checkReady, problem);
    const Heard& heard = run.link.heard()[static_cast<size_t>(ready)];
    double startToReady = heard.at - run.programStartedAt;
    recordFigure(run.report, run.group, "start to page ready",
                 number(startToReady) + " ms" + (run.plan.gameFirst ? "" : " (the program started first; its game came 3 s after the page was ready)"));
    if (!readBox(run, heard.report.arg)) {
        return stop(run, checkReady, "the page in " + wideToUtf8(run.settings.pageFolder) +
                                         " has no data-hit box with the id \"box\" (it said \"" + heard.report.arg +
                                         "\"): it is not the check's own page - put check\\page from the release back");
    }
    std::string cover = waitLogMessage(run, "cover off (", "", deadlineIn(nowMs(), 15000));
    if (cover != "cover off (the page has drawn)") {
        return stop(run, checkReady, cover.empty()
                                         ? "the page is ready but the program's cover never came down"
                                         : "the cover came down by the program's deadline, not because the page "
                                           "drew (\"" + cover + "\"): the browser is too slow to start or to draw");
    }
    run.scale = monitorScaleOf(run.gameWindow);
    pass(run, checkReady, "ready " + number(startToReady) + " ms after the start; \"" + cover + "\"; the box " +
                              rectText(run.boxCss) + " CSS px, the monitor's scale " + number(run.scale, "%.2f"));
    return true;
}

void checkShow(Run& run, bool patternAround) {
    size_t from = run.link.heard().size();
    double sent = preciseMs();
    gra_link_show(run.link.link(), nullptr);
    if (waitForStateReport(run.link, GRA_LINK_MODE_ACTIVE, from, deadlineIn(nowMs(), 10000)) < 0) {
        fail(run, checkShown, "the program did not answer \"show\" with \"state active\" within 10 s");
        return;
    }
    std::string why;
    Picture picture;
    if (!pixelsVisible(run, why)) {
        DWORD error = 0;
        if (captureScreen(captureArea(run), picture, error)) {
            saveScreenshot(run.report, run.group, run.slug + "-shown",
                           "after \"show\" in child mode under Wine: the game without the overlay, which Wine does "
                           "not draw (the check does not count this)", picture);
        }
        skip(run, checkShown, why);
        recordFigure(run.report, run.group, "show to the box on screen", "not measured - the box cannot be seen here");
        return;
    }
    std::vector<std::string> problems;
    bool seen = waitForBox(run, deadlineIn(nowMs(), 15000), patternAround, picture, problems);
    double showToBox = preciseMs() - sent;
    RECT box = boxOnScreen(run);
    std::string file = saveScreenshot(run.report, run.group, run.slug + "-shown",
                                      "after \"show\": the check page's box expected at " + rectText(box) +
                                          (seen ? ", seen" : ", NOT seen as expected"),
                                      picture);
    if (!seen) {
        fail(run, checkShown, firstProblems(problems) + " (screenshot " + file + ")");
        return;
    }
    recordFigure(run.report, run.group, "show to the box on screen", number(showToBox) + " ms");
    pass(run, checkShown, "the box in " + colourText(boxColour) + " at " + rectText(box) +
                              (patternAround ? " with the game's pattern around it" : "") + " (" + file + ")");
}

void checkTyping(Run& run) {
    if (!run.plan.childMode) {
        skip(run, checkTyped, "owned mode leaves the keyboard with the game: the program never moves the focus into "
                              "its window there (child mode gives the page the keyboard)");
        return;
    }
    bringGameToFront(run);
    RECT box = boxOnScreen(run);
    POINT field{(box.left + box.right) / 2, box.bottom - static_cast<LONG>(std::lround(22 * run.scale))};
    std::wstring gameKeysBefore;
    readGameKeys(run.gameWindow, gameKeysBefore);
    size_t from = run.link.heard().size();
    // A player clicks into the field, then types; the keys go out once the page has the click.
    clickAt(field);
    if (waitForGameCommand(run.link, "box_click", from, deadlineIn(nowMs(), 15000)) < 0) {
        fail(run, checkTyped, "a click into the page's text field at (" + std::to_string(field.x) + "," +
                                  std::to_string(field.y) + ") did not reach the page within 15 s");
        return;
    }
    typeText(typedText);
    int typed = waitHeard(run.link, from, deadlineIn(nowMs(), 20000), [](const gra_link_report& r) {
        return r.kind == GRA_LINK_REPORT_GAME && std::string(r.cmd) == "typed" && std::string(r.arg) == typedText;
    });
    std::wstring gameKeys;
    readGameKeys(run.gameWindow, gameKeys);
    std::string gameGot = wideToUtf8(gameKeys.substr(gameKeysBefore.size() <= gameKeys.size() ? gameKeysBefore.size() : 0));
    if (typed < 0) {
        fail(run, checkTyped, std::string("the page's field did not get \"") + typedText + "\" within 20 s; the page said " +
                                  heardFromPage(run.link, from) + ", the game got the keys \"" + gameGot + "\"");
        return;
    }
    pass(run, checkTyped, std::string("the field holds \"") + typedText + "\"; the game got " +
                              (gameGot.empty() ? "no keys" : "the keys \"" + gameGot + "\""));
}

void measureRoundTrip(Run& run) {
    std::vector<double> samples;
    int lost = 0;
    for (int round = 0; round < 200; ++round) {
        double sent = preciseMs();
        gra_link_state(run.link.link());
        for (;;) {
            Heard heard;
            if (gra_link_next_report(run.link.link(), &heard.report, 2000) != 1) {
                ++lost;
                break;
            }
            heard.at = preciseMs();
            if (heard.report.kind == GRA_LINK_REPORT_STATE) {
                samples.push_back(heard.at - sent);
                break;
            }
            run.link.keep(heard);
        }
    }
    recordFigure(run.report, run.group, "\"GRAO state\" round trip",
                 "median " + number(percentile(samples, 0.5), "%.3f") + " ms, p99 " +
                     number(percentile(samples, 0.99), "%.3f") + " ms (" + std::to_string(samples.size()) +
                     " rounds" + (lost ? ", " + std::to_string(lost) + " unanswered" : "") + ")");
}

POINT clientPoint(const Run& run, LONG x, LONG y) {
    RECT client = clientOnScreen(run.gameWindow);
    return POINT{client.left + x, client.top + y};
}

void tryClickOutside(Run& run) {
    RECT client = clientOnScreen(run.gameWindow);
    POINT target{client.right - client.left - 90, client.bottom - client.top - 70};
    std::vector<POINT> before, after;
    readGameClicks(run.gameWindow, before);
    clickAt(clientPoint(run, target.x, target.y));
    Deadline deadline = deadlineIn(nowMs(), 15000);
    for (;;) {
        readGameClicks(run.gameWindow, after);
        if (after.size() > before.size() || deadline.passed(nowMs())) break;
        pollPause(30);
    }
    if (after.size() <= before.size()) {
        fail(run, checkClickOutside, "a click at the game's client point (" + std::to_string(target.x) + "," +
                                         std::to_string(target.y) + "), outside the box, did not reach the game");
        return;
    }
    POINT got = after.back();
    if (std::abs(got.x - target.x) > 2 || std::abs(got.y - target.y) > 2) {
        fail(run, checkClickOutside, "the game got the click at (" + std::to_string(got.x) + "," +
                                         std::to_string(got.y) + ") instead of (" + std::to_string(target.x) + "," +
                                         std::to_string(target.y) + ")");
        return;
    }
    pass(run, checkClickOutside, "the game got the click at (" + std::to_string(got.x) + "," + std::to_string(got.y) + ")");
}

void tryClickInside(Run& run) {
    RECT box = boxOnScreen(run);
    POINT target{(box.left + box.right) / 2, box.top + static_cast<LONG>(std::lround(30 * run.scale))};
    std::vector<POINT> before, after;
    readGameClicks(run.gameWindow, before);
    size_t from = run.link.heard().size();
    clickAt(target);
    int clicked = waitForGameCommand(run.link, "box_click", from, deadlineIn(nowMs(), 15000));
    readGameClicks(run.gameWindow, after);
    if (clicked < 0) {
        fail(run, checkClickInside, "a click inside the box at (" + std::to_string(target.x) + "," +
                                        std::to_string(target.y) + ") did not reach the page" +
                                        (after.size() > before.size() ? "; the game got it" : ""));
        return;
    }
    if (after.size() > before.size()) {
        fail(run, checkClickInside, "the page got the click, but the game got it too");
        return;
    }
    pass(run, checkClickInside, std::string("the page got the click at CSS (") + run.link.heard()[clicked].report.arg +
                                    ") and the game did not");
}

void checkClicks(Run& run) {
    size_t from = run.link.heard().size();
    sendToPage(run, "{\"type\":\"check\",\"op\":\"mode\",\"mode\":\"passive\"}");
    if (waitForStateReport(run.link, GRA_LINK_MODE_PASSIVE, from, deadlineIn(nowMs(), 10000)) < 0) {
        std::string reason = "the page asked for passive mode but the program did not report \"state passive\" in 10 s";
        fail(run, checkClickOutside, reason);
        fail(run, checkClickInside, reason);
        return;
    }
    tryClickOutside(run);
    tryClickInside(run);
}

void checkFollowing(Run& run) {
    RECT before = windowRectOf(run.gameWindow);
    SetWindowPos(run.gameWindow, nullptr, before.left + 60, before.top + 40, before.right - before.left - 100,
                 before.bottom - before.top - 60, SWP_NOZORDER | SWP_NOACTIVATE);
    Deadline deadline = deadlineIn(nowMs(), 10000);
    while (!hostMatchesGame(run) && !deadline.passed(nowMs())) pollPause(30);
    RECT client = clientOnScreen(run.gameWindow);
    if (!hostMatchesGame(run)) {
        fail(run, checkFollows, "after the game window moved and shrank, its client area is " + rectText(client) +
                                    " but the overlay window is " + rectText(windowRectOf(run.hostWindow)));
    } else {
        pass(run, checkFollows, "the overlay window is the game's new client area " + rectText(client));
    }
    std::string why;
    if (!pixelsVisible(run, why)) {
        skip(run, checkMovedBox, why);
        return;
    }
    Picture picture;
    std::vector<std::string> problems;
    bool seen = waitForBox(run, deadlineIn(nowMs(), 10000), true, picture, problems);
    std::string file = saveScreenshot(run.report, run.group, run.slug + "-moved",
                                      "after the game moved by (60,40) and shrank by 100x60, in active mode: the box "
                                      "expected at " + rectText(boxOnScreen(run)) + (seen ? ", seen" : ", NOT seen"),
                                      picture);
    if (seen) {
        pass(run, checkMovedBox, "the box at " + rectText(boxOnScreen(run)) + " with the game around it (" + file + ")");
    } else {
        fail(run, checkMovedBox, firstProblems(problems) + " (screenshot " + file + ")");
    }
}

void checkAwayAndBack(Run& run) {
    RECT client = clientOnScreen(run.gameWindow);
    RECT place{client.left + 40, client.top + 40, client.left + 400, client.top + 260};
    size_t from = run.link.heard().size();
    OtherWindow other(place);
    askGameToLetGo(run.gameWindow);
    SetForegroundWindow(other.get());
    int away = waitForGameCommand(run.link, "away", from, deadlineIn(nowMs(), 10000));
    bool otherInFront = GetForegroundWindow() == other.get();
    other.close();
    bringGameToFront(run);
    if (away < 0) {
        fail(run, checkAway, std::string("another window came in front (") +
                                 (otherInFront ? "it was the foreground window" : "Windows did not let it in front") +
                                 ") but the page did not hear \"away\" within 10 s; it said " +
                                 heardFromPage(run.link, from));
        return;
    }
    int back = waitForGameCommand(run.link, "back", static_cast<size_t>(away) + 1, deadlineIn(nowMs(), 10000));
    if (back < 0) {
        fail(run, checkAway, "the page heard \"away\" but not \"back\" within 10 s after the game came back in front");
        return;
    }
    const std::vector<Heard>& heard = run.link.heard();
    pass(run, checkAway, "\"away\" and then \"back\" " +
                             number(heard[static_cast<size_t>(back)].at - heard[static_cast<size_t>(away)].at) +
                             " ms later");
}

void checkPageFile(Run& run) {
    std::string text = "gra-overlay check " + run.slug + " " + std::to_string(nowMs() % 1000000);
    size_t from = run.link.heard().size();
    sendToPage(run, "{\"type\":\"check\",\"op\":\"save\",\"text\":\"" + text + "\"}");
    int answer = waitHeard(run.link, from, deadlineIn(nowMs(), 10000), [](const gra_link_report& r) {
        return r.kind == GRA_LINK_REPORT_GAME && (std::string(r.cmd) == "file" || std::string(r.cmd) == "file_failed");
    });
    std::string onDisk;
    readFileBytes(run.docFolder + L"\\gra_overlay.json", onDisk);
    if (answer < 0) {
        fail(run, checkFile, "the page did not report its save and load within 10 s; it said " + heardFromPage(run.link, from));
        return;
    }
    const gra_link_report& report = run.link.heard()[static_cast<size_t>(answer)].report;
    if (std::string(report.cmd) == "file_failed") {
        fail(run, checkFile, std::string("the page's ") + report.arg + " of gra_overlay.json failed (documents folder " +
                                 wideToUtf8(run.docFolder) + ")");
    } else if (report.arg != text || onDisk != text) {
        fail(run, checkFile, "saved \"" + text + "\", loaded back \"" + report.arg + "\", the file holds \"" + onDisk + "\"");
    } else {
        pass(run, checkFile, "gra_overlay.json saved and loaded back whole");
    }
}

bool waitWindowState(Run& run, const RECT& wanted, bool popup, Deadline deadline) {
    for (;;) {
        LONG style = GetWindowLongW(run.gameWindow, GWL_STYLE);
        bool styleRight = popup ? (style & WS_POPUP) != 0 && (style & WS_CAPTION) != WS_CAPTION
                                : (style & WS_CAPTION) == WS_CAPTION;
        if (styleRight && sameRect(windowRectOf(run.gameWindow), wanted) && hostMatchesGame(run)) return true;
        if (deadline.passed(nowMs())) return false;
        pollPause(30);
    }
}

void checkWindowCommands(Run& run) {
    RECT framed = windowRectOf(run.gameWindow);
    MONITORINFO monitor{};
    monitor.cbSize = sizeof monitor;
    GetMonitorInfoW(MonitorFromWindow(run.gameWindow, MONITOR_DEFAULTTONEAREST), &monitor);
    gra_link_window(run.link.link(), 1);
    bool borderless = waitWindowState(run, monitor.rcMonitor, true, deadlineIn(nowMs(), 10000));
    std::string after = rectText(windowRectOf(run.gameWindow));
    std::string overlay = rectText(windowRectOf(run.hostWindow));
    gra_link_window(run.link.link(), 0);
    bool framedAgain = waitWindowState(run, framed, false, deadlineIn(nowMs(), 10000));
    if (!borderless) {
        fail(run, checkWindow, "after \"window borderless\" the game window is " + after + " and the overlay " + overlay +
                                   " (expected the whole monitor " + rectText(monitor.rcMonitor) + ", the overlay on its client area)");
    } else if (!framedAgain) {
        fail(run, checkWindow, "after \"window framed\" the game window is " + rectText(windowRectOf(run.gameWindow)) +
                                   " (expected " + rectText(framed) + " with its frame, the overlay on its client area)");
    } else {
        pass(run, checkWindow, "borderless over the whole monitor " + rectText(monitor.rcMonitor) + ", then framed again at " +
                                   rectText(framed) + ", the overlay on the client area each time");
    }
}

// Wine leaves a process's private bytes at 0: said so rather than shown as a figure.
std::string privateText(const ProcessMemory& memory) {
    return memory.privateMiB > 0 ? formatMiB(memory.privateMiB) : std::string("not reported by the system");
}

void measureMemory(Run& run) {
    ProcessMemory program = memoryOf(run.program.id);
    recordFigure(run.report, run.group, "memory of gra-overlay.exe",
                 program.known ? "working set " + formatMiB(program.workingSetMiB) + ", private " + privateText(program)
                               : "not readable");
    std::string line = findLogMessage(logMessages(run.logPath), "WebView2 browser process pid ");
    unsigned long browserId = 0;
    if (line.empty() || std::sscanf(line.c_str(), "WebView2 browser process pid %lu", &browserId) != 1) {
        recordFigure(run.report, run.group, "memory of the browser processes", "not measured - the program logged no browser process id");
        return;
    }
    std::vector<DWORD> tree = processTree(static_cast<DWORD>(browserId));
    if (tree.empty()) {
        recordFigure(run.report, run.group, "memory of the browser processes",
                     "not measured - the browser process " + std::to_string(browserId) + " is not a process here" +
                         (run.settings.underWine ? " (under Wine the Chromium-backed runtime runs the browser on the "
                                                   "Linux side, and reports its Linux process id)"
                                                 : ""));
        return;
    }
    ProcessMemory total;
    int readable = 0;
    for (DWORD id : tree) {
        ProcessMemory one = memoryOf(id);
        if (!one.known) continue;
        ++readable;
        total.workingSetMiB += one.workingSetMiB;
        total.privateMiB += one.privateMiB;
    }
    recordFigure(run.report, run.group, "memory of the browser processes",
                 std::to_string(tree.size()) + " processes (browser pid " + std::to_string(browserId) + ", " +
                     std::to_string(readable) + " readable): working set " + formatMiB(total.workingSetMiB) +
                     ", private " + privateText(total));
}

void tryHide(Run& run) {
    size_t from = run.link.heard().size();
    double sent = preciseMs();
    gra_link_hide(run.link.link());
    int hidden = waitForStateReport(run.link, GRA_LINK_MODE_HIDDEN, from, deadlineIn(nowMs(), 10000));
    if (hidden < 0) {
        fail(run, checkHide, "no \"state hidden\" within 10 s of \"hide\" (the program asks the page to close; the page "
                             "hides itself); heard " + heardFromPage(run.link, from));
        return;
    }
    pass(run, checkHide, "\"state hidden\" " + number(run.link.heard()[static_cast<size_t>(hidden)].at - sent) +
                             " ms after \"hide\"");
}

void tryBye(Run& run) {
    gra_link_bye(run.link.link());
    DWORD code = 0;
    if (!processEnded(run.program, 15000, code)) {
        fail(run, checkBye, "the program still runs 15 s after \"bye\" - " + lastLogLines(run, 2));
        return;
    }
    if (code != 0) {
        fail(run, checkBye, "the program ended with exit code " + std::to_string(code) + " - " + lastLogLines(run, 2));
        return;
    }
    pass(run, checkBye, "\"" + findLogMessage(logMessages(run.logPath), "exit (") + "\", exit code 0");
}

void tearDown(Run& run) {
    run.link.close();
    endProcess(run.program, 0);
    if (run.game.handle && run.gameWindow) PostMessageW(run.gameWindow, WM_CLOSE, 0, 0);
    endProcess(run.game, 5000);
    removeFolderTree(run.folder);
}

}  // namespace

const std::vector<std::string>& ownGameCheckNames() {
    static const std::vector<std::string> names = {checkFound, checkReady,  checkShown, checkTyped, checkClickOutside,
                                                   checkClickInside, checkFollows, checkMovedBox, checkAway, checkFile,
                                                   checkWindow, checkHide,  checkBye};
    return names;
}

const std::vector<std::string>& existingGameCheckNames() {
    static const std::vector<std::string> names = {checkFound, checkReady, checkShown, checkHide, checkBye};
    return names;
}

std::string groupOf(const RunPlan& plan) {
    return std::string(plan.childMode ? "child" : "owned") + ", " + (plan.gameFirst ? "game first" : "program first");
}

void skipRun(Report& report, const std::string& group, const std::vector<std::string>& names, const std::string& reason) {
    for (const std::string& name : names) recordSkip(report, group, name, reason);
}

void runWithOwnGame(const CheckSettings& settings, const RunPlan& plan, int runNumber, Report& report) {
    Run run(settings, report);
    run.plan = plan;
    run.group = groupOf(plan);
    run.slug = std::string(plan.childMode ? "child" : "owned") + (plan.gameFirst ? "-game-first" : "-program-first");
    printLine("");
    printLine(run.group + ":");
    prepareRun(run, runNumber);
    if (startInOrder(run) && checkFoundAndAttached(run) && checkPageReady(run)) {
        checkShow(run, true);
        checkTyping(run);
        // In active mode: the program follows the game's window on its tick only while the page is active.
        checkFollowing(run);
        measureRoundTrip(run);
        checkClicks(run);
        checkAwayAndBack(run);
        checkPageFile(run);
        checkWindowCommands(run);
        measureMemory(run);
        tryHide(run);
        tryBye(run);
    }
    skipUnreached(run, ownGameCheckNames());
    tearDown(run);
}

void runWithExistingGame(const CheckSettings& settings, Report& report) {
    Run run(settings, report);
    run.plan.childMode = settings.existingMode != "owned";
    run.group = std::string("your game, ") + (run.plan.childMode ? "child" : "owned") + " mode";
    run.slug = run.plan.childMode ? "your-game-child" : "your-game-owned";
    printLine("");
    printLine(run.group + ":");
    prepareRun(run, 1);
    run.title = settings.existingTitle;
    run.gameWindow = FindWindowW(settings.existingClass.empty() ? nullptr : settings.existingClass.c_str(),
                                 settings.existingTitle.c_str());
    if (!run.gameWindow) {
        stop(run, checkFound, "no window titled \"" + wideToUtf8(settings.existingTitle) + "\"" +
                                  (settings.existingClass.empty() ? "" : " of class \"" + wideToUtf8(settings.existingClass) + "\"") +
                                  " is open - start the game first; the title (and class) must match exactly");
    } else {
        wchar_t name[256] = L"";
        GetClassNameW(run.gameWindow, name, 256);
        run.windowClass = name;
        GetWindowThreadProcessId(run.gameWindow, &run.game.id);
        if (launchProgram(run) && openLink(run) && checkFoundAndAttached(run) && checkPageReady(run)) {
            checkShow(run, false);
            measureRoundTrip(run);
            measureMemory(run);
            tryHide(run);
            tryBye(run);
        }
    }
    skipUnreached(run, existingGameCheckNames());
    // The player's game is left running; only the program is ended.
    run.link.close();
    endProcess(run.program, 0);
    removeFolderTree(run.folder);
}
