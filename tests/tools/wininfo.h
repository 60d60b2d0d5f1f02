// Window inspection for the test tools: a window's state as one JSON object,
// plus the small text helpers (hex handles, numbers, JSON strings) that the
// stand-in game and testctl share. Handles of other processes work the same.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

namespace wininfo {

std::string toUtf8(const std::wstring& text);
std::wstring toWide(const std::string& text);

// A quoted, escaped JSON string of UTF-8 (or UTF-16) text.
std::string jsonString(const std::string& utf8Text);
std::string jsonString(const std::wstring& text);
std::string jsonBool(bool value);

// Upper-case hexadecimal, zero-padded to 16 or 8 digits.
std::string hex16(std::uint64_t value);
std::string hex8(std::uint32_t value);
std::string handleHex(const void* handle);

// "1A2B", "0x1A2B" or "00000000001A2B": up to 16 hex digits; false on junk.
bool parseHex(const std::string& text, std::uint64_t* value);
bool parseHandle(const std::string& text, HWND* window);
// Decimal (optionally negative) or "0x" hexadecimal; false on junk.
bool parseNumber(const std::string& text, std::int64_t* value);

// The fields of a window's description, without the surrounding braces:
// "hwnd","exists" and, for a live window, "class","title","pid","tid",
// "owner","parent","style","exstyle","visible","iconic","rect","client",
// "clientOrigin","region","layered". Callers may append fields of their own.
std::string windowInfoFields(HWND window);
std::string windowInfoJson(HWND window);

}  // namespace wininfo
