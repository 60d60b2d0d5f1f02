#include "page_window.h"

#include "bridge_link.h"
#include "json_line.h"

#include <windowsx.h>

#include <cstring>

namespace chromium_runtime {
namespace {

const wchar_t kPageClass[] = L"GraChromiumWebView";

// CDP's modifier bits.
constexpr int kAlt = 1;
constexpr int kCtrl = 2;
constexpr int kShift = 8;

// The page's picture: a top-down 32-bit DIB section the frames are copied into.
struct Picture {
    HBITMAP bitmap = nullptr;
    void* bits = nullptr;
    int width = 0;
    int height = 0;
};

HWND pageWindow = nullptr;
Picture picture;

// The real runtime's page is composed with its parent continuously; this
// window composes on paint, so it looks every so often whether the parent
// has changed how it paints its background (the colour key comes and goes
// with WS_EX_LAYERED) and then paints itself again, whole.
constexpr UINT_PTR kBackgroundCheckTimer = 1;
constexpr UINT kBackgroundCheckMs = 100;
LONG_PTR parentLayering = -1;
WCHAR pendingHighSurrogate = 0;

void dropPicture() {
    if (picture.bitmap != nullptr) {
        DeleteObject(picture.bitmap);
    }
    picture = Picture();
}

bool makePicture(int width, int height) {
    dropPicture();
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = -height;  // top-down, as the frames come
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    HBITMAP bitmap = CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    if (bitmap == nullptr) {
        return false;
    }
    picture.bitmap = bitmap;
    picture.bits = bits;
    picture.width = width;
    picture.height = height;
    return true;
}

// Draws what the parent shows behind this window into dc: the parent erases
// its background there as it would on its own surface (its class brush, or
// the colour key while the mouse belongs to the game).
void paintParentBackground(HWND window, HDC dc) {
    HWND parent = GetParent(window);
    if (parent == nullptr) {
        return;
    }
    POINT origin{0, 0};
    MapWindowPoints(window, parent, &origin, 1);
    POINT previous{};
    SetViewportOrgEx(dc, -origin.x, -origin.y, &previous);
    SendMessageW(parent, WM_ERASEBKGND, reinterpret_cast<WPARAM>(dc), 0);
    SetViewportOrgEx(dc, previous.x, previous.y, nullptr);
}

void paintPicture(HDC dc) {
    if (picture.bitmap == nullptr) {
        return;
    }
    HDC pictureDc = CreateCompatibleDC(dc);
    HGDIOBJ previous = SelectObject(pictureDc, picture.bitmap);
    BLENDFUNCTION blend{AC_SRC_OVER, 0, 255, AC_SRC_ALPHA};
    AlphaBlend(dc, 0, 0, picture.width, picture.height, pictureDc, 0, 0, picture.width, picture.height, blend);
    SelectObject(pictureDc, previous);
    DeleteDC(pictureDc);
}

// Composes background and page off screen, then copies the result in one go.
void onPaint(HWND window) {
    PAINTSTRUCT paint;
    HDC dc = BeginPaint(window, &paint);
    RECT client;
    GetClientRect(window, &client);
    if (client.right > 0 && client.bottom > 0) {
        HDC composed = CreateCompatibleDC(dc);
        HBITMAP surface = CreateCompatibleBitmap(dc, client.right, client.bottom);
        HGDIOBJ previous = SelectObject(composed, surface);
        paintParentBackground(window, composed);
        paintPicture(composed);
        BitBlt(dc, 0, 0, client.right, client.bottom, composed, 0, 0, SRCCOPY);
        SelectObject(composed, previous);
        DeleteObject(surface);
        DeleteDC(composed);
    }
    EndPaint(window, &paint);
}

int modifierBits() {
    int bits = 0;
    if (GetKeyState(VK_MENU) < 0) bits |= kAlt;
    if (GetKeyState(VK_CONTROL) < 0) bits |= kCtrl;
    if (GetKeyState(VK_SHIFT) < 0) bits |= kShift;
    return bits;
}

int buttonBits(WPARAM keys) {
    int bits = 0;
    if (keys & MK_LBUTTON) bits |= 1;
    if (keys & MK_RBUTTON) bits |= 2;
    if (keys & MK_MBUTTON) bits |= 4;
    return bits;
}

void sendMouse(const char* type, int x, int y, const char* button, int buttons, int clickCount, double deltaY) {
    sendToBridge(JsonLine()
                     .text("op", "mouse")
                     .text("type", type)
                     .number("x", x)
                     .number("y", y)
                     .text("button", button)
                     .number("buttons", buttons)
                     .number("clickCount", clickCount)
                     .number("deltaY", deltaY)
                     .number("modifiers", modifierBits())
                     .line());
}

// A click gives the page the keyboard, as a browser window takes the focus,
// but only inside a window that is already active: a click must not activate
// a window whose owner refuses activation on click.
void takeFocusOnClick(HWND window) {
    if (GetFocus() != window && GetForegroundWindow() == GetAncestor(window, GA_ROOT)) {
        SetFocus(window);
    }
}

bool onMouse(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    const int x = GET_X_LPARAM(lParam);
    const int y = GET_Y_LPARAM(lParam);
    const int buttons = buttonBits(wParam);
    const char* button = "none";
    const char* type = nullptr;
    int clicks = 1;
    switch (message) {
    case WM_MOUSEMOVE: sendMouse("move", x, y, "none", buttons, 0, 0); return true;
    case WM_LBUTTONDOWN: type = "down"; button = "left"; break;
    case WM_LBUTTONDBLCLK: type = "down"; button = "left"; clicks = 2; break;
    case WM_LBUTTONUP: type = "up"; button = "left"; break;
    case WM_RBUTTONDOWN: type = "down"; button = "right"; break;
    case WM_RBUTTONDBLCLK: type = "down"; button = "right"; clicks = 2; break;
    case WM_RBUTTONUP: type = "up"; button = "right"; break;
    case WM_MBUTTONDOWN: type = "down"; button = "middle"; break;
    case WM_MBUTTONDBLCLK: type = "down"; button = "middle"; clicks = 2; break;
    case WM_MBUTTONUP: type = "up"; button = "middle"; break;
    default: return false;
    }
    if (std::strcmp(type, "down") == 0) {
        SetCapture(window);
        takeFocusOnClick(window);
    } else if (buttons == 0) {
        ReleaseCapture();
    }
    sendMouse(type, x, y, button, buttons, clicks, 0);
    return true;
}

void onWheel(HWND window, WPARAM wParam, LPARAM lParam) {
    POINT point{GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)};  // the wheel reports screen coordinates
    ScreenToClient(window, &point);
    const double notches = static_cast<double>(GET_WHEEL_DELTA_WPARAM(wParam)) / WHEEL_DELTA;
    sendMouse("wheel", point.x, point.y, "none", buttonBits(GET_KEYSTATE_WPARAM(wParam)), 0, notches * 100.0);
}

void sendKey(const char* type, WPARAM virtualKey, bool system) {
    sendToBridge(JsonLine()
                     .text("op", "key")
                     .text("type", type)
                     .number("vk", static_cast<double>(virtualKey))
                     .flag("system", system)
                     .number("modifiers", modifierBits())
                     .line());
}

void sendCharacter(WPARAM unit) {
    const WCHAR code = static_cast<WCHAR>(unit);
    if (IS_HIGH_SURROGATE(code)) {
        pendingHighSurrogate = code;
        return;
    }
    WCHAR text[3] = {};
    int length = 0;
    if (IS_LOW_SURROGATE(code) && pendingHighSurrogate != 0) {
        text[length++] = pendingHighSurrogate;
    }
    pendingHighSurrogate = 0;
    text[length++] = code;
    char utf8[8] = {};
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, length, utf8, sizeof utf8, nullptr, nullptr);
    sendToBridge(JsonLine()
                     .text("op", "key")
                     .text("type", "char")
                     .text("text", std::string(utf8, static_cast<size_t>(bytes > 0 ? bytes : 0)))
                     .number("modifiers", modifierBits())
                     .line());
}

void checkParentBackground(HWND window) {
    HWND parent = GetParent(window);
    const LONG_PTR layering = parent ? (GetWindowLongPtrW(parent, GWL_EXSTYLE) & WS_EX_LAYERED) : 0;
    if (layering == parentLayering) {
        return;
    }
    parentLayering = layering;
    InvalidateRect(window, nullptr, FALSE);
}

LRESULT CALLBACK pageProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (onMouse(window, message, wParam, lParam)) {
        return 0;
    }
    switch (message) {
    case WM_PAINT: onPaint(window); return 0;
    case WM_TIMER:
        if (wParam == kBackgroundCheckTimer) {
            checkParentBackground(window);
            return 0;
        }
        break;
    case WM_ERASEBKGND: return 1;  // painting composes the background itself
    case WM_MOUSEWHEEL: onWheel(window, wParam, lParam); return 0;
    case WM_KEYDOWN: sendKey("down", wParam, false); return 0;
    case WM_KEYUP: sendKey("up", wParam, false); return 0;
    case WM_SYSKEYDOWN: sendKey("down", wParam, true); break;  // the system still sees Alt combinations
    case WM_SYSKEYUP: sendKey("up", wParam, true); break;
    case WM_CHAR: sendCharacter(wParam); return 0;
    case WM_GETDLGCODE: return DLGC_WANTALLKEYS | DLGC_WANTCHARS;
    case WM_CAPTURECHANGED: return 0;
    case WM_NCDESTROY:
        if (window == pageWindow) {
            pageWindow = nullptr;
        }
        break;
    default: break;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

void registerPageClass() {
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.style = CS_DBLCLKS;
    windowClass.lpfnWndProc = pageProcedure;
    windowClass.hInstance = runtimeModule();
    windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    windowClass.lpszClassName = kPageClass;
    RegisterClassExW(&windowClass);
}

}  // namespace

HWND createPageWindow(HWND parent, const RECT& bounds, bool visible) {
    registerPageClass();
    const DWORD style = WS_CHILD | WS_CLIPSIBLINGS | (visible ? WS_VISIBLE : 0);
    pageWindow = CreateWindowExW(0, kPageClass, L"", style, bounds.left, bounds.top, bounds.right - bounds.left,
                                 bounds.bottom - bounds.top, parent, nullptr, runtimeModule(), nullptr);
    if (pageWindow != nullptr) {
        parentLayering = GetWindowLongPtrW(parent, GWL_EXSTYLE) & WS_EX_LAYERED;
        SetTimer(pageWindow, kBackgroundCheckTimer, kBackgroundCheckMs, nullptr);
    }
    return pageWindow;
}

void destroyPageWindow() {
    if (pageWindow != nullptr && IsWindow(pageWindow)) {
        DestroyWindow(pageWindow);
    }
    pageWindow = nullptr;
    dropPicture();
}

void showFramePixels(int width, int height, int top, int rowCount, const std::string& pixels) {
    if (width <= 0 || height <= 0 || top < 0 || rowCount < 0 || top + rowCount > height) {
        return;
    }
    const size_t stride = static_cast<size_t>(width) * 4;
    if (pixels.size() != stride * static_cast<size_t>(rowCount)) {
        return;
    }
    const bool resized = picture.width != width || picture.height != height;
    if (resized && !makePicture(width, height)) {
        return;
    }
    GdiFlush();  // GDI may still be reading the picture from the last paint
    std::memcpy(static_cast<char*>(picture.bits) + stride * static_cast<size_t>(top), pixels.data(), pixels.size());
    if (pageWindow != nullptr) {
        RECT changed{0, top, width, top + rowCount};
        InvalidateRect(pageWindow, resized ? nullptr : &changed, FALSE);
        UpdateWindow(pageWindow);
    }
}

}  // namespace chromium_runtime
