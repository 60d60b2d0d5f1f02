#include "host/fit.h"

#include "app/counters.h"
#include "app/host_state.h"
#include "page/webview2.h"

RECT lastGameClient{-1, -1, -1, -1};
POINT lastGameOrigin{-1, -1};

namespace {

void countComparison(const RECT& client, POINT origin) {
    bool same = EqualRect(&client, &lastGameClient) && origin.x == lastGameOrigin.x && origin.y == lastGameOrigin.y;
    count(same ? fitRectSame : fitRectChanged);
    lastGameClient = client;
    lastGameOrigin = origin;
}

void placeHost(const RECT& client) {
    if (host.childMode) {
        SetWindowPos(host.hostWindow, HWND_TOP, 0, 0, client.right, client.bottom, SWP_NOACTIVATE);
        return;
    }
    POINT origin{0, 0};
    ClientToScreen(host.gameWindow, &origin);
    SetWindowPos(host.hostWindow, nullptr, origin.x, origin.y, client.right, client.bottom,
                 SWP_NOACTIVATE | SWP_NOZORDER);
}

}  // namespace

void fit_to_game() {
    if (!host.hostWindow || !host.gameWindow || !IsWindow(host.gameWindow)) return;
    // The game window may go between the check above and this call; its
    // rectangle is then not read, and nothing is placed.
    RECT client;
    if (!GetClientRect(host.gameWindow, &client)) return;
    count(fitToGame);

    POINT origin{0, 0};
    if (!host.childMode) ClientToScreen(host.gameWindow, &origin);
    countComparison(client, origin);

    placeHost(client);
    if (host.webController) {
        RECT bounds{0, 0, client.right, client.bottom};
        host.webController->put_Bounds(bounds);
    }
}
