#include "wininfo.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace wininfo {

std::string toUtf8(const std::wstring& text) {
    if (text.empty()) return std::string();
    const int size = static_cast<int>(text.size());
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<size_t>(length > 0 ? length : 0), '\0');
    if (length > 0) WideCharToMultiByte(CP_UTF8, 0, text.data(), size, &result[0], length, nullptr, nullptr);
    return result;
}

std::wstring toWide(const std::string& text) {
    if (text.empty()) return std::wstring();
    const int size = static_cast<int>(text.size());
    const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
    std::wstring result(static_cast<size_t>(length > 0 ? length : 0), L'\0');
    if (length > 0) MultiByteToWideChar(CP_UTF8, 0, text.data(), size, &result[0], length);
    return result;
}

std::string jsonString(const std::string& utf8Text) {
    std::string out = "\"";
    for (const char c : utf8Text) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (u < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", u);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

std::string jsonString(const std::wstring& text) { return jsonString(toUtf8(text)); }

std::string jsonBool(bool value) { return value ? "true" : "false"; }

std::string hex16(std::uint64_t value) {
    char text[20];
    std::snprintf(text, sizeof text, "%016llX", static_cast<unsigned long long>(value));
    return text;
}

std::string hex8(std::uint32_t value) {
    char text[12];
    std::snprintf(text, sizeof text, "%08lX", static_cast<unsigned long>(value));
    return text;
}

std::string handleHex(const void* handle) {
    return hex16(static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(handle)));
}

namespace {

bool parseUnsigned(const std::string& digits, int base, std::uint64_t* value) {
    if (digits.empty()) return false;
    char* end = nullptr;
    const unsigned long long parsed = std::strtoull(digits.c_str(), &end, base);
    if (*end != '\0' || digits[0] == '-' || digits[0] == '+') return false;
    *value = parsed;
    return true;
}

bool hasHexPrefix(const std::string& text) {
    return text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

}  // namespace

bool parseHex(const std::string& text, std::uint64_t* value) {
    const std::string digits = hasHexPrefix(text) ? text.substr(2) : text;
    return digits.size() <= 16 && parseUnsigned(digits, 16, value);
}

bool parseHandle(const std::string& text, HWND* window) {
    std::uint64_t value = 0;
    if (!parseHex(text, &value)) return false;
    *window = reinterpret_cast<HWND>(static_cast<std::uintptr_t>(value));
    return true;
}

bool parseNumber(const std::string& text, std::int64_t* value) {
    std::uint64_t magnitude = 0;
    if (hasHexPrefix(text)) {
        if (!parseUnsigned(text.substr(2), 16, &magnitude)) return false;
        *value = static_cast<std::int64_t>(magnitude);
        return true;
    }
    const bool negative = !text.empty() && text[0] == '-';
    if (!parseUnsigned(negative ? text.substr(1) : text, 10, &magnitude)) return false;
    *value = negative ? -static_cast<std::int64_t>(magnitude) : static_cast<std::int64_t>(magnitude);
    return true;
}

namespace {

std::string rectJson(const RECT& r) {
    return "[" + std::to_string(r.left) + "," + std::to_string(r.top) + "," + std::to_string(r.right) + "," +
           std::to_string(r.bottom) + "]";
}

std::wstring className(HWND window) {
    wchar_t name[256] = L"";
    GetClassNameW(window, name, 256);
    return name;
}

std::wstring windowTitle(HWND window) {
    const int length = GetWindowTextLengthW(window);
    std::vector<wchar_t> title(static_cast<size_t>(length > 0 ? length : 0) + 2, L'\0');
    GetWindowTextW(window, title.data(), static_cast<int>(title.size()));
    return title.data();
}

// null when the window has no region of its own (GetWindowRgn says ERROR),
// else its rectangles in window coordinates; an empty region gives [].
std::string regionJson(HWND window) {
    HRGN region = CreateRectRgn(0, 0, 0, 0);
    std::string result = "null";
    if (GetWindowRgn(window, region) != ERROR) {
        const DWORD size = GetRegionData(region, 0, nullptr);
        std::vector<std::uint64_t> storage(size / sizeof(std::uint64_t) + 1);
        RGNDATA* data = reinterpret_cast<RGNDATA*>(storage.data());
        result = "[";
        if (size != 0 && GetRegionData(region, size, data) != 0) {
            const RECT* rects = reinterpret_cast<const RECT*>(data->Buffer);
            for (DWORD i = 0; i < data->rdh.nCount; ++i) result += (i ? "," : "") + rectJson(rects[i]);
        }
        result += "]";
    }
    DeleteObject(region);
    return result;
}

std::string layeredJson(HWND window, LONG_PTR exStyle) {
    if ((exStyle & WS_EX_LAYERED) == 0) return "null";
    COLORREF key = 0;
    BYTE alpha = 0;
    DWORD flags = 0;
    if (!GetLayeredWindowAttributes(window, &key, &alpha, &flags)) {
        return "{\"error\":" + std::to_string(GetLastError()) + "}";
    }
    return "{\"key\":\"" + hex8(key) + "\",\"alpha\":" + std::to_string(alpha) +
           ",\"flags\":" + std::to_string(flags) + "}";
}

}  // namespace

std::string windowInfoFields(HWND window) {
    std::string out = "\"hwnd\":\"" + handleHex(window) + "\"";
    if (window == nullptr || !IsWindow(window)) return out + ",\"exists\":false";
    DWORD pid = 0;
    const DWORD tid = GetWindowThreadProcessId(window, &pid);
    const LONG_PTR style = GetWindowLongPtrW(window, GWL_STYLE);
    const LONG_PTR exStyle = GetWindowLongPtrW(window, GWL_EXSTYLE);
    RECT rect{}, client{};
    GetWindowRect(window, &rect);
    GetClientRect(window, &client);
    POINT origin{0, 0};
    ClientToScreen(window, &origin);
    out += ",\"exists\":true";
    out += ",\"class\":" + jsonString(className(window));
    out += ",\"title\":" + jsonString(windowTitle(window));
    out += ",\"pid\":" + std::to_string(pid) + ",\"tid\":" + std::to_string(tid);
    out += ",\"owner\":\"" + handleHex(reinterpret_cast<HWND>(GetWindowLongPtrW(window, GWLP_HWNDPARENT))) + "\"";
    out += ",\"parent\":\"" + handleHex(GetAncestor(window, GA_PARENT)) + "\"";
    out += ",\"style\":\"" + hex8(static_cast<std::uint32_t>(style)) + "\"";
    out += ",\"exstyle\":\"" + hex8(static_cast<std::uint32_t>(exStyle)) + "\"";
    out += ",\"visible\":" + jsonBool(IsWindowVisible(window) != FALSE);
    out += ",\"iconic\":" + jsonBool(IsIconic(window) != FALSE);
    out += ",\"rect\":" + rectJson(rect) + ",\"client\":" + rectJson(client);
    out += ",\"clientOrigin\":[" + std::to_string(origin.x) + "," + std::to_string(origin.y) + "]";
    out += ",\"region\":" + regionJson(window);
    out += ",\"layered\":" + layeredJson(window, exStyle);
    return out;
}

std::string windowInfoJson(HWND window) { return "{" + windowInfoFields(window) + "}"; }

}  // namespace wininfo
