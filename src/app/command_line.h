// The command line and the file locations derived from the program's folder.
// Nothing is logged here: the log's own path may be an option.
#pragma once

#include <string>

struct HostState;

// Everything before the last backslash or forward slash of the executable's
// path; the whole path when it has neither.
std::wstring folderOfPath(const std::wstring& path);

// The executable's folder, from GetModuleFileNameW in 260 characters.
std::wstring findProgramFolder();

// Sets programFolder and the web, documents and log paths derived from it.
void deriveDefaultPaths(HostState& state, const std::wstring& programFolder);

// Applies the nine options of a whole command line (token 0, the program, is
// skipped). Returns the show-at-start flag ("--show").
bool scanCommandLine(const wchar_t* commandLine, HostState& state);
