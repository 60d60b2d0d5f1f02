// The stand-in game's scene: sky, sun, hills and ground, drifting clouds, a
// runner who jumps two crates and picks up coins lap after lap, the score, the
// lives, the window's title, and a fading ring wherever the window was clicked.
//
// Everything is a function of the scene's time, so a still scene (whose time
// never moves) is the same picture at every paint. What never moves is drawn
// once per client size into the backdrop; each frame copies the backdrop into
// the frame surface, draws the moving parts over it and puts the frame on the
// window with one BitBlt, so the window never shows a half-drawn frame. Sizes
// are in units of a 640 x 480 client area and scale with the window.
#include "scene.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace {

const UINT_PTR kFrameTimer = 1;
const UINT kFrameMilliseconds = 150;
// The moment a still scene shows: the runner is in the air, before the first crate.
const DWORD kStillMoment = 2000;

const DWORD kLapMilliseconds = 7000;
const double kJumpHeight = 70;   // units
const double kJumpReach = 75;    // half a jump's length, units
const double kCrateSide = 36;    // units
const double kRunnerScale = 1.2;
const double kCrateAt[] = {0.32, 0.68};  // fractions of the width

// high coins hang over the crates, where only a jump reaches them
struct Coin {
    double at;
    bool high;
};
const Coin kCoins[] = {{0.14, false}, {0.32, true}, {0.50, false}, {0.68, true}, {0.86, false}};
const int kCoinCount = sizeof kCoins / sizeof kCoins[0];
const int kPointsPerCoin = 10;
const DWORD kPointsShownMilliseconds = 700;

struct Cloud {
    double height;  // fraction of the height
    double size;    // times a 120-unit cloud
    double speed;   // units per second
    double start;   // fraction of the way across at time 0
};
const Cloud kClouds[] = {{0.12, 1.0, 14, 0.25}, {0.27, 0.7, 22, 0.65}, {0.19, 1.3, 9, 0.95}};

const double kTreeAt[] = {0.07, 0.24, 0.58, 0.93};

const DWORD kMarkerMilliseconds = 3000;
const size_t kMarkersKept = 6;
const int kLives = 3;

const COLORREF kSkyTop = RGB(70, 130, 215);
const COLORREF kSkyHorizon = RGB(192, 228, 250);
const COLORREF kSunGlow = RGB(255, 238, 170);
const COLORREF kSun = RGB(255, 212, 80);
const COLORREF kFarHills = RGB(130, 180, 204);
const COLORREF kNearHills = RGB(88, 166, 96);
const COLORREF kTrunk = RGB(110, 72, 40);
const COLORREF kLeaves = RGB(50, 128, 68);
const COLORREF kLeavesLit = RGB(82, 158, 86);
const COLORREF kGrass = RGB(96, 186, 74);
const COLORREF kGrassLit = RGB(152, 222, 102);
const COLORREF kDirt = RGB(150, 100, 58);
const COLORREF kDirtDark = RGB(118, 78, 44);
const COLORREF kCloud = RGB(255, 255, 255);
const COLORREF kCloudShade = RGB(222, 234, 248);
const COLORREF kCrate = RGB(190, 128, 62);
const COLORREF kCrateEdge = RGB(112, 70, 34);
const COLORREF kCoinGold = RGB(252, 204, 48);
const COLORREF kCoinEdge = RGB(192, 128, 18);
const COLORREF kCoinShine = RGB(255, 238, 150);
const COLORREF kShirt = RGB(222, 62, 52);
const COLORREF kTrousers = RGB(44, 72, 164);
const COLORREF kSkin = RGB(248, 206, 164);
const COLORREF kShoes = RGB(70, 44, 32);
const COLORREF kEye = RGB(30, 30, 40);
const COLORREF kShadow = RGB(66, 140, 56);
const COLORREF kText = RGB(255, 255, 255);
const COLORREF kTitleText = RGB(255, 226, 110);
const COLORREF kTextEdge = RGB(40, 48, 86);
const COLORREF kHeart = RGB(232, 48, 72);
const COLORREF kMarker = RGB(255, 54, 140);
const COLORREF kMarkerRays = RGB(255, 232, 64);

struct Surface {
    HDC dc = nullptr;
    HBITMAP bitmap = nullptr;
    HGDIOBJ original = nullptr;
    SIZE size{0, 0};
};

struct Marker {
    POINT at;
    DWORD when;  // scene time
};

struct SceneState {
    bool still = false;
    DWORD startTick = 0;
    unsigned long frames = 0;
    int markersDrawn = 0;
    Surface backdrop;
    Surface frame;
    std::vector<Marker> markers;  // the latest kMarkersKept clicks, oldest first
};

SceneState scene;

struct Layout {
    int width;
    int height;
    double unit;  // 1 in a 640 x 480 client area
    int groundTop;
};

// Where the runner is at one moment of the scene.
struct Run {
    int x;              // the runner's middle
    int lift;           // the feet's height above the ground
    double stride;      // the legs' swing, -1 to 1; 0 in the air
    int coinsTaken;     // over every lap so far
    double pixelsPerMs; // the runner's speed
};

// --- pens, brushes and the shapes drawn with them ---

struct Ink {
    int penWidth;  // 0: no edge
    COLORREF pen;
    bool filled;
    COLORREF fill;
};

Ink solid(COLORREF fill) { return Ink{0, 0, true, fill}; }

Ink edged(COLORREF fill, COLORREF edge, int width) { return Ink{width, edge, true, fill}; }

Ink stroke(COLORREF colour, int width) { return Ink{width, colour, false, 0}; }

// Selects the ink's pen and brush for one shape, then puts the DC's own back
// and deletes them.
template <typename Shape>
void drawWith(HDC dc, const Ink& ink, Shape shape) {
    HPEN pen = ink.penWidth > 0 ? CreatePen(PS_SOLID, ink.penWidth, ink.pen) : nullptr;
    HBRUSH brush = ink.filled ? CreateSolidBrush(ink.fill) : nullptr;
    HGDIOBJ oldPen = SelectObject(dc, pen ? static_cast<HGDIOBJ>(pen) : GetStockObject(NULL_PEN));
    HGDIOBJ oldBrush = SelectObject(dc, brush ? static_cast<HGDIOBJ>(brush) : GetStockObject(NULL_BRUSH));
    shape();
    SelectObject(dc, oldBrush);
    SelectObject(dc, oldPen);
    if (brush) DeleteObject(brush);
    if (pen) DeleteObject(pen);
}

RECT around(POINT centre, int halfWidth, int halfHeight) {
    return RECT{centre.x - halfWidth, centre.y - halfHeight, centre.x + halfWidth + 1, centre.y + halfHeight + 1};
}

void drawEllipse(HDC dc, const RECT& box, const Ink& ink) {
    drawWith(dc, ink, [&] { Ellipse(dc, box.left, box.top, box.right, box.bottom); });
}

void drawCircle(HDC dc, POINT centre, int radius, const Ink& ink) {
    drawEllipse(dc, around(centre, radius, radius), ink);
}

void drawRectangle(HDC dc, const RECT& box, const Ink& ink) {
    drawWith(dc, ink, [&] { Rectangle(dc, box.left, box.top, box.right, box.bottom); });
}

void drawLine(HDC dc, POINT from, POINT to, const Ink& ink) {
    drawWith(dc, ink, [&] {
        MoveToEx(dc, from.x, from.y, nullptr);
        LineTo(dc, to.x, to.y);
    });
}

void drawPolygon(HDC dc, const std::vector<POINT>& points, const Ink& ink) {
    drawWith(dc, ink, [&] { Polygon(dc, points.data(), static_cast<int>(points.size())); });
}

void fillBand(HDC dc, const RECT& box, COLORREF colour) {
    HBRUSH brush = CreateSolidBrush(colour);
    FillRect(dc, &box, brush);
    DeleteObject(brush);
}

COLORREF blend(COLORREF from, COLORREF to, double part) {
    const auto mix = [part](int a, int b) { return static_cast<BYTE>(a + (b - a) * part + 0.5); };
    return RGB(mix(GetRValue(from), GetRValue(to)), mix(GetGValue(from), GetGValue(to)),
               mix(GetBValue(from), GetBValue(to)));
}

// --- text ---

HFONT makeFont(int pixelHeight) {
    return CreateFontW(-pixelHeight, 0, 0, 0, FW_BOLD, FALSE, FALSE, FALSE, DEFAULT_CHARSET, OUT_DEFAULT_PRECIS,
                       CLIP_DEFAULT_PRECIS, DEFAULT_QUALITY, DEFAULT_PITCH | FF_SWISS, L"Tahoma");
}

int textWidth(HDC dc, const std::wstring& text) {
    SIZE size{0, 0};
    GetTextExtentPoint32W(dc, text.c_str(), static_cast<int>(text.size()), &size);
    return size.cx;
}

// A dark edge and shadow keep the text readable over sky and ground alike.
void drawEdgedText(HDC dc, int x, int y, const std::wstring& text, COLORREF colour) {
    const int length = static_cast<int>(text.size());
    const POINT edge[] = {{2, 2}, {-1, 0}, {1, 0}, {0, -1}, {0, 1}};
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, kTextEdge);
    for (const POINT& offset : edge) TextOutW(dc, x + offset.x, y + offset.y, text.c_str(), length);
    SetTextColor(dc, colour);
    TextOutW(dc, x, y, text.c_str(), length);
}

std::wstring zeroPadded(int value, size_t digits) {
    std::wstring text = std::to_wstring(value);
    if (text.size() < digits) text.insert(0, digits - text.size(), L'0');
    return text;
}

// --- layout and the runner's course ---

Layout layoutFor(SIZE size) {
    const double unit = std::fmin(size.cx / 640.0, size.cy / 480.0);
    return Layout{size.cx, size.cy, std::fmax(unit, 0.4), size.cy * 78 / 100};
}

int scaled(const Layout& layout, double units) { return static_cast<int>(std::lround(units * layout.unit)); }

int fractionOf(int length, double fraction) { return static_cast<int>(std::lround(length * fraction)); }

int liftAt(const Layout& layout, int x) {
    const double reach = kJumpReach * layout.unit;
    for (const double at : kCrateAt) {
        const double off = (x - layout.width * at) / reach;
        if (off > -1 && off < 1) return scaled(layout, kJumpHeight * (1 - off * off));
    }
    return 0;
}

int coinsPassed(const Layout& layout, int x) {
    int passed = 0;
    for (const Coin& coin : kCoins) passed += fractionOf(layout.width, coin.at) < x ? 1 : 0;
    return passed;
}

Run runAt(const Layout& layout, DWORD time) {
    const int margin = scaled(layout, 40);
    const int course = layout.width + 2 * margin;
    Run run{};
    run.pixelsPerMs = static_cast<double>(course) / kLapMilliseconds;
    run.x = -margin + static_cast<int>((time % kLapMilliseconds) * run.pixelsPerMs);
    run.lift = liftAt(layout, run.x);
    run.stride = run.lift > 0 ? 0.0 : std::sin(time / 65.0);
    run.coinsTaken = static_cast<int>(time / kLapMilliseconds) * kCoinCount + coinsPassed(layout, run.x);
    return run;
}

POINT coinCentre(const Layout& layout, const Coin& coin) {
    const double height = coin.high ? kJumpHeight + 36 : 36;
    return POINT{fractionOf(layout.width, coin.at), layout.groundTop - scaled(layout, height)};
}

// --- the backdrop: what stays put ---

void drawSky(HDC dc, const Layout& layout) {
    const int band = 4;
    for (int top = 0; top < layout.groundTop; top += band) {
        const COLORREF colour = blend(kSkyTop, kSkyHorizon, static_cast<double>(top) / layout.groundTop);
        fillBand(dc, RECT{0, top, layout.width, top + band}, colour);
    }
}

void drawSun(HDC dc, const Layout& layout) {
    const POINT centre{fractionOf(layout.width, 0.78), fractionOf(layout.height, 0.25)};
    drawCircle(dc, centre, scaled(layout, 46), solid(blend(kSunGlow, kSkyTop, 0.35)));
    drawCircle(dc, centre, scaled(layout, 40), solid(kSunGlow));
    drawCircle(dc, centre, scaled(layout, 32), solid(kSun));
}

const double kTwoPi = 6.283185307179586;

int farHillTop(const Layout& layout, int x) {
    const double w = layout.width, h = layout.height;
    return layout.groundTop - static_cast<int>(h * 0.2 + h * 0.05 * std::sin(kTwoPi * x / (w * 0.6) + 0.7) +
                                               h * 0.025 * std::sin(kTwoPi * x / (w * 0.21) + 1.9));
}

int nearHillTop(const Layout& layout, int x) {
    const double w = layout.width, h = layout.height;
    return layout.groundTop - static_cast<int>(h * 0.075 + h * 0.045 * std::sin(kTwoPi * x / (w * 0.45) + 2.4) +
                                               h * 0.015 * std::sin(kTwoPi * x / (w * 0.17)));
}

void drawHills(HDC dc, const Layout& layout, int (*topAt)(const Layout&, int), COLORREF colour) {
    std::vector<POINT> outline;
    for (int x = 0; x < layout.width + 8; x += 8) outline.push_back(POINT{x, topAt(layout, x)});
    outline.push_back(POINT{layout.width + 8, layout.groundTop + 1});
    outline.push_back(POINT{0, layout.groundTop + 1});
    drawPolygon(dc, outline, solid(colour));
}

void drawTree(HDC dc, const Layout& layout, int x) {
    const int foot = nearHillTop(layout, x) + scaled(layout, 4);
    const int trunkTop = foot - scaled(layout, 20);
    drawRectangle(dc, RECT{x - scaled(layout, 3), trunkTop, x + scaled(layout, 3), foot}, solid(kTrunk));
    const POINT crown{x, trunkTop - scaled(layout, 12)};
    drawCircle(dc, crown, scaled(layout, 16), solid(kLeaves));
    drawCircle(dc, POINT{crown.x - scaled(layout, 4), crown.y - scaled(layout, 5)}, scaled(layout, 8),
               solid(kLeavesLit));
}

void drawGround(HDC dc, const Layout& layout) {
    const int grassBottom = layout.groundTop + scaled(layout, 14);
    fillBand(dc, RECT{0, layout.groundTop, layout.width, grassBottom}, kGrass);
    fillBand(dc, RECT{0, layout.groundTop, layout.width, layout.groundTop + scaled(layout, 3)}, kGrassLit);
    fillBand(dc, RECT{0, grassBottom, layout.width, layout.height}, kDirt);
    fillBand(dc, RECT{0, grassBottom, layout.width, grassBottom + scaled(layout, 2)}, kDirtDark);
    // Pebbles scattered by a fixed rule, so every backdrop of a size is the same.
    const int depth = layout.height - grassBottom - scaled(layout, 12);
    if (depth <= 0) return;
    for (int i = 0; i < layout.width / 24; ++i) {
        const POINT at{(i * 151 + (i % 7) * 29) % layout.width, grassBottom + scaled(layout, 8) + (i * 67) % depth};
        drawEllipse(dc, around(at, scaled(layout, 4), scaled(layout, 2)), solid(kDirtDark));
    }
}

void drawBackdrop(HDC dc, const Layout& layout) {
    drawSky(dc, layout);
    drawSun(dc, layout);
    drawHills(dc, layout, farHillTop, kFarHills);
    drawHills(dc, layout, nearHillTop, kNearHills);
    for (const double at : kTreeAt) drawTree(dc, layout, fractionOf(layout.width, at));
    drawGround(dc, layout);
}

// --- the moving parts ---

void drawCloud(HDC dc, POINT centre, double size) {
    const auto part = [&](double dx, double dy, double rx, double ry, COLORREF colour) {
        const POINT at{centre.x + static_cast<int>(dx * size), centre.y + static_cast<int>(dy * size)};
        drawEllipse(dc, around(at, static_cast<int>(rx * size), static_cast<int>(ry * size)), solid(colour));
    };
    part(0, 4, 60, 20, kCloudShade);
    part(0, 0, 60, 18, kCloud);
    part(-26, -12, 24, 20, kCloud);
    part(6, -22, 30, 26, kCloud);
    part(32, -8, 22, 18, kCloud);
}

void drawClouds(HDC dc, const Layout& layout, DWORD time) {
    for (const Cloud& cloud : kClouds) {
        const double size = cloud.size * layout.unit;
        const double span = layout.width + 140 * size;
        const double travelled = std::fmod(cloud.start * span + time / 1000.0 * cloud.speed * layout.unit, span);
        const POINT centre{static_cast<int>(layout.width + 70 * size - travelled),
                           fractionOf(layout.height, cloud.height)};
        drawCloud(dc, centre, size);
    }
}

void drawCrate(HDC dc, const Layout& layout, double at) {
    const int side = scaled(layout, kCrateSide);
    const int left = fractionOf(layout.width, at) - side / 2;
    const RECT box{left, layout.groundTop - side, left + side, layout.groundTop + 1};
    const int edge = scaled(layout, 3);
    drawRectangle(dc, box, edged(kCrate, kCrateEdge, edge));
    const int inset = edge + 1;
    drawLine(dc, POINT{box.left + inset, box.top + inset}, POINT{box.right - inset - 1, box.bottom - inset - 1},
             stroke(kCrateEdge, edge));
    drawLine(dc, POINT{box.right - inset - 1, box.top + inset}, POINT{box.left + inset, box.bottom - inset - 1},
             stroke(kCrateEdge, edge));
}

// A coin turns about its upright axis: its width follows the cosine.
void drawCoin(HDC dc, const Layout& layout, POINT centre, double turn) {
    const int radius = scaled(layout, 10);
    const int halfWidth = static_cast<int>(std::fmax(2, radius * std::fabs(std::cos(turn))));
    drawEllipse(dc, around(centre, halfWidth, radius), edged(kCoinGold, kCoinEdge, scaled(layout, 2)));
    if (halfWidth > radius / 2) {
        drawEllipse(dc, around(centre, halfWidth / 3, radius / 2), solid(kCoinShine));
    }
}

// Coins not yet taken this lap, and a "+10" rising where one was just taken.
void drawCoins(HDC dc, const Layout& layout, const Run& run, DWORD time) {
    for (int i = 0; i < kCoinCount; ++i) {
        const POINT centre = coinCentre(layout, kCoins[i]);
        if (centre.x >= run.x) {
            drawCoin(dc, layout, centre, time / 180.0 + i);
            continue;
        }
        const double since = (run.x - centre.x) / run.pixelsPerMs;
        if (since > kPointsShownMilliseconds) continue;
        HFONT font = makeFont(scaled(layout, 16));
        HGDIOBJ oldFont = SelectObject(dc, font);
        const int rise = static_cast<int>(since / kPointsShownMilliseconds * scaled(layout, 24));
        const std::wstring points = L"+" + std::to_wstring(kPointsPerCoin);
        drawEdgedText(dc, centre.x - textWidth(dc, points) / 2, centre.y - scaled(layout, 20) - rise, points,
                      kTitleText);
        SelectObject(dc, oldFont);
        DeleteObject(font);
    }
}

POINT offsetBy(POINT from, double angle, int length) {
    return POINT{from.x + static_cast<int>(std::sin(angle) * length), from.y + static_cast<int>(std::cos(angle) * length)};
}

void drawRunnerHead(HDC dc, const Layout& layout, POINT shoulder) {
    const int radius = scaled(layout, 9);
    const POINT centre{shoulder.x + scaled(layout, 2), shoulder.y - scaled(layout, 11)};
    drawCircle(dc, centre, radius, solid(kSkin));
    // a cap: the upper half of the head and a brim pointing the way he runs
    const RECT cap = around(centre, radius + 1, radius + 1);
    drawWith(dc, solid(kShirt), [&] {
        Chord(dc, cap.left, cap.top, cap.right, cap.bottom, cap.right, centre.y, cap.left, centre.y);
    });
    const int brimY = centre.y - scaled(layout, 1);
    drawLine(dc, POINT{centre.x, brimY}, POINT{centre.x + radius + scaled(layout, 6), brimY},
             stroke(kShirt, scaled(layout, 3)));
    drawCircle(dc, POINT{centre.x + scaled(layout, 4), centre.y + scaled(layout, 2)}, scaled(layout, 1) + 1,
               solid(kEye));
}

void drawLeg(HDC dc, const Layout& layout, POINT hip, double angle, COLORREF trousers) {
    const POINT foot = offsetBy(hip, angle, scaled(layout, 20));
    drawLine(dc, hip, foot, stroke(trousers, scaled(layout, 7)));
    drawLine(dc, foot, POINT{foot.x + scaled(layout, 5), foot.y}, stroke(kShoes, scaled(layout, 6)));
}

void drawArm(HDC dc, const Layout& layout, POINT shoulder, double angle, COLORREF skin) {
    drawLine(dc, shoulder, offsetBy(shoulder, angle, scaled(layout, 16)), stroke(skin, scaled(layout, 5)));
}

void drawRunner(HDC dc, const Layout& scenery, const Run& run) {
    const int shadowWidth = scaled(scenery, 18) - run.lift / 6;
    drawEllipse(dc, around(POINT{run.x, scenery.groundTop + scaled(scenery, 2)}, shadowWidth, scaled(scenery, 3)),
                solid(kShadow));
    // the hero is drawn a little larger than the scenery, to stand out
    Layout layout = scenery;
    layout.unit *= kRunnerScale;
    const int feet = layout.groundTop - run.lift;
    const POINT hip{run.x, feet - scaled(layout, 20)};
    const POINT shoulder{run.x + scaled(layout, 3), hip.y - scaled(layout, 18)};
    const bool airborne = run.lift > 0;
    const double frontLeg = airborne ? 0.9 : 0.6 * run.stride;
    const double backLeg = airborne ? -0.5 : -0.6 * run.stride;
    // the far arm and leg are a shade darker, and drawn behind the body; in the
    // air the near arm reaches up ahead
    drawArm(dc, layout, shoulder, airborne ? -2.4 : 0.8 * run.stride, blend(kSkin, kEye, 0.2));
    drawLeg(dc, layout, hip, backLeg, blend(kTrousers, kEye, 0.3));
    drawLine(dc, hip, shoulder, stroke(kShirt, scaled(layout, 12)));
    drawLeg(dc, layout, hip, frontLeg, kTrousers);
    drawArm(dc, layout, shoulder, airborne ? 2.3 : -0.8 * run.stride, kSkin);
    drawRunnerHead(dc, layout, shoulder);
}

void drawHeart(HDC dc, POINT centre, int size) {
    const int half = size / 2;
    drawCircle(dc, POINT{centre.x - half / 2 - 1, centre.y - half / 3}, half / 2 + 1, solid(kHeart));
    drawCircle(dc, POINT{centre.x + half / 2 + 1, centre.y - half / 3}, half / 2 + 1, solid(kHeart));
    const std::vector<POINT> point = {
        {centre.x - half - 1, centre.y - half / 4}, {centre.x + half + 2, centre.y - half / 4}, {centre.x, centre.y + half}};
    drawPolygon(dc, point, solid(kHeart));
}

// The score and the coins at the top left; returns where that text ends.
int drawScore(HDC dc, const Layout& layout, const Run& run) {
    HFONT font = makeFont(scaled(layout, 22));
    HGDIOBJ oldFont = SelectObject(dc, font);
    const int x = scaled(layout, 16), y = scaled(layout, 12);
    const std::wstring score = L"SCORE " + zeroPadded(run.coinsTaken * kPointsPerCoin, 6);
    drawEdgedText(dc, x, y, score, kText);
    const int coinsY = y + scaled(layout, 30);
    drawCoin(dc, layout, POINT{x + scaled(layout, 10), coinsY + scaled(layout, 12)}, 0);
    drawEdgedText(dc, x + scaled(layout, 26), coinsY, L"x " + std::to_wstring(run.coinsTaken), kText);
    const int end = x + textWidth(dc, score);
    SelectObject(dc, oldFont);
    DeleteObject(font);
    return end;
}

// The lives at the top right; returns where they begin.
int drawLives(HDC dc, const Layout& layout) {
    const int size = scaled(layout, 18), gap = scaled(layout, 8);
    const int right = layout.width - scaled(layout, 16);
    const int y = scaled(layout, 12) + size / 2 + scaled(layout, 2);
    for (int i = 0; i < kLives; ++i) drawHeart(dc, POINT{right - size / 2 - i * (size + gap), y}, size);
    return right - kLives * (size + gap);
}

// The window's title, at the top between the score and the lives if it fits
// there, else on the line below.
void drawTitle(HDC dc, const Layout& layout, HWND window, int leftEnd, int rightStart) {
    wchar_t buffer[256] = L"";
    const std::wstring title(buffer, static_cast<size_t>(GetWindowTextW(window, buffer, 256)));
    HFONT font = makeFont(scaled(layout, 26));
    HGDIOBJ oldFont = SelectObject(dc, font);
    const int width = textWidth(dc, title);
    const int x = (layout.width - width) / 2;
    const int gap = scaled(layout, 16);
    const bool fitsTopLine = x >= leftEnd + gap && x + width <= rightStart - gap;
    const int y = fitsTopLine ? scaled(layout, 8) : scaled(layout, 76);
    drawEdgedText(dc, x, y, title, kTitleText);
    SelectObject(dc, oldFont);
    DeleteObject(font);
}

void drawHud(HDC dc, const Layout& layout, const Run& run, HWND window) {
    const int leftEnd = drawScore(dc, layout, run);
    const int rightStart = drawLives(dc, layout);
    drawTitle(dc, layout, window, leftEnd, rightStart);
}

// A ring that widens and thins out over its life; rays burst out at first.
void drawMarker(HDC dc, const Layout& layout, POINT at, double age) {
    const int radius = scaled(layout, 8 + 22 * age);
    const int width = std::max(1, scaled(layout, 4 * (1 - age)));
    drawCircle(dc, at, radius, stroke(kMarker, width));
    drawCircle(dc, at, std::max(1, scaled(layout, 3 * (1 - age))), solid(kMarker));
    if (age >= 0.5) return;
    const int inner = radius + scaled(layout, 4);
    const int outer = inner + scaled(layout, 10 * (1 - 2 * age)) + 1;
    for (int ray = 0; ray < 8; ++ray) {
        const double angle = ray * kTwoPi / 8;
        drawLine(dc, offsetBy(at, angle, inner), offsetBy(at, angle, outer), stroke(kMarkerRays, scaled(layout, 2)));
    }
}

int drawMarkers(HDC dc, const Layout& layout, DWORD time) {
    int drawn = 0;
    for (const Marker& marker : scene.markers) {
        const DWORD age = time - marker.when;
        if (age >= kMarkerMilliseconds) continue;
        drawMarker(dc, layout, marker.at, static_cast<double>(age) / kMarkerMilliseconds);
        ++drawn;
    }
    return drawn;
}

DWORD sceneTime() { return scene.still ? kStillMoment : GetTickCount() - scene.startTick; }

void drawFrame(HDC dc, const Layout& layout, HWND window) {
    const DWORD time = sceneTime();
    const Run run = runAt(layout, time);
    BitBlt(dc, 0, 0, layout.width, layout.height, scene.backdrop.dc, 0, 0, SRCCOPY);
    drawClouds(dc, layout, time);
    for (const double at : kCrateAt) drawCrate(dc, layout, at);
    drawCoins(dc, layout, run, time);
    drawRunner(dc, layout, run);
    drawHud(dc, layout, run, window);
    scene.markersDrawn = drawMarkers(dc, layout, time);
}

// --- the off-screen surfaces ---

void releaseSurface(Surface& surface) {
    if (surface.dc == nullptr) return;
    SelectObject(surface.dc, surface.original);
    DeleteObject(surface.bitmap);
    DeleteDC(surface.dc);
    surface = Surface();
}

// Makes the surface the given size if it is not; true when it was made afresh.
bool remadeForSize(Surface& surface, HDC like, SIZE size) {
    if (surface.dc != nullptr && surface.size.cx == size.cx && surface.size.cy == size.cy) return false;
    releaseSurface(surface);
    HDC dc = CreateCompatibleDC(like);
    HBITMAP bitmap = dc ? CreateCompatibleBitmap(like, size.cx, size.cy) : nullptr;
    if (bitmap == nullptr) {
        if (dc) DeleteDC(dc);
        return false;
    }
    surface.dc = dc;
    surface.bitmap = bitmap;
    surface.original = SelectObject(dc, bitmap);
    surface.size = size;
    return true;
}

bool surfacesReady(HDC like, const Layout& layout) {
    const SIZE size{layout.width, layout.height};
    if (remadeForSize(scene.backdrop, like, size)) drawBackdrop(scene.backdrop.dc, layout);
    remadeForSize(scene.frame, like, size);
    return scene.backdrop.dc != nullptr && scene.frame.dc != nullptr;
}

}  // namespace

void startScene(HWND window, bool still) {
    scene.still = still;
    scene.startTick = GetTickCount();
    if (!still) SetTimer(window, kFrameTimer, kFrameMilliseconds, nullptr);
}

void paintScene(HWND window) {
    PAINTSTRUCT paint;
    HDC dc = BeginPaint(window, &paint);
    RECT client{};
    GetClientRect(window, &client);
    const Layout layout = layoutFor(SIZE{client.right, client.bottom});
    if (layout.width > 0 && layout.height > 0) {
        if (surfacesReady(dc, layout)) {
            drawFrame(scene.frame.dc, layout, window);
            BitBlt(dc, 0, 0, layout.width, layout.height, scene.frame.dc, 0, 0, SRCCOPY);
            ++scene.frames;
        } else {
            fillBand(dc, client, kSkyHorizon);  // out of GDI memory: at least no stale pixels
        }
    }
    EndPaint(window, &paint);
}

bool advanceScene(HWND window, WPARAM timer) {
    if (timer != kFrameTimer) return false;
    InvalidateRect(window, nullptr, FALSE);
    return true;
}

void markClick(HWND window, POINT at) {
    scene.markers.push_back(Marker{at, sceneTime()});
    if (scene.markers.size() > kMarkersKept) scene.markers.erase(scene.markers.begin());
    InvalidateRect(window, nullptr, FALSE);
}

void endScene(HWND window) {
    KillTimer(window, kFrameTimer);
    releaseSurface(scene.frame);
    releaseSurface(scene.backdrop);
}

SceneCounts sceneCounts() { return SceneCounts{scene.frames, scene.markersDrawn, scene.still}; }
