// Coverage-guided fuzzing of the JSON text helpers with libFuzzer (clang only).
// The input bytes are read two at a time as UTF-16 code units; the first unit
// gives the key's length, the next units the key, the rest the message.
#include <cstddef>
#include <cstdint>
#include <string>

#include "page/json_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::wstring units;
    for (size_t i = 0; i + 1 < size; i += 2) units += static_cast<wchar_t>(data[i] | (data[i + 1] << 8));
    if (units.empty()) return 0;
    size_t keyLength = static_cast<size_t>(units[0]) % 8;
    if (keyLength > units.size() - 1) keyLength = units.size() - 1;
    std::wstring key = units.substr(1, keyLength);
    std::wstring message = units.substr(1 + keyLength);

    std::wstring value = jsonField(message, key);
    if (value.size() > message.size()) __builtin_trap();
    std::wstring escaped = jsonEscape(message);
    if (jsonField(L"{\"k\":\"" + escaped + L"\"}", L"k") != message) __builtin_trap();
    return 0;
}
