#include "report.h"

#include <windows.h>

#include <cstdio>

#include "app/text.h"
#include "files.h"
#include "png_file.h"

namespace {

const char* outcomeText(Outcome outcome) {
    switch (outcome) {
    case Outcome::pass:
        return "pass";
    case Outcome::fail:
        return "FAIL";
    default:
        return "skipped";
    }
}

std::string resultText(const CheckResult& check) {
    std::string text = outcomeText(check.outcome);
    if (check.outcome != Outcome::pass) text += ": " + check.reason;
    return text;
}

void record(Report& report, CheckResult check) {
    std::string line = "  [" + check.group + "] " + check.name + ": " + resultText(check);
    if (check.outcome == Outcome::pass && !check.reason.empty()) line += " (" + check.reason + ")";
    printLine(line);
    report.checks.push_back(std::move(check));
}

std::string html(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default: out.push_back(c);
        }
    }
    return out;
}

std::vector<std::string> groupsOf(const Report& report) {
    std::vector<std::string> groups;
    auto note = [&groups](const std::string& group) {
        for (const std::string& known : groups) {
            if (known == group) return;
        }
        groups.push_back(group);
    };
    for (const CheckResult& check : report.checks) note(check.group);
    for (const Figure& figure : report.figures) note(figure.group);
    for (const Screenshot& shot : report.screenshots) note(shot.group);
    return groups;
}

const char* const pageStyle =
    "body{font:14px/1.45 system-ui,'Segoe UI',sans-serif;margin:24px;color:#1d1d28;background:#fafafc}"
    "h1{font-size:22px}h2{font-size:17px;margin-top:28px}table{border-collapse:collapse;margin:8px 0}"
    "td,th{border:1px solid #d5d5e0;padding:4px 8px;text-align:left;vertical-align:top}"
    ".pass{color:#17713b;font-weight:600}.FAIL{color:#b3122e;font-weight:700}.skipped{color:#8a6100}"
    "figure{display:inline-block;margin:8px 12px 8px 0;vertical-align:top}"
    "img{max-width:640px;border:1px solid #bbb}figcaption{max-width:640px;font-size:13px}"
    ".summary{font-size:16px;font-weight:600}";

void writeChecks(std::string& page, const Report& report, const std::string& group) {
    bool any = false;
    for (const CheckResult& check : report.checks) {
        if (check.group != group) continue;
        if (!any) page += "<table><tr><th>check</th><th>result</th><th>detail</th></tr>\n";
        any = true;
        const char* cls = outcomeText(check.outcome);
        page += "<tr><td>" + html(check.name) + "</td><td class=\"" + cls + "\">" + cls + "</td><td>" +
                html(check.reason) + "</td></tr>\n";
    }
    if (any) page += "</table>\n";
}

void writeFigures(std::string& page, const Report& report, const std::string& group) {
    bool any = false;
    for (const Figure& figure : report.figures) {
        if (figure.group != group) continue;
        if (!any) page += "<table><tr><th>figure</th><th>value</th></tr>\n";
        any = true;
        page += "<tr><td>" + html(figure.name) + "</td><td>" + html(figure.value) + "</td></tr>\n";
    }
    if (any) page += "</table>\n";
}

void writeScreenshots(std::string& page, const Report& report, const std::string& group) {
    for (const Screenshot& shot : report.screenshots) {
        if (shot.group != group) continue;
        page += "<figure><a href=\"" + html(shot.file) + "\"><img src=\"" + html(shot.file) + "\" alt=\"" +
                html(shot.caption) + "\"></a><figcaption>" + html(shot.file) + ": " + html(shot.caption) +
                "</figcaption></figure>\n";
    }
}

}  // namespace

void printLine(const std::string& line) {
    HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    std::string text = line + "\n";
    if (out && out != INVALID_HANDLE_VALUE && GetConsoleMode(out, &mode)) {
        std::wstring wide = utf8ToWide(text);
        DWORD written = 0;
        WriteConsoleW(out, wide.c_str(), static_cast<DWORD>(wide.size()), &written, nullptr);
        return;
    }
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

void recordPass(Report& report, const std::string& group, const std::string& name, const std::string& seen) {
    record(report, CheckResult{group, name, Outcome::pass, seen});
}

void recordFail(Report& report, const std::string& group, const std::string& name, const std::string& reason) {
    record(report, CheckResult{group, name, Outcome::fail, reason});
}

void recordSkip(Report& report, const std::string& group, const std::string& name, const std::string& reason) {
    record(report, CheckResult{group, name, Outcome::skipped, reason});
}

void recordFigure(Report& report, const std::string& group, const std::string& name, const std::string& value) {
    printLine("  [" + group + "] " + name + ": " + value);
    report.figures.push_back(Figure{group, name, value});
}

std::string saveScreenshot(Report& report, const std::string& group, const std::string& file,
                           const std::string& caption, const Picture& picture) {
    std::string name = file + ".png";
    if (!writeFileBytes(report.folder + L"\\" + utf8ToWide(name), pngBytes(picture))) {
        printLine("  (the screenshot " + name + " could not be written, error " + std::to_string(GetLastError()) +
                  ")");
        return std::string();
    }
    report.screenshots.push_back(Screenshot{group, name, caption});
    return name;
}

bool anyFailed(const Report& report) {
    for (const CheckResult& check : report.checks) {
        if (check.outcome == Outcome::fail) return true;
    }
    return false;
}

std::string summaryLine(const Report& report) {
    int passed = 0, failed = 0, skipped = 0;
    for (const CheckResult& check : report.checks) {
        if (check.outcome == Outcome::pass) ++passed;
        else if (check.outcome == Outcome::fail) ++failed;
        else ++skipped;
    }
    char text[160];
    std::snprintf(text, sizeof text, "gra-overlay check: %s - %d passed, %d failed, %d skipped, %d screenshots",
                  failed ? "FAILED" : "works here", passed, failed, skipped,
                  static_cast<int>(report.screenshots.size()));
    return std::string(text) + " - report: " + wideToUtf8(report.folder) + "\\index.html";
}

bool writeHtmlReport(const Report& report, const EnvironmentFacts& facts, const std::string& title) {
    std::string page = "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>" + html(title) +
                       "</title><style>" + pageStyle + "</style></head><body>\n<h1>" + html(title) + "</h1>\n";
    page += "<p class=\"summary\">" + html(summaryLine(report)) + "</p>\n";
    page += "<p>Each check ends as pass, FAIL with its reason, or skipped with its reason. Send this whole folder "
            "with a bug report.</p>\n";
    page += "<h2>This machine</h2>\n<table>\n";
    for (const auto& line : environmentLines(facts)) {
        page += "<tr><th>" + html(line.first) + "</th><td>" + html(line.second) + "</td></tr>\n";
    }
    page += "</table>\n";
    for (const std::string& group : groupsOf(report)) {
        page += "<h2>" + html(group) + "</h2>\n";
        writeChecks(page, report, group);
        writeFigures(page, report, group);
        writeScreenshots(page, report, group);
    }
    page += "</body></html>\n";
    return writeFileBytes(report.folder + L"\\index.html", page);
}
