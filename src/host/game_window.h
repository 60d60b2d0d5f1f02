// Finding the game's top-level window by exact title and class, attaching the
// host window to it (as a child, or as an owned window), and the two window
// descriptions used in log lines.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

// The topmost visible top-level window whose class and title equal gameClass
// and gameTitle, or null.
HWND findGameWindow();

void attachToGameWindow(HWND window);

// "%s pid %lu class '%s' title '%s' (%p)", or "none" for a null window.
std::string describeWindow(HWND window);

// The file name of a process's executable in UTF-8, or "?".
std::string processImageName(uint32_t processId);

// The host window's style while attached as a child of the game window.
uint32_t childStyleFor(bool mouseToGame);
