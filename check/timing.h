// Time in the check: deadlines for what it waits for, and the exact clock of
// its figures. Everything that decides on time is handed `now`.
#pragma once

#include <windows.h>

#include <vector>

// Milliseconds since the system started; never wraps in practice (64 bits).
inline ULONGLONG nowMs() { return GetTickCount64(); }

struct Deadline {
    ULONGLONG end = 0;
    bool passed(ULONGLONG now) const { return now >= end; }
};

inline Deadline deadlineIn(ULONGLONG now, ULONGLONG milliseconds) { return Deadline{now + milliseconds}; }

// The high-resolution clock in milliseconds, for the figures.
double preciseMs();

// The value below which the given share (0..1) of the samples lie, by the
// nearest-rank rule; 0 for no samples.
double percentile(std::vector<double> samples, double share);

// Lets the check's own windows (the window that comes in front of the game)
// take their messages while the check waits for something.
void pumpMessages();

// Sleeps one polling step while keeping the check's windows answering.
void pollPause(DWORD milliseconds);
