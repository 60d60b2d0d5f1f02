#include "game_role.h"

#include <windowsx.h>

#include "app/owned_handle.h"

namespace {

// Questions from the check, answered in the window procedure.
constexpr UINT askClickCount = WM_APP + 40;
constexpr UINT askClickAt = WM_APP + 41;  // wParam: index; answer: MAKELONG(x, y)
constexpr UINT askKeyCount = WM_APP + 42;
constexpr UINT askKeyAt = WM_APP + 43;  // wParam: index; answer: the character
constexpr UINT askLetGo = WM_APP + 44;
constexpr UINT askFront = WM_APP + 45;
constexpr UINT_PTR watchTimer = 1;

const Rgb patternColours[2] = {{40, 120, 210}, {250, 190, 40}};

struct GameRecords {
    std::vector<POINT> clicks;
    std::wstring keys;
    OwnedHandle checkProcess;
};
GameRecords records;

// The brushes of the two colours, made for one paint and deleted after it.
class PatternBrushes {
public:
    PatternBrushes() {
        for (int i = 0; i < 2; ++i) {
            brushes_[i] = CreateSolidBrush(RGB(patternColours[i].r, patternColours[i].g, patternColours[i].b));
        }
    }
    ~PatternBrushes() {
        for (HBRUSH brush : brushes_) {
            if (brush) DeleteObject(brush);
        }
    }
    PatternBrushes(const PatternBrushes&) = delete;
    PatternBrushes& operator=(const PatternBrushes&) = delete;
    HBRUSH get(int index) const { return brushes_[index]; }

private:
    HBRUSH brushes_[2] = {nullptr, nullptr};
};

void paintPattern(HWND window) {
    PAINTSTRUCT paint;
    HDC dc = BeginPaint(window, &paint);
    RECT client;
    GetClientRect(window, &client);
    PatternBrushes brushes;
    for (int top = 0; top < client.bottom; top += patternCell) {
        for (int left = 0; left < client.right; left += patternCell) {
            RECT cell{left, top, left + patternCell, top + patternCell};
            FillRect(dc, &cell, brushes.get(((left / patternCell) + (top / patternCell)) % 2));
        }
    }
    EndPaint(window, &paint);
}

LRESULT answerQuestion(HWND window, UINT message, WPARAM wParam) {
    switch (message) {
    case askClickCount:
        return static_cast<LRESULT>(records.clicks.size());
    case askClickAt:
        if (wParam >= records.clicks.size()) return -1;
        return MAKELONG(records.clicks[wParam].x, records.clicks[wParam].y);
    case askKeyCount:
        return static_cast<LRESULT>(records.keys.size());
    case askKeyAt:
        return wParam < records.keys.size() ? static_cast<LRESULT>(records.keys[wParam]) : -1;
    case askLetGo:
        return AllowSetForegroundWindow(ASFW_ANY) ? 1 : 0;
    case askFront:
        ShowWindow(window, SW_RESTORE);
        return SetForegroundWindow(window) ? 1 : 0;
    default:
        return 0;
    }
}

LRESULT CALLBACK gameWindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_ERASEBKGND:
        return 1;
    case WM_PAINT:
        paintPattern(window);
        return 0;
    case WM_SIZE:
        InvalidateRect(window, nullptr, FALSE);
        return 0;
    case WM_LBUTTONDOWN:
        records.clicks.push_back(POINT{GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)});
        return 0;
    case WM_CHAR:
        records.keys.push_back(static_cast<wchar_t>(wParam));
        return 0;
    case WM_TIMER:
        // A check that ended (or was ended) leaves no game behind.
        if (wParam == watchTimer && records.checkProcess &&
            WaitForSingleObject(records.checkProcess.get(), 0) == WAIT_OBJECT_0) {
            DestroyWindow(window);
        }
        return 0;
    case WM_DESTROY:
        PostQuitMessage(0);
        return 0;
    default:
        if (message >= askClickCount && message <= askFront) return answerQuestion(window, message, wParam);
        return DefWindowProcW(window, message, wParam, lParam);
    }
}

// Sends one question; false when the game did not answer within 5 s.
bool ask(HWND game, UINT question, WPARAM wParam, LRESULT& answer) {
    DWORD_PTR result = 0;
    if (!SendMessageTimeoutW(game, question, wParam, 0, SMTO_ABORTIFHUNG, 5000, &result)) return false;
    answer = static_cast<LRESULT>(result);
    return true;
}

}  // namespace

Rgb patternColourAt(int clientX, int clientY) {
    if (clientX < 0 || clientY < 0) return Rgb{};
    return patternColours[((clientX / patternCell) + (clientY / patternCell)) % 2];
}

int runGameRole(const std::wstring& title, const std::wstring& windowClass, DWORD checkProcessId) {
    records.checkProcess.reset(OpenProcess(SYNCHRONIZE, FALSE, checkProcessId));
    WNDCLASSEXW wc{};
    wc.cbSize = sizeof wc;
    wc.lpfnWndProc = gameWindowProcedure;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hCursor = LoadCursor(nullptr, IDC_ARROW);
    wc.lpszClassName = windowClass.c_str();
    if (!RegisterClassExW(&wc)) return 2;
    RECT frame{0, 0, gameClientWidth, gameClientHeight};
    AdjustWindowRectEx(&frame, WS_OVERLAPPEDWINDOW, FALSE, 0);
    HWND window = CreateWindowExW(0, windowClass.c_str(), title.c_str(), WS_OVERLAPPEDWINDOW, 80, 60,
                                  frame.right - frame.left, frame.bottom - frame.top, nullptr, nullptr,
                                  wc.hInstance, nullptr);
    if (!window) return 3;
    ShowWindow(window, SW_SHOW);
    UpdateWindow(window);
    // Without a window manager (Xvfb) a new window is not always put in front.
    SetForegroundWindow(window);
    SetTimer(window, watchTimer, 500, nullptr);
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    records.checkProcess.reset();
    return 0;
}

bool readGameClicks(HWND game, std::vector<POINT>& clicks) {
    LRESULT count = 0;
    if (!ask(game, askClickCount, 0, count)) return false;
    clicks.clear();
    for (LRESULT i = 0; i < count; ++i) {
        LRESULT packed = 0;
        if (!ask(game, askClickAt, static_cast<WPARAM>(i), packed)) return false;
        clicks.push_back(POINT{static_cast<short>(LOWORD(packed)), static_cast<short>(HIWORD(packed))});
    }
    return true;
}

bool readGameKeys(HWND game, std::wstring& keys) {
    LRESULT count = 0;
    if (!ask(game, askKeyCount, 0, count)) return false;
    keys.clear();
    for (LRESULT i = 0; i < count; ++i) {
        LRESULT key = 0;
        if (!ask(game, askKeyAt, static_cast<WPARAM>(i), key)) return false;
        keys.push_back(static_cast<wchar_t>(key));
    }
    return true;
}

bool askGameToLetGo(HWND game) {
    LRESULT answer = 0;
    return ask(game, askLetGo, 0, answer) && answer != 0;
}

bool askGameToFront(HWND game) {
    LRESULT answer = 0;
    return ask(game, askFront, 0, answer);
}
