#include "screen.h"

#include <cstdio>
#include <cstdlib>

namespace {

// The screen's device context, given back when the copy is done.
class ScreenDc {
public:
    ScreenDc() : dc_(GetDC(nullptr)) {}
    ~ScreenDc() {
        if (dc_) ReleaseDC(nullptr, dc_);
    }
    ScreenDc(const ScreenDc&) = delete;
    ScreenDc& operator=(const ScreenDc&) = delete;
    HDC get() const { return dc_; }

private:
    HDC dc_;
};

class MemoryDc {
public:
    explicit MemoryDc(HDC like) : dc_(CreateCompatibleDC(like)) {}
    ~MemoryDc() {
        if (dc_) DeleteDC(dc_);
    }
    MemoryDc(const MemoryDc&) = delete;
    MemoryDc& operator=(const MemoryDc&) = delete;
    HDC get() const { return dc_; }

private:
    HDC dc_;
};

// A bitmap selected into a memory DC for the copy, deselected and deleted after.
class SelectedBitmap {
public:
    SelectedBitmap(HDC dc, HBITMAP bitmap) : dc_(dc), bitmap_(bitmap) {
        if (bitmap_) old_ = SelectObject(dc_, bitmap_);
    }
    ~SelectedBitmap() {
        if (old_) SelectObject(dc_, old_);
        if (bitmap_) DeleteObject(bitmap_);
    }
    SelectedBitmap(const SelectedBitmap&) = delete;
    SelectedBitmap& operator=(const SelectedBitmap&) = delete;
    bool ok() const { return bitmap_ != nullptr && old_ != nullptr; }

private:
    HDC dc_;
    HBITMAP bitmap_;
    HGDIOBJ old_ = nullptr;
};

}  // namespace

RECT virtualScreen() {
    RECT screen;
    screen.left = GetSystemMetrics(SM_XVIRTUALSCREEN);
    screen.top = GetSystemMetrics(SM_YVIRTUALSCREEN);
    screen.right = screen.left + GetSystemMetrics(SM_CXVIRTUALSCREEN);
    screen.bottom = screen.top + GetSystemMetrics(SM_CYVIRTUALSCREEN);
    return screen;
}

bool captureScreen(const RECT& wanted, Picture& picture, DWORD& error) {
    RECT screen = virtualScreen();
    RECT area;
    if (!IntersectRect(&area, &wanted, &screen)) {
        error = ERROR_INVALID_PARAMETER;
        return false;
    }
    picture.area = area;
    int width = picture.width();
    int height = picture.height();
    ScreenDc screenDc;
    if (!screenDc.get()) {
        error = GetLastError();
        return false;
    }
    MemoryDc memoryDc(screenDc.get());
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = -height;  // top-down rows
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    HBITMAP bitmap = CreateDIBSection(screenDc.get(), &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    SelectedBitmap selected(memoryDc.get(), bitmap);
    if (!memoryDc.get() || !selected.ok() || !bits) {
        error = GetLastError();
        return false;
    }
    // CAPTUREBLT takes in layered windows too: what the screen shows.
    if (!BitBlt(memoryDc.get(), 0, 0, width, height, screenDc.get(), area.left, area.top, SRCCOPY | CAPTUREBLT)) {
        error = GetLastError();
        return false;
    }
    GdiFlush();
    const uint32_t* source = static_cast<const uint32_t*>(bits);
    picture.pixels.assign(source, source + static_cast<size_t>(width) * static_cast<size_t>(height));
    for (uint32_t& pixel : picture.pixels) pixel &= 0x00FFFFFFu;
    return true;
}

bool colourAt(const Picture& picture, POINT point, Rgb& colour) {
    if (point.x < picture.area.left || point.y < picture.area.top || point.x >= picture.area.right ||
        point.y >= picture.area.bottom) {
        return false;
    }
    size_t index = static_cast<size_t>(point.y - picture.area.top) * static_cast<size_t>(picture.width()) +
                   static_cast<size_t>(point.x - picture.area.left);
    uint32_t pixel = picture.pixels[index];
    colour.r = static_cast<int>((pixel >> 16) & 0xFF);
    colour.g = static_cast<int>((pixel >> 8) & 0xFF);
    colour.b = static_cast<int>(pixel & 0xFF);
    return true;
}

bool colourNear(const Rgb& colour, const Rgb& expected, int tolerance) {
    return std::abs(colour.r - expected.r) <= tolerance && std::abs(colour.g - expected.g) <= tolerance &&
           std::abs(colour.b - expected.b) <= tolerance;
}

std::string colourText(const Rgb& colour) {
    char text[32];
    std::snprintf(text, sizeof text, "rgb(%d,%d,%d)", colour.r, colour.g, colour.b);
    return text;
}
