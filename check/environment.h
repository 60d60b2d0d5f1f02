// The machine the check runs on, as it prints it first: what a bug report
// needs before anything else.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

struct EnvironmentFacts {
    std::string windowsVersion;
    bool underWine = false;
    std::string wineVersion;
    std::string runtimeFolder;   // empty: none found
    std::string runtimeKind;     // "fixed version (WEBVIEW2_BROWSER_EXECUTABLE_FOLDER)" or "installed"
    std::string runtimeVersion;
    std::string runtimeProblem;  // empty when the runtime's client library is there
    std::vector<std::string> monitors;
    bool elevated = false;
    std::string programPath;
    std::string programVersion;  // empty: the program was not found
    std::string checkVersion;
};

EnvironmentFacts readEnvironment(const std::wstring& programPath);

// Name and value pairs in the order they are printed and reported.
std::vector<std::pair<std::string, std::string>> environmentLines(const EnvironmentFacts& facts);

// A monitor's effective DPI as the system scales it (96 is 100%); 0 when unknown.
UINT monitorDpi(HMONITOR monitor);

// The version resource's file version of an exe or library, or empty.
std::string fileVersionOf(const std::wstring& path);
