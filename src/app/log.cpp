#include "app/log.h"

#include <cstdarg>
#include <cstdio>

#include "app/host_state.h"

// The Microsoft C runtime's formatting is used on purpose (also under
// mingw-w64, whose own printf renders "%p" in lower case): pointers appear as
// 16 upper-case hexadecimal digits without a prefix, as on the shipped build.
int formatTextList(char* buffer, size_t size, const char* format, va_list args) {
    if (size == 0) return -1;
    va_list measure;
    va_copy(measure, args);
    int length = _vscprintf(format, measure);
    va_end(measure);
    if (length < 0) {
        buffer[0] = '\0';
        return -1;
    }
    _vsnprintf(buffer, size - 1, format, args);
    buffer[static_cast<size_t>(length) < size - 1 ? static_cast<size_t>(length) : size - 1] = '\0';
    return length;
}

int formatText(char* buffer, size_t size, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int length = formatTextList(buffer, size, format, args);
    va_end(args);
    return length;
}

int formatWide(wchar_t* buffer, size_t size, const wchar_t* format, ...) {
    if (size == 0) return -1;
    va_list args;
    va_start(args, format);
    int length = _vsnwprintf(buffer, size, format, args);
    va_end(args);
    if (length < 0 || static_cast<size_t>(length) >= size) {
        buffer[size - 1] = L'\0';
        return -1;
    }
    return length;
}

void logLine(const char* format, ...) {
    char message[2048];
    va_list args;
    va_start(args, format);
    formatTextList(message, sizeof message, format, args);
    va_end(args);

    SYSTEMTIME now;
    GetLocalTime(&now);
    FILE* file = _wfopen(host.logPath.c_str(), L"a");
    if (!file) return;
    fprintf(file, "[gra-overlay] %02d:%02d:%02d %s\n", now.wHour, now.wMinute, now.wSecond, message);
    fclose(file);
}
