// The log: one plain-text file, one line per event, opened and closed for
// every line so that nothing is buffered in the process. Also the two bounded
// formatters that other parts use to build texts before logging them.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cwchar>

void logLine(const char* format, ...);

// snprintf with C99 truncation: cut to size - 1 characters and always
// terminated; returns the full formatted length, or -1 on a library error.
int formatText(char* buffer, size_t size, const char* format, ...);
int formatTextList(char* buffer, size_t size, const char* format, va_list args);

// swprintf with a count: returns the length written, or -1 when the text does
// not fit or the library reports an error.
int formatWide(wchar_t* buffer, size_t size, const wchar_t* format, ...);
