// The two reasons why an overlay over a game does not work that lie outside
// the program: a game that runs elevated while the program does not (Windows
// then keeps the overlay from the game's window and input), and a game in
// exclusive fullscreen (no other window can be seen over it). Each is told in
// plain words to the log, to the game ("GRAO warn ...") and to the page
// ({"type":"warn","what":...}); nothing is said while nothing is wrong. The
// state lives in HostState's `warnings`.
#pragma once

#include <windows.h>

#include <cstdint>

// What a process's token says about its rights.
struct TokenFacts {
    bool elevated = false;
    bool integrityKnown = false;  // the system reports an integrity level
    uint32_t integrity = 0;       // the mandatory label's RID (0x2000 medium, 0x3000 high)
};

// Whether the game runs elevated (or at a higher integrity level) while the
// program does not: Windows then keeps the program from the game's window.
bool gameOutranksProgram(const TokenFacts& game, const TokenFacts& program);

struct TokenReading {
    bool ok = false;
    TokenFacts facts;
    const char* failedCall = "";  // the call that failed, when not ok
    unsigned long error = 0;      // its error number
};

// Reads the token of a process opened with at least
// PROCESS_QUERY_LIMITED_INFORMATION.
TokenReading readProcessToken(HANDLE process);

// Compares the game process's token with the program's own, once per game
// process; called when the program attaches to a game window.
void checkGameElevation();

// The judgement of checkGameElevation on the two readings: a token that could
// not be read is logged with its error and nothing is told; a game that
// outranks the program is told to the log, the game and the page.
void judgeGameTokens(const TokenReading& game, const TokenReading& program);

// Asks the system, at most once a second and only while the game is in
// front, whether a Direct3D program runs in exclusive fullscreen; tells
// changes only. Called by every tick with its tick count.
void watchExclusiveFullscreen(uint32_t now);

// Tells the game what is wrong now; called right after the first datagram
// from the game, which gives the program the address to tell it at.
void tellGameTheWarnings();
