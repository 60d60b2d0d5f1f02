// run-limited: starts a program with the limited token linked to this
// process's elevated one, as Windows starts a program for an administrator
// who did not choose "Run as administrator"; waits for it and ends with its
// exit code. The program ends with this one: it runs in a job that kills its
// members when the job's last handle, held only here, is closed.
//
//   run-limited.exe <program> [arguments...]
//
// The arguments after the program are handed on exactly as they were written.
// Prints "run-limited: pid N" once the program runs; on failure prints the
// step and its error number on stderr and ends with exit code 120.
//
// Under Wine every process gets the full, elevated administrator token; the
// one started here reports TokenElevation false (its integrity level stays
// high, as Wine fixes it).
#include <windows.h>

#include <cstdio>
#include <string>

namespace {

int failed(const char* step, DWORD error) {
    std::fprintf(stderr, "run-limited: %s failed (error %lu)\n", step, error);
    return 120;
}

// The command line after its first `skip` arguments, as written.
const wchar_t* afterArguments(const wchar_t* line, int skip) {
    for (int i = 0; i < skip; ++i) {
        while (*line == L' ' || *line == L'\t') ++line;
        bool quoted = false;
        for (; *line && (quoted || (*line != L' ' && *line != L'\t')); ++line) {
            if (*line == L'"') quoted = !quoted;
        }
    }
    while (*line == L' ' || *line == L'\t') ++line;
    return line;
}

// A primary token made from the limited token linked to this process's own;
// null with the failed step and its error otherwise.
HANDLE limitedToken(const char** step, DWORD* error) {
    HANDLE own = nullptr;
    *step = "OpenProcessToken";
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY | TOKEN_DUPLICATE, &own)) {
        *error = GetLastError();
        return nullptr;
    }
    TOKEN_LINKED_TOKEN linked{};
    DWORD size = 0;
    *step = "GetTokenInformation(TokenLinkedToken)";
    BOOL haveLinked = GetTokenInformation(own, TokenLinkedToken, &linked, sizeof linked, &size);
    if (!haveLinked) *error = GetLastError();
    CloseHandle(own);
    if (!haveLinked) return nullptr;
    HANDLE primary = nullptr;
    *step = "DuplicateTokenEx";
    BOOL duplicated = DuplicateTokenEx(linked.LinkedToken, TOKEN_ALL_ACCESS, nullptr, SecurityImpersonation,
                                       TokenPrimary, &primary);
    if (!duplicated) *error = GetLastError();
    CloseHandle(linked.LinkedToken);
    return duplicated ? primary : nullptr;
}

HANDLE killingJob() {
    HANDLE job = CreateJobObjectW(nullptr, nullptr);
    if (!job) return nullptr;
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
    return job;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "run-limited: usage: run-limited.exe <program> [arguments...]\n");
        return 120;
    }
    const char* step = "";
    DWORD error = 0;
    HANDLE token = limitedToken(&step, &error);
    if (!token) return failed(step, error);
    HANDLE job = killingJob();
    if (!job) return failed("CreateJobObjectW", GetLastError());

    std::wstring commandLine = std::wstring(L"\"") + argv[1] + L"\" " + afterArguments(GetCommandLineW(), 2);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessAsUserW(token, argv[1], &commandLine[0], nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr,
                              nullptr, &startup, &process)) {
        return failed("CreateProcessAsUserW", GetLastError());
    }
    CloseHandle(token);
    AssignProcessToJobObject(job, process.hProcess);
    ResumeThread(process.hThread);
    CloseHandle(process.hThread);
    std::printf("run-limited: pid %lu\n", process.dwProcessId);
    std::fflush(stdout);

    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hProcess);
    return static_cast<int>(code);
}
