// The processes the check starts (its game role, the program) and what it
// reads about them: their windows, their memory, the browser's processes.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "app/owned_handle.h"

struct StartedProcess {
    OwnedHandle handle;
    DWORD id = 0;
};

// Starts the check's own exe in its game role, without a console window.
bool startGameRole(const std::wstring& checkExe, const std::wstring& title, const std::wstring& windowClass,
                   StartedProcess& game, DWORD& error);

struct ProgramOptions {
    std::string program, web, doc, log, data, game, gameClass, mode;  // UTF-8, as the game's kit takes them
    unsigned short port = 0;
};
// Starts gra-overlay.exe as a game starts it, with gra_link_launch.
bool startProgram(const ProgramOptions& options, StartedProcess& program, std::string& problem);

// Ends a process the check started, if it still runs; its exit code, or
// STILL_ACTIVE when it had to be ended.
void endProcess(StartedProcess& process, DWORD gracefulMs);
bool processEnded(const StartedProcess& process, DWORD waitMs, DWORD& exitCode);

struct ProcessMemory {
    bool known = false;
    double workingSetMiB = 0;
    double privateMiB = 0;
};
ProcessMemory memoryOf(DWORD processId);

// The process and all its descendants, as the system lists them now; empty
// when the process is not running.
std::vector<DWORD> processTree(DWORD root);

// A free UDP port on 127.0.0.1 for the program's game link.
unsigned short freeUdpPort();

std::string formatMiB(double mib);
