// "Show": the overlay becomes active and the page is told to show itself,
// with an optional pad text; before the page is ready the pad is kept in
// pendingPad ("-" standing for a show without pad).
#pragma once

#include <string>

void showOverlay(const std::wstring& pad);

// "{"type":"show"}", or with a "pad" field when pad is not empty.
std::wstring showMessage(const std::wstring& pad);
