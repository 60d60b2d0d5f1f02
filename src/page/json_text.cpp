#include "page/json_text.h"

#include <cstdint>
#include <cwchar>
#include <cwctype>

namespace {

void appendUnicodeEscape(std::wstring& out, uint32_t unit) {
    static const wchar_t digits[] = L"0123456789abcdef";
    out += L"\\u";
    for (int shift = 12; shift >= 0; shift -= 4) out += digits[(unit >> shift) & 0xF];
}

// Four characters behind "\u" read the way the C library reads a base-16
// number: it stops at the first character that is not a hexadecimal digit,
// and only the low 16 bits are kept.
wchar_t decodeFourHex(const std::wstring& message, size_t first) {
    wchar_t four[5] = {message[first], message[first + 1], message[first + 2], message[first + 3], L'\0'};
    long value = std::wcstol(four, nullptr, 16);
    return static_cast<wchar_t>(static_cast<unsigned long>(value) & 0xFFFF);
}

// A string value from just behind its opening quotation mark. An unterminated
// value gives what was gathered up to the end of the message.
std::wstring readStringValue(const std::wstring& message, size_t at) {
    std::wstring value;
    const size_t end = message.size();
    while (at < end) {
        wchar_t c = message[at];
        if (c == L'"') return value;
        if (c != L'\\') {
            value += c;
            ++at;
            continue;
        }
        if (at + 1 == end) {  // a backslash at the very end stands for itself
            value += c;
            return value;
        }
        wchar_t escaped = message[at + 1];
        at += 2;
        switch (escaped) {
        case L'n': value += L'\n'; break;
        case L'r': value += L'\r'; break;
        case L't': value += L'\t'; break;
        case L'u':
            // Four characters must follow the "u"; else it is a plain "u".
            if (at + 3 < end) {
                value += decodeFourHex(message, at);
                at += 4;
            } else {
                value += L'u';
            }
            break;
        default: value += escaped; break;  // \" \\ \/ and also \b \f as plain letters
        }
    }
    return value;
}

// Any other value: up to a comma or closing bracket at depth 0, or through the
// bracket that closes the value's own object or array. Quotation marks are not
// looked at, so brackets and commas inside nested strings count as structure.
std::wstring readRawValue(const std::wstring& message, size_t start) {
    size_t depth = 0;
    for (size_t at = start; at < message.size(); ++at) {
        wchar_t c = message[at];
        if (c == L'[' || c == L'{') {
            ++depth;
        } else if (c == L']' || c == L'}') {
            if (depth == 0) return message.substr(start, at - start);
            if (--depth == 0) return message.substr(start, at + 1 - start);
        } else if (c == L',' && depth == 0) {
            return message.substr(start, at - start);
        }
    }
    return message.substr(start);
}

}  // namespace

std::wstring jsonEscape(const std::wstring& text) {
    std::wstring out;
    out.reserve(text.size() + 8);
    for (wchar_t c : text) {
        switch (c) {
        case L'\t': out += L"\\t"; break;
        case L'\n': out += L"\\n"; break;
        case L'\r': out += L"\\r"; break;
        case L'"': out += L"\\\""; break;
        case L'\\': out += L"\\\\"; break;
        default:
            // Everything from U+0020 up stays as it is, U+2028 and unpaired
            // surrogates included: the text stays UTF-16 until it is sent.
            if (static_cast<uint32_t>(c) < 0x20) {
                appendUnicodeEscape(out, static_cast<uint32_t>(c));
            } else {
                out += c;
            }
        }
    }
    return out;
}

std::wstring jsonField(const std::wstring& message, const std::wstring& key) {
    // The quoted key is searched as plain text anywhere in the message, also
    // inside string values; messages are trusted never to quote a key name.
    const std::wstring needle = L"\"" + key + L"\"";
    if (needle.size() > message.size()) return std::wstring();
    size_t found = message.find(needle);
    if (found == std::wstring::npos) return std::wstring();

    size_t colon = message.find(L':', found + needle.size());
    if (colon == std::wstring::npos) return std::wstring();

    size_t at = colon + 1;
    while (at < message.size() && std::iswspace(static_cast<wint_t>(message[at]))) ++at;
    if (at == message.size()) return std::wstring();

    if (message[at] == L'"') return readStringValue(message, at + 1);
    return readRawValue(message, at);
}
