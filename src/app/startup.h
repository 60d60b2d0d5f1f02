// Start-up, the port claim that doubles as the single-instance guard, the one
// message loop, and the orderly exit.
#pragma once

#include <windows.h>

#include <string>

// Runs the whole program; always returns 0.
int runHost(HINSTANCE instance);

// The one way to end: keeps the first reason stored, then posts WM_QUIT.
void quitWithReason(const std::string& reason);
