#include "host/modes.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "app/counters.h"
#include "app/host_state.h"
#include "app/log.h"
#include "gamelink/datagrams.h"
#include "host/fit.h"
#include "page/web_view.h"
#include "page/webview2.h"

namespace {

// A page's hit region has a handful of rectangles; more than this are not
// made part of it.
constexpr size_t regionRectsMost = 1000;

void hideHost() {
    if (host.webController) host.webController->put_IsVisible(FALSE);
    ShowWindow(host.hostWindow, SW_HIDE);
}

void giveMouseToGame() {
    LONG_PTR style = GetWindowLongPtrW(host.hostWindow, GWL_STYLE);
    LONG_PTR exStyle = GetWindowLongPtrW(host.hostWindow, GWL_EXSTYLE);
    SetWindowLongPtrW(host.hostWindow, GWL_STYLE, style & ~static_cast<LONG_PTR>(WS_CLIPCHILDREN));
    SetWindowLongPtrW(host.hostWindow, GWL_EXSTYLE, exStyle | WS_EX_LAYERED | WS_EX_TRANSPARENT);
    if (!SetLayeredWindowAttributes(host.hostWindow, colourKey, 255, LWA_COLORKEY)) {
        logLine("layered window refused (%lu) - is the manifest in the exe?", GetLastError());
    }
}

void takeMouseBack() {
    LONG_PTR exStyle = GetWindowLongPtrW(host.hostWindow, GWL_EXSTYLE);
    LONG_PTR style = GetWindowLongPtrW(host.hostWindow, GWL_STYLE);
    SetWindowLongPtrW(host.hostWindow, GWL_EXSTYLE,
                      exStyle & ~static_cast<LONG_PTR>(WS_EX_LAYERED | WS_EX_TRANSPARENT));
    SetWindowLongPtrW(host.hostWindow, GWL_STYLE, style | WS_CLIPCHILDREN);
}

float rasterizationScale() {
    double scale = 1.0;
    if (!host.webController) return 1.0f;
    ICoreWebView2Controller3* controller3 = nullptr;
    if (SUCCEEDED(host.webController->QueryInterface(IID_ICoreWebView2Controller3,
                                                      reinterpret_cast<void**>(&controller3))) &&
        controller3) {
        controller3->get_RasterizationScale(&scale);
        controller3->Release();
    }
    return static_cast<float>(scale);
}

// The page's numbers are not limited: an edge beyond the 32-bit range is
// held at the range's end, never wrapped round to the other side.
int32_t clampToInt32(double value) {
    if (value != value) return 0;
    if (value <= static_cast<double>(INT32_MIN)) return INT32_MIN;
    if (value >= static_cast<double>(INT32_MAX)) return INT32_MAX;
    return static_cast<int32_t>(value);
}

int32_t edgeSum(int32_t a, int32_t b) {
    return clampToInt32(static_cast<double>(static_cast<int64_t>(a) + static_cast<int64_t>(b)));
}

// A rectangle given with a negative width or height covers the same pixels as
// its mirror, as CreateRectRgn makes it.
RECT ordered(RECT rect) {
    if (rect.left > rect.right) std::swap(rect.left, rect.right);
    if (rect.top > rect.bottom) std::swap(rect.top, rect.bottom);
    return rect;
}

// The whole region in one call: combining rectangles one by one costs work
// that grows with the square of their number.
HRGN regionOfRects(const std::vector<PageRect>& rects, float scale) {
    size_t used = rects.size() < regionRectsMost ? rects.size() : regionRectsMost;
    if (used < rects.size()) {
        logLine("region: %u rectangles, only the first %u are used", static_cast<unsigned>(rects.size()),
                static_cast<unsigned>(regionRectsMost));
    }
    std::vector<RECT> data((sizeof(RGNDATAHEADER) + sizeof(RECT) - 1) / sizeof(RECT) + used);
    RGNDATA* region = reinterpret_cast<RGNDATA*>(data.data());
    RECT* edges = reinterpret_cast<RECT*>(region->Buffer);
    RECT bounds{0, 0, 0, 0};
    for (size_t i = 0; i < used; ++i) {
        edges[i] = ordered(scaledRect(rects[i], scale));
        if (IsRectEmpty(&edges[i])) continue;
        if (IsRectEmpty(&bounds)) {
            bounds = edges[i];
        } else {
            UnionRect(&bounds, &bounds, &edges[i]);
        }
    }
    region->rdh.dwSize = sizeof(RGNDATAHEADER);
    region->rdh.iType = RDH_RECTANGLES;
    region->rdh.nCount = static_cast<DWORD>(used);
    region->rdh.nRgnSize = static_cast<DWORD>(used * sizeof(RECT));
    region->rdh.rcBound = bounds;
    return ExtCreateRegion(nullptr, static_cast<DWORD>(sizeof(RGNDATAHEADER) + used * sizeof(RECT)), region);
}

// The window owns a region it accepted; one it refused is still ours.
void giveRegion(HRGN region, bool redraw) {
    if (!region) return;
    if (!SetWindowRgn(host.hostWindow, region, redraw)) DeleteObject(region);
}

// Moving the focus into or out of the game's window tree is a call into the
// game's thread; one that pumps no messages would stop the program with it.
bool gameDoesNotAnswer() {
    if (!IsHungAppWindow(host.gameWindow)) return false;
    logLine("the game does not answer - the keyboard focus is left where it is");
    return true;
}

}  // namespace

void setMode(int newMode) {
    if (!host.hostWindow) return;
    if (newMode == modePassive || newMode == modeActive) {
        fit_to_game();
        ShowWindow(host.hostWindow, SW_SHOWNA);
        if (host.webController) host.webController->put_IsVisible(TRUE);
    }
    if (newMode != host.mode) {
        count(modeChanges);
        logLine("mode %s", modeNames[newMode]);
        host.mode = newMode;
        updateMouseOwner();
    }
    moveKeyboardFocus(newMode == modeActive);
    if (newMode == modeHidden && !host.coverUp) hideHost();
    host.activeMode = newMode == modeActive;
    sendToGame(std::string("state ") + modeNames[newMode]);
}

void askPageToClose() {
    if (host.pageReady) {
        postToPage(L"{\"type\":\"close\"}");
        return;
    }
    setMode(modeHidden);
}

void updateMouseOwner() {
    if (!host.hostWindow) return;
    bool wanted = host.throughWanted && host.mode == modePassive && !host.coverUp;
    if (wanted == host.mouseToGame) return;
    count(mouseOwnerSwitches);
    host.mouseToGame = wanted;
    if (wanted) {
        giveMouseToGame();
    } else {
        takeMouseBack();
    }
    RedrawWindow(host.hostWindow, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_FRAME);
    logLine("mouse: %s", wanted ? "the game's (the window out of the hit test)" : "ours");
}

RECT scaledRect(const PageRect& rect, float scale) {
    int32_t right = edgeSum(rect.x, rect.width);
    int32_t bottom = edgeSum(rect.y, rect.height);
    auto scaled = [scale](int32_t value) { return clampToInt32(static_cast<float>(value) * scale); };
    return RECT{scaled(rect.x), scaled(rect.y), scaled(right), scaled(bottom)};
}

void setRegion(bool redraw) {
    // No region is made for a host window that is already gone.
    if (!host.hostWindow || !IsWindow(host.hostWindow)) return;
    count(setWindowRgn);
    if (host.coverUp) {
        RECT client;
        if (!GetClientRect(host.hostWindow, &client)) return;
        giveRegion(CreateRectRgn(0, 0, client.right, client.bottom), redraw);
        return;
    }
    giveRegion(regionOfRects(host.regionRects, rasterizationScale()), redraw);
}

void coverOff(const char* reason) {
    if (!host.coverUp) return;
    host.coverUp = false;
    logLine("cover off (%s)", reason);
    ICoreWebView2Controller2* controller2 = nullptr;
    if (host.webController &&
        SUCCEEDED(host.webController->QueryInterface(IID_ICoreWebView2Controller2,
                                                     reinterpret_cast<void**>(&controller2))) &&
        controller2) {
        controller2->put_DefaultBackgroundColor(COREWEBVIEW2_COLOR{0, 0, 0, 0});
        controller2->Release();
    }
    setRegion(true);
    updateMouseOwner();
    if (host.mode == modeHidden) hideHost();
}

void showCoverOverGame() {
    if (!host.coverUp || !host.hostWindow || !host.gameWindow || !IsWindow(host.gameWindow)) return;
    fit_to_game();
    ShowWindow(host.hostWindow, SW_SHOWNA);
    if (host.webController) host.webController->put_IsVisible(TRUE);
    setRegion(true);
}

void moveKeyboardFocus(bool toHost) {
    if (!host.childMode || !host.gameWindow || !host.hostWindow) return;
    DWORD current = GetCurrentThreadId();
    DWORD gameThread = GetWindowThreadProcessId(host.gameWindow, nullptr);
    if (toHost) {
        if (gameDoesNotAnswer()) return;
        // Joining the two threads' input state is what lets SetFocus reach
        // into the game's window tree.
        if (host.attachedInputThread == 0 && gameThread != 0 && gameThread != current &&
            AttachThreadInput(current, gameThread, TRUE)) {
            host.attachedInputThread = gameThread;
        }
        count(setFocusCalls);
        SetFocus(host.hostWindow);
        if (host.webController) {
            count(moveFocusCalls);
            host.webController->MoveFocus(COREWEBVIEW2_MOVE_FOCUS_REASON_PROGRAMMATIC);
        }
        return;
    }
    if (GetFocus() != host.gameWindow && !gameDoesNotAnswer()) {
        count(setFocusCalls);
        SetFocus(host.gameWindow);
    }
    if (host.attachedInputThread != 0) {
        AttachThreadInput(current, host.attachedInputThread, FALSE);
        host.attachedInputThread = 0;
    }
}
