// testctl: one-shot window commands for the end-to-end tests, each printing
// one JSON object on stdout.
//
//   testctl find <class> [<title>]            {"hwnd":"..."} (zeros when none)
//   testctl post <HWNDHEX|host> <msg> <wparam> <lparam>
//                                             {"ok":bool,"error":N,"hwnd":"..."}
//   testctl info <HWNDHEX|host>               the window's description
//   testctl wait-host <seconds>               {"hwnd":"..."}; exit 1 if none came
//   testctl resources <pid>                   {"handles":N,"gdi":N,"user":N} as the
//                                             system counts them for that process
//                                             (handles -1 when the list cannot be had)
//
// "host" is the overlay's host window (class GRAOverlayHost). It is a
// top-level window until the overlay makes it a child of the game window, so
// it is looked for among the top-level windows first and then among their
// descendants. Numbers are decimal or 0x hexadecimal. Exit code 2 means a
// usage error, reported as {"error":"..."}.
#include "wininfo.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {

const wchar_t kHostClass[] = L"GRAOverlayHost";

int printJson(const std::string& json, int exitCode) {
    std::fwrite(json.data(), 1, json.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
    return exitCode;
}

int usage(const std::string& message) {
    return printJson("{\"error\":" + wininfo::jsonString(message) + "}", 2);
}

BOOL CALLBACK matchHostChild(HWND window, LPARAM found) {
    wchar_t name[64] = L"";
    GetClassNameW(window, name, 64);
    if (std::wstring(name) != kHostClass) return TRUE;
    *reinterpret_cast<HWND*>(found) = window;
    return FALSE;
}

BOOL CALLBACK searchTopLevel(HWND window, LPARAM found) {
    EnumChildWindows(window, matchHostChild, found);
    return *reinterpret_cast<HWND*>(found) == nullptr;
}

HWND findHost() {
    HWND host = FindWindowW(kHostClass, nullptr);
    if (host == nullptr) EnumWindows(searchTopLevel, reinterpret_cast<LPARAM>(&host));
    return host;
}

bool resolveWindow(const std::string& text, HWND* window) {
    if (text == "host") {
        *window = findHost();
        return true;
    }
    return wininfo::parseHandle(text, window);
}

int find(int argc, wchar_t** argv) {
    if (argc < 3) return usage("find <class> [<title>]");
    HWND window = FindWindowW(argv[2], argc > 3 ? argv[3] : nullptr);
    return printJson("{\"hwnd\":\"" + wininfo::handleHex(window) + "\"}", 0);
}

int post(int argc, wchar_t** argv) {
    HWND window = nullptr;
    std::int64_t message = 0, wParam = 0, lParam = 0;
    if (argc < 6 || !resolveWindow(wininfo::toUtf8(argv[2]), &window) ||
        !wininfo::parseNumber(wininfo::toUtf8(argv[3]), &message) ||
        !wininfo::parseNumber(wininfo::toUtf8(argv[4]), &wParam) ||
        !wininfo::parseNumber(wininfo::toUtf8(argv[5]), &lParam)) {
        return usage("post <HWNDHEX|host> <msg> <wparam> <lparam>");
    }
    SetLastError(0);
    const BOOL ok = PostMessageW(window, static_cast<UINT>(message), static_cast<WPARAM>(wParam),
                                 static_cast<LPARAM>(lParam));
    const DWORD error = ok ? 0 : GetLastError();
    return printJson("{\"ok\":" + wininfo::jsonBool(ok != FALSE) + ",\"error\":" + std::to_string(error) +
                         ",\"hwnd\":\"" + wininfo::handleHex(window) + "\"}",
                     ok ? 0 : 1);
}

int info(int argc, wchar_t** argv) {
    HWND window = nullptr;
    if (argc < 3 || !resolveWindow(wininfo::toUtf8(argv[2]), &window)) return usage("info <HWNDHEX|host>");
    return printJson(wininfo::windowInfoJson(window), 0);
}

int waitHost(int argc, wchar_t** argv) {
    std::int64_t seconds = 0;
    if (argc < 3 || !wininfo::parseNumber(wininfo::toUtf8(argv[2]), &seconds) || seconds < 0) {
        return usage("wait-host <seconds>");
    }
    const ULONGLONG deadline = GetTickCount64() + static_cast<ULONGLONG>(seconds) * 1000;
    HWND host = findHost();
    while (host == nullptr && GetTickCount64() < deadline) {
        Sleep(50);
        host = findHost();
    }
    return printJson("{\"hwnd\":\"" + wininfo::handleHex(host) + "\"}", host ? 0 : 1);
}

// The system's list of every open handle (SystemHandleInformation), counted
// for one process. GetProcessHandleCount answers 0 for other processes under
// Wine; this list is right there too.
struct SystemHandleEntry {
    ULONG processId;
    UCHAR objectType;
    UCHAR flags;
    USHORT handle;
    PVOID object;
    ACCESS_MASK access;
};

using QuerySystemInformation = LONG(WINAPI*)(ULONG, PVOID, ULONG, PULONG);

long handleCount(DWORD processId) {
    auto query = reinterpret_cast<QuerySystemInformation>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    if (!query) return -1;
    const ULONG systemHandleInformation = 16;
    const LONG lengthMismatch = static_cast<LONG>(0xC0000004L);
    std::vector<char> buffer(1 << 20);
    ULONG length = 0;
    LONG status;
    while ((status = query(systemHandleInformation, buffer.data(), static_cast<ULONG>(buffer.size()), &length)) ==
           lengthMismatch) {
        buffer.resize(buffer.size() * 2);
    }
    if (status != 0) return -1;
    ULONG entries = *reinterpret_cast<ULONG*>(buffer.data());
    const SystemHandleEntry* entry = reinterpret_cast<const SystemHandleEntry*>(buffer.data() + sizeof(void*));
    long count = 0;
    for (ULONG i = 0; i < entries; ++i) {
        if (entry[i].processId == processId) ++count;
    }
    return count;
}

int resources(int argc, wchar_t** argv) {
    std::int64_t processId = 0;
    if (argc < 3 || !wininfo::parseNumber(wininfo::toUtf8(argv[2]), &processId)) return usage("resources <pid>");
    HANDLE process = OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, static_cast<DWORD>(processId));
    if (!process) return printJson("{\"error\":\"cannot open the process\"}", 1);
    const DWORD gdi = GetGuiResources(process, GR_GDIOBJECTS);
    const DWORD user = GetGuiResources(process, GR_USEROBJECTS);
    CloseHandle(process);
    return printJson("{\"handles\":" + std::to_string(handleCount(static_cast<DWORD>(processId))) +
                         ",\"gdi\":" + std::to_string(gdi) + ",\"user\":" + std::to_string(user) + "}",
                     0);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const std::wstring command = argc > 1 ? argv[1] : L"";
    if (command == L"find") return find(argc, argv);
    if (command == L"post") return post(argc, argv);
    if (command == L"info") return info(argc, argv);
    if (command == L"wait-host") return waitHost(argc, argv);
    if (command == L"resources") return resources(argc, argv);
    return usage("commands: find, post, info, wait-host, resources");
}
