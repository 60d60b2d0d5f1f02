// What the program leaves when it crashes in the field: a minidump,
// "gra_overlay.dmp" in the log file's folder, and one log line naming the
// exception and where it happened; then the process ends, without a dialog
// box over the game. The dump is written by a thread started beforehand and
// woken by the exception filter, because the crashed thread may have no stack
// left (a stack overflow), and a dump written from it comes out empty.
#pragma once

#include <string>

// Starts the writer thread and sets the process's unhandled-exception filter.
// Called once at start-up, once the log's path is known.
void installCrashHandler();

// The log file's folder followed by "gra_overlay.dmp" (no folder: the file
// name alone).
std::wstring crashDumpPath(const std::wstring& logPath);

// "<module>+0x<offset>": the file name of the module that holds the address
// and the address's distance from the module's start; "?+0x<address>"
// outside every module.
std::string codeLocation(const void* address);
