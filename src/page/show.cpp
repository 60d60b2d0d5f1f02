#include "page/show.h"

#include "app/host_state.h"
#include "host/modes.h"
#include "page/json_text.h"
#include "page/web_view.h"

std::wstring showMessage(const std::wstring& pad) {
    std::wstring padPiece = pad.empty() ? L"" : L",\"pad\":\"" + jsonEscape(pad) + L"\"";
    return L"{\"type\":\"show\"" + padPiece + L"}";
}

void showOverlay(const std::wstring& pad) {
    setMode(modeActive);
    if (host.pageReady) {
        postToPage(showMessage(pad));
        return;
    }
    host.pendingPad = pad.empty() ? L"-" : pad;
}
