#include "journal.h"

#include <objbase.h>

#include <cstdio>

namespace standin {

std::string utf8(const wchar_t* text) {
    if (text == nullptr) {
        return "(null)";
    }
    return utf8(std::wstring(text));
}

std::string utf8(const std::wstring& text) {
    if (text.empty()) {
        return {};
    }
    const int length = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), bytes, nullptr, nullptr);
    return result;
}

std::wstring wide(const std::string& utf8Text) {
    if (utf8Text.empty()) {
        return {};
    }
    const int length = static_cast<int>(utf8Text.size());
    const int units = MultiByteToWideChar(CP_UTF8, 0, utf8Text.data(), length, nullptr, 0);
    std::wstring result(static_cast<size_t>(units), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8Text.data(), length, result.data(), units);
    return result;
}

std::wstring environmentText(const wchar_t* name) {
    const DWORD size = GetEnvironmentVariableW(name, nullptr, 0);
    if (size == 0) {
        return {};
    }
    std::wstring value(size, L'\0');
    const DWORD length = GetEnvironmentVariableW(name, value.data(), size);
    value.resize(length < size ? length : 0);
    return value;
}

std::string hresultText(HRESULT hr) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lx", static_cast<unsigned long>(hr));
    return text;
}

namespace {

std::string oneLine(const std::string& line) {
    std::string result;
    result.reserve(line.size() + 1);
    for (char c : line) {
        if (c == '\n') {
            result += "\\n";
        } else if (c == '\r') {
            result += "\\r";
        } else {
            result += c;
        }
    }
    result += '\n';
    return result;
}

}  // namespace

void journal(const std::string& line) {
    const std::wstring path = environmentText(L"GRA_STANDIN_JOURNAL");
    if (path.empty()) {
        return;
    }
    // Shared for reading and writing: a test may be reading the file while
    // the program appends to it.
    HANDLE file = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return;
    }
    const std::string text = oneLine(line);
    DWORD written = 0;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
}

HRESULT unexpected(const char* name) {
    journal(std::string("unexpected ") + name);
    return E_NOTIMPL;
}

LPWSTR taskMemCopy(const std::wstring& text) {
    const size_t bytes = (text.size() + 1) * sizeof(wchar_t);
    auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
    if (copy != nullptr) {
        CopyMemory(copy, text.c_str(), bytes);
    }
    return copy;
}

}  // namespace standin
