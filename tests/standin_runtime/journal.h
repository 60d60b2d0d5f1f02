// Text helpers and the journal: one UTF-8 line per event, appended to the
// file named by GRA_STANDIN_JOURNAL (a Windows path). The file is opened,
// appended and closed for every line so a test can read it at any moment,
// also while the program is still running or after it was killed.
#pragma once

#include <windows.h>

#include <string>

namespace standin {

// UTF-16 to UTF-8; a null pointer gives "(null)".
std::string utf8(const wchar_t* text);
std::string utf8(const std::wstring& text);
std::wstring wide(const std::string& utf8Text);

// The value of an environment variable, empty when it is not set.
std::wstring environmentText(const wchar_t* name);

// "0x" and eight lower-case hexadecimal digits.
std::string hresultText(HRESULT hr);

// Appends one line; carriage returns and line feeds inside it are written as
// the two characters \r and \n, so one event always stays one line.
void journal(const std::string& line);

// Journals "unexpected <name>" and returns E_NOTIMPL: the answer of every
// slot that the program is not supposed to call.
HRESULT unexpected(const char* name);

// A CoTaskMemAlloc'ed copy of text, as the runtime hands out strings.
LPWSTR taskMemCopy(const std::wstring& text);

}  // namespace standin
