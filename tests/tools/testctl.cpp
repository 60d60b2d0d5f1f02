// testctl: one-shot window commands for the end-to-end tests, each printing
// one JSON object on stdout.
//
//   testctl find <class> [<title>]            {"hwnd":"..."} (zeros when none)
//   testctl post <HWNDHEX|host> <msg> <wparam> <lparam>
//                                             {"ok":bool,"error":N,"hwnd":"..."}
//   testctl info <HWNDHEX|host>               the window's description
//   testctl wait-host <seconds>               {"hwnd":"..."}; exit 1 if none came
//
// "host" is the overlay's host window (class GRAOverlayHost). It is a
// top-level window until the overlay makes it a child of the game window, so
// it is looked for among the top-level windows first and then among their
// descendants. Numbers are decimal or 0x hexadecimal. Exit code 2 means a
// usage error, reported as {"error":"..."}.
#include "wininfo.h"

#include <cstdio>
#include <string>

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

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const std::wstring command = argc > 1 ? argv[1] : L"";
    if (command == L"find") return find(argc, argv);
    if (command == L"post") return post(argc, argv);
    if (command == L"info") return info(argc, argv);
    if (command == L"wait-host") return waitHost(argc, argv);
    return usage("commands: find, post, info, wait-host");
}
