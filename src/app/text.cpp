#include "app/text.h"

#include <windows.h>

#include <climits>

bool fitsPlatformLength(size_t length) {
    return length <= static_cast<size_t>(INT_MAX);
}

bool utf8ToWideWhole(const char* text, size_t length, std::wstring& wide) {
    wide.clear();
    if (length == 0) return true;
    if (!fitsPlatformLength(length)) return false;
    int count = static_cast<int>(length);
    int units = MultiByteToWideChar(CP_UTF8, 0, text, count, nullptr, 0);
    if (units <= 0) return false;
    wide.assign(static_cast<size_t>(units), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text, count, &wide[0], units);
    return true;
}

bool wideToUtf8Whole(const wchar_t* text, size_t length, std::string& narrow) {
    narrow.clear();
    if (length == 0) return true;
    if (!fitsPlatformLength(length)) return false;
    int count = static_cast<int>(length);
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text, count, nullptr, 0, nullptr, nullptr);
    if (bytes <= 0) return false;
    narrow.assign(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, count, &narrow[0], bytes, nullptr, nullptr);
    return true;
}

std::wstring utf8ToWide(const std::string& text) {
    std::wstring wide;
    utf8ToWideWhole(text.data(), text.size(), wide);
    return wide;
}

std::string wideToUtf8(const std::wstring& text) {
    std::string narrow;
    wideToUtf8Whole(text.data(), text.size(), narrow);
    return narrow;
}
