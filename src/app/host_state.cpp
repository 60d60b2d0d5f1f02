#include "app/host_state.h"

#include "page/webview2.h"

// Constructed before the entry point runs and destroyed at process exit, after
// the clean-up that follows the message loop (COM is shut down by then; the
// two references are released afterwards all the same, web view first).
HostState host;

bool keepLayout = true;
const char* const buildString = "2026-10-12 v11 keyboard layout kept across alt-tab";

HostState::HostState() = default;
HostState::~HostState() = default;
