#include "message_pump.h"

#include "journal.h"
#include "page_link.h"

#include <memory>

namespace standin {
namespace {

const wchar_t kClassName[] = L"GraStandinRuntimePump";
HWND window = nullptr;

HMODULE thisModule() {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&thisModule), &module);
    return module;
}

LRESULT CALLBACK pumpProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == kRunLaterMessage) {
        std::unique_ptr<std::function<void()>> work(reinterpret_cast<std::function<void()>*>(lParam));
        (*work)();
        return 0;
    }
    if (message == kPageSocketMessage) {
        onPageSocketEvent(WSAGETSELECTEVENT(lParam));
        return 0;
    }
    return DefWindowProcW(hwnd, message, wParam, lParam);
}

}  // namespace

HWND pumpWindow() {
    if (window != nullptr) {
        return window;
    }
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.lpfnWndProc = pumpProcedure;
    windowClass.hInstance = thisModule();
    windowClass.lpszClassName = kClassName;
    RegisterClassExW(&windowClass);
    window = CreateWindowExW(0, kClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, thisModule(), nullptr);
    if (window == nullptr) {
        journal("pump.create-failed " + std::to_string(GetLastError()));
    }
    return window;
}

bool runLater(std::function<void()> work) {
    if (pumpWindow() == nullptr) {
        return false;
    }
    auto* queued = new std::function<void()>(std::move(work));
    if (!PostMessageW(window, kRunLaterMessage, 0, reinterpret_cast<LPARAM>(queued))) {
        journal("pump.post-failed " + std::to_string(GetLastError()));
        delete queued;
        return false;
    }
    return true;
}

void closePump() {
    closePageLink();
    if (window == nullptr || GetWindowThreadProcessId(window, nullptr) != GetCurrentThreadId()) {
        return;
    }
    DestroyWindow(window);
    window = nullptr;
    UnregisterClassW(kClassName, thisModule());
}

}  // namespace standin
