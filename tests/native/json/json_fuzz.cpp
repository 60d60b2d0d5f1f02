// Randomized checks of jsonEscape and jsonField: a few hundred thousand
// messages built from JSON-ish fragments (quotes, backslashes, escapes cut
// short, brackets, colons, white space, the key at the very end...). Run under
// the sanitizers, any read outside a string stops the program; on top of that
// a few properties that must hold for every input are checked.
//
// Wide characters are 32 bits on Linux; the inputs use only values up to
// U+FFFF so that they stand for the UTF-16 code units of the Windows build.
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "page/json_text.h"

namespace {

const int messageCount = 200000;
// A fixed start: every run checks the same inputs.
const unsigned generatorStart = 20261012;

std::mt19937 generator(generatorStart);

size_t below(size_t limit) {
    return std::uniform_int_distribution<size_t>(0, limit - 1)(generator);
}

wchar_t anyUnit() {
    // Mostly the interesting low range, sometimes anything up to U+FFFF.
    static const wchar_t notable[] = {0x0000, 0x0001, 0x0008, 0x0009, 0x000A, 0x000B, 0x000C, 0x000D,
                                      0x001F, 0x0020, 0x0022, 0x002F, 0x005C, 0x007F, 0x00A0, 0x00E9,
                                      0x2028, 0x2029, 0x3000, 0xD800, 0xD83D, 0xDBFF, 0xDC00, 0xDE00,
                                      0xFEFF, 0xFFFD, 0xFFFF};
    switch (below(3)) {
    case 0: return notable[below(sizeof notable / sizeof notable[0])];
    case 1: return static_cast<wchar_t>(0x20 + below(0x60));
    default: return static_cast<wchar_t>(below(0x10000));
    }
}

std::wstring anyText(size_t maxLength) {
    std::wstring text;
    size_t length = below(maxLength + 1);
    for (size_t i = 0; i < length; ++i) text += anyUnit();
    return text;
}

const std::vector<std::wstring>& fragments() {
    static const std::vector<std::wstring> list = {
        L"\"", L"\\", L"\\\"", L"\\\\", L"\\u", L"\\u1", L"\\u12", L"\\u123", L"\\u00e9", L"\\uZZZZ",
        L"\\ud83d", L"\\ude00", L"\\u-001", L"\\u0x1f", L"\\n", L"\\r", L"\\t", L"\\b", L"\\f", L"\\/",
        L"{", L"}", L"[", L"]", L":", L",", L" ", L"\t", L"\n", L"\r", L"\v", L"\f", L"\"k\"", L"\"type\"",
        L"\"k\":", L"\"type\":", L"k", L"type", L"12", L"-3.5e2", L"true", L"null", L"\"show\"", L"\"\"",
        L"{\"x\":1}", L"[1,2]", L"\"a,b]\"", L"\"k\" : ",
    };
    return list;
}

std::wstring anyMessage() {
    std::wstring message;
    size_t pieces = below(24);
    for (size_t i = 0; i < pieces; ++i) {
        if (below(5) == 0) {
            message += anyUnit();
        } else {
            message += fragments()[below(fragments().size())];
        }
    }
    return message;
}

std::wstring anyKey() {
    static const std::wstring keys[] = {L"k", L"type", L"", L"\"", L"\\", L"k\"", L"rects", L"text"};
    if (below(4) == 0) return anyText(3);
    return keys[below(sizeof keys / sizeof keys[0])];
}

// A raw token that reads back unchanged: no structure, no quotes, and no
// white space at its start.
std::wstring anyToken() {
    static const wchar_t alphabet[] = L"0123456789abcdefxyzE.-+";
    std::wstring token(1, alphabet[below(sizeof alphabet / sizeof alphabet[0] - 1)]);
    size_t more = below(8);
    for (size_t i = 0; i < more; ++i) token += alphabet[below(sizeof alphabet / sizeof alphabet[0] - 1)];
    return token;
}

int failures = 0;

void fail(const char* what, const std::wstring& input) {
    if (++failures <= 10) {
        std::fprintf(stderr, "json_fuzz: %s; input units:", what);
        for (wchar_t c : input) std::fprintf(stderr, " %04x", static_cast<unsigned>(c));
        std::fprintf(stderr, "\n");
    }
}

// The escaped text holds no control units, and every quotation mark in it
// comes after an odd run of backslashes.
bool escapedIsSafe(const std::wstring& escaped) {
    size_t backslashes = 0;
    for (wchar_t c : escaped) {
        if (static_cast<unsigned>(c) < 0x20) return false;
        if (c == L'"' && backslashes % 2 == 0) return false;
        backslashes = c == L'\\' ? backslashes + 1 : 0;
    }
    return backslashes % 2 == 0;
}

bool checkOne() {
    int before = failures;

    // Any message and key: the scan must stay inside the message, and it never
    // produces more units than the message holds.
    std::wstring message = anyMessage();
    std::wstring key = anyKey();
    std::wstring value = jsonField(message, key);
    if (value.size() > message.size()) fail("field longer than the message", message);
    if (jsonField(message, key) != value) fail("field differs between two calls", message);
    if (message.size() < key.size() + 2 && !value.empty()) fail("needle longer than message found", message);

    // Escaping any text: safe inside quotation marks, and it reads back.
    std::wstring text = below(2) ? anyText(16) : anyMessage();
    std::wstring escaped = jsonEscape(text);
    if (!escapedIsSafe(escaped)) fail("escaped text not safe in a JSON string", text);
    if (escaped.size() < text.size()) fail("escaped text shorter than the text", text);
    std::wstring tail = below(2) ? L"\"}" : L"\",\"z\":[1,2]}";
    if (jsonField(L"{\"k\":\"" + escaped + tail, L"k") != text) fail("escaped text does not read back", text);
    if (jsonField(L"{\"k\":\"" + escaped, L"k") != text) fail("unterminated escaped text does not read back", text);

    // An escape cut short by the end of the message is a plain "u" followed
    // by what is left of it.
    std::wstring cut = std::wstring(L"0a9F").substr(0, below(4));
    if (jsonField(L"{\"k\":\"" + escaped + L"\\u" + cut, L"k") != text + L"u" + cut) {
        fail("short unicode escape at the end misread", text + L"\\u" + cut);
    }

    // A raw token reads back as it stands, up to the comma or brace.
    std::wstring token = anyToken();
    if (jsonField(L"{\"k\":" + token + (below(2) ? L"}" : L",\"z\":1}"), L"k") != token) {
        fail("raw token does not read back", token);
    }

    // A key that first occurs at the very end of a message gives nothing: no
    // colon follows it. (A colon inside the key itself could follow an
    // occurrence that overlaps the end, so such keys are left out.)
    const std::wstring needle = L"\"" + key + L"\"";
    if (key.find(L':') == std::wstring::npos && message.find(needle) == std::wstring::npos &&
        !jsonField(message + needle, key).empty()) {
        fail("key at the very end gave a value", message);
    }
    if (key.find(L':') == std::wstring::npos && message.find(needle) == std::wstring::npos &&
        !jsonField(message + needle + L": \t", key).empty()) {
        fail("key with only white space behind its colon gave a value", message);
    }
    return failures == before;
}

}  // namespace

int main() {
    int passed = 0;
    for (int i = 0; i < messageCount; ++i) {
        if (checkOne()) ++passed;
    }
    std::printf("json_fuzz: %d passed, %d failed\n", passed, messageCount - passed);
    return passed == messageCount ? 0 : 1;
}
