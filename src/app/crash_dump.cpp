#include "app/crash_dump.h"

#include <windows.h>
#include <dbghelp.h>

#include <cstdint>

#include "app/host_state.h"
#include "app/log.h"
#include "app/text.h"

namespace {

// A writer that hangs (a lock held by the crashed thread) must not keep the
// process from ending.
constexpr DWORD writeLimitMs = 60000;

// Made once at start-up and kept for the life of the process: the system
// closes the handles when the process ends. Nothing here is allocated after
// the crash except by the system's own dump writer.
struct CrashWriter {
    HANDLE wake = nullptr;  // set by the filter
    HANDLE done = nullptr;  // set by the writer once the dump and the line are out
    std::wstring dumpPath;
    EXCEPTION_POINTERS* exception = nullptr;
    DWORD crashedThread = 0;
    LONG claimed = 0;  // the first crash is the one written
};

CrashWriter writer;

// True when the dump was written; otherwise `error` holds why not.
bool writeDump(DWORD& error) {
    HANDLE file = CreateFileW(writer.dumpPath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        error = GetLastError();
        return false;
    }
    MINIDUMP_EXCEPTION_INFORMATION exception{};
    exception.ThreadId = writer.crashedThread;
    exception.ExceptionPointers = writer.exception;
    exception.ClientPointers = FALSE;
    auto kind = static_cast<MINIDUMP_TYPE>(MiniDumpNormal | MiniDumpWithThreadInfo | MiniDumpWithUnloadedModules);
    bool written = MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file, kind, &exception, nullptr,
                                     nullptr) != FALSE;
    if (!written) error = GetLastError();
    CloseHandle(file);
    return written;
}

void logCrash(bool dumped, DWORD error) {
    const EXCEPTION_RECORD& record = *writer.exception->ExceptionRecord;
    auto code = static_cast<unsigned long>(record.ExceptionCode);
    std::string where = codeLocation(record.ExceptionAddress);
    if (dumped) {
        logLine("crashed - exception 0x%08lx at %s - a dump is in %s", code, where.c_str(),
                wideToUtf8(writer.dumpPath).c_str());
    } else {
        logLine("crashed - exception 0x%08lx at %s - no dump written (error %lu)", code, where.c_str(),
                static_cast<unsigned long>(error));
    }
}

DWORD WINAPI writeCrashReport(void*) {
    WaitForSingleObject(writer.wake, INFINITE);
    DWORD error = 0;
    bool dumped = writeDump(error);
    logCrash(dumped, error);
    // Ended from here, with the exception's code: returning to the crashed
    // thread would have the system unwind a stack that may be used up.
    TerminateProcess(GetCurrentProcess(), writer.exception->ExceptionRecord->ExceptionCode);
    SetEvent(writer.done);
    return 0;
}

// Runs on the crashed thread, perhaps with almost no stack: it only wakes
// the writer and waits for it.
LONG WINAPI onUnhandledException(EXCEPTION_POINTERS* exception) {
    if (InterlockedExchange(&writer.claimed, 1) == 0) {
        writer.exception = exception;
        writer.crashedThread = GetCurrentThreadId();
        SetEvent(writer.wake);
    }
    WaitForSingleObject(writer.done, writeLimitMs);
    // Reached only when the writer did not end the process in time: ends it
    // here, before the system would offer a debugger or a dialog box.
    return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace

std::wstring crashDumpPath(const std::wstring& logPath) {
    size_t separator = logPath.find_last_of(L"\\/");
    if (separator == std::wstring::npos) return L"gra_overlay.dmp";
    return logPath.substr(0, separator + 1) + L"gra_overlay.dmp";
}

std::string codeLocation(const void* address) {
    HMODULE module = nullptr;
    wchar_t path[MAX_PATH] = L"";
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            static_cast<LPCWSTR>(address), &module) ||
        GetModuleFileNameW(module, path, MAX_PATH) == 0) {
        char text[64];
        formatText(text, sizeof text, "?+0x%llx",
                   static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(address)));
        return text;
    }
    std::wstring fullPath = path;
    size_t separator = fullPath.find_last_of(L"\\/");
    std::string name = wideToUtf8(separator == std::wstring::npos ? fullPath : fullPath.substr(separator + 1));
    char offset[32];
    formatText(offset, sizeof offset, "+0x%llx",
               static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(address) -
                                               reinterpret_cast<uintptr_t>(module)));
    return name + offset;
}

namespace {

bool startWriter(DWORD& error) {
    writer.wake = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (!writer.wake) {
        error = GetLastError();
        return false;
    }
    writer.done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (!writer.done) {
        error = GetLastError();
        return false;
    }
    HANDLE thread = CreateThread(nullptr, 0, writeCrashReport, nullptr, 0, nullptr);
    if (!thread) {
        error = GetLastError();
        return false;
    }
    // The thread waits for the process's whole life; its handle is not needed.
    CloseHandle(thread);
    return true;
}

}  // namespace

void installCrashHandler() {
    writer.dumpPath = crashDumpPath(host.logPath);
    DWORD error = 0;
    if (!startWriter(error)) {
        logLine("crash dumps are off - the writer could not be prepared (error %lu)", static_cast<unsigned long>(error));
        return;
    }
    SetUnhandledExceptionFilter(onUnhandledException);
}
