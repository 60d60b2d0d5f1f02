// The game's commands: show, hide, toggle, note, reload, page, state, window
// and bye, each carried by one datagram that starts with the magic "GRAO ".
#pragma once

#include <string>

void dispatchGameDatagram(const std::string& text);

struct GameCommand {
    bool valid = false;  // false: too short or the magic is wrong
    std::string word;
    std::string argument;
};

// Checks the magic and splits the rest at its first space.
GameCommand parseGameDatagram(const std::string& text);
