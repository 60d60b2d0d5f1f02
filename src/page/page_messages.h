// The page's messages (ready, cover, through, hide, mode, modal, region, load,
// save, game, log) and the host's replies to them.
#pragma once

#include <string>
#include <vector>

#include "app/host_state.h"

void dispatchPageMessage(const std::wstring& text);

// The numbers of a "rects" field taken four at a time as x, y, width, height.
std::vector<PageRect> parseRects(const std::wstring& text);

// The text sent to the game for the page's "game" message, or empty when the
// command or its argument is refused.
std::string gameCommandText(const std::string& cmd, const std::string& arg);

// Holds a message for the page until it is ready: at most 256 messages or
// 4 MiB of text (UTF-16), whichever comes first; beyond it the oldest go.
void holdForPage(const std::wstring& json);

// Called on every tick: once a tick passes without new drops, logs how many
// held messages the burst before it dropped.
void reportDroppedHeldMessages();
