// The check's own game: the same exe started again in a game role, a window
// that draws a known pattern and notes the clicks and keys it gets. The check
// asks it what it got with messages sent to its window, across the process
// boundary, so that the game shares nothing with the check but its window.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "screen.h"

// The game's client area when it starts, in physical pixels.
constexpr int gameClientWidth = 800;
constexpr int gameClientHeight = 500;

// The pattern: squares of two colours, this many pixels wide.
constexpr int patternCell = 64;
Rgb patternColourAt(int clientX, int clientY);

// Runs the game window until it is closed or the check that started it ends.
int runGameRole(const std::wstring& title, const std::wstring& windowClass, DWORD checkProcessId);

// What the check asks of a running game window (false: it did not answer).
bool readGameClicks(HWND game, std::vector<POINT>& clicks);
bool readGameKeys(HWND game, std::wstring& keys);
// The game, in front, lets another process take the foreground.
bool askGameToLetGo(HWND game);
// The game brings its own window to the front.
bool askGameToFront(HWND game);
