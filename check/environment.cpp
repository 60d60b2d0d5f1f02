#include "environment.h"

#include <windows.h>

#include <cstdio>

#include "app/owned_handle.h"
#include "app/text.h"
#include "gra_version.h"
#include "page/webview2_loader.h"

namespace {

std::string windowsVersion() {
    using RtlGetVersionCall = LONG(WINAPI*)(OSVERSIONINFOW*);
    OSVERSIONINFOW info{};
    info.dwOSVersionInfoSize = sizeof info;
    // GetVersionEx lies to programs without a compatibility manifest; the
    // kernel's own call does not.
    auto call = reinterpret_cast<RtlGetVersionCall>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    if (!call || call(&info) != 0) return "unknown";
    char text[64];
    std::snprintf(text, sizeof text, "%lu.%lu.%lu", info.dwMajorVersion, info.dwMinorVersion, info.dwBuildNumber);
    std::string version = text;
    wchar_t name[128] = L"";
    DWORD bytes = sizeof name;
    if (RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", L"ProductName",
                     RRF_RT_REG_SZ, nullptr, name, &bytes) == ERROR_SUCCESS) {
        version += std::string(" (") + wideToUtf8(name) + ")";
    }
    return version;
}

std::string wineVersion() {
    using WineGetVersion = const char* (*)();
    auto call = reinterpret_cast<WineGetVersion>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version")));
    return call ? std::string(call()) : std::string();
}

// The runtime folder's last name, when it reads like a version (the
// installed runtime lives in a folder named after its version).
std::string versionFromFolder(const std::wstring& folder) {
    std::wstring trimmed = folder;
    while (!trimmed.empty() && (trimmed.back() == L'\\' || trimmed.back() == L'/')) trimmed.pop_back();
    size_t slash = trimmed.find_last_of(L"\\/");
    std::wstring last = slash == std::wstring::npos ? trimmed : trimmed.substr(slash + 1);
    if (last.empty() || last.find_first_not_of(L"0123456789.") != std::wstring::npos) return std::string();
    return wideToUtf8(last);
}

// The installer notes the installed runtime's version beside its folder ("pv").
std::string installedRuntimeVersion() {
    const wchar_t* key = L"Software\\Microsoft\\EdgeUpdate\\Clients\\{F3017226-FE2A-4295-8BDF-00C3A9A7E4C5}";
    const HKEY roots[] = {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER};
    const DWORD views[] = {RRF_SUBKEY_WOW6432KEY, 0};
    for (int i = 0; i < 2; ++i) {
        wchar_t version[64] = L"";
        DWORD bytes = sizeof version;
        if (RegGetValueW(roots[i], key, L"pv", RRF_RT_REG_SZ | views[i], nullptr, version, &bytes) == ERROR_SUCCESS &&
            version[0] && std::wstring(version) != L"0.0.0.0") {
            return wideToUtf8(version);
        }
    }
    return std::string();
}

void readRuntime(EnvironmentFacts& facts) {
    // The program's own rules: the environment's fixed-version folder, else the installed runtime.
    RuntimeFolder runtime = chooseRuntimeFolder(environmentValue(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER"), nullptr,
                                                readInstalledRuntimeFolder);
    if (runtime.folder.empty()) {
        facts.runtimeProblem =
            "no WebView2 runtime found - install the Evergreen WebView2 Runtime from Microsoft "
            "(https://go.microsoft.com/fwlink/p/?LinkId=2124703), or name a fixed-version runtime's folder in "
            "WEBVIEW2_BROWSER_EXECUTABLE_FOLDER";
        return;
    }
    facts.runtimeFolder = wideToUtf8(runtime.folder);
    facts.runtimeKind = runtime.type == fixedVersionRuntime
                            ? "fixed version (WEBVIEW2_BROWSER_EXECUTABLE_FOLDER)"
                            : "installed (Evergreen)";
    std::wstring library = runtimeClientLibrary(runtime.folder);
    if (GetFileAttributesW(library.c_str()) == INVALID_FILE_ATTRIBUTES) {
        facts.runtimeProblem = "the runtime folder " + facts.runtimeFolder + " holds no " + wideToUtf8(library) +
                               " - repair or reinstall the WebView2 runtime" +
                               (runtime.type == fixedVersionRuntime
                                    ? ", or correct WEBVIEW2_BROWSER_EXECUTABLE_FOLDER"
                                    : "");
        return;
    }
    if (runtime.type == installedRuntime) facts.runtimeVersion = installedRuntimeVersion();
    if (facts.runtimeVersion.empty()) facts.runtimeVersion = fileVersionOf(library);
    if (facts.runtimeVersion.empty()) facts.runtimeVersion = versionFromFolder(runtime.folder);
    if (facts.runtimeVersion.empty()) facts.runtimeVersion = "unknown (its client library has no version resource)";
}

BOOL CALLBACK noteMonitor(HMONITOR monitor, HDC, LPRECT, LPARAM context) {
    auto* monitors = reinterpret_cast<std::vector<std::string>*>(context);
    MONITORINFOEXW info{};
    info.cbSize = sizeof info;
    GetMonitorInfoW(monitor, reinterpret_cast<MONITORINFO*>(&info));
    UINT dpiX = monitorDpi(monitor);
    char text[256];
    const RECT& r = info.rcMonitor;
    if (dpiX != 0) {
        std::snprintf(text, sizeof text, "%s %ldx%ld at (%ld,%ld), %u DPI (scale %u%%)%s",
                      wideToUtf8(info.szDevice).c_str(), r.right - r.left, r.bottom - r.top, r.left, r.top, dpiX,
                      dpiX * 100 / 96, (info.dwFlags & MONITORINFOF_PRIMARY) ? ", primary" : "");
    } else {
        std::snprintf(text, sizeof text, "%s %ldx%ld at (%ld,%ld), DPI unknown%s", wideToUtf8(info.szDevice).c_str(),
                      r.right - r.left, r.bottom - r.top, r.left, r.top,
                      (info.dwFlags & MONITORINFOF_PRIMARY) ? ", primary" : "");
    }
    monitors->push_back(text);
    return TRUE;
}

bool runsElevated() {
    OwnedHandle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.receive())) return false;
    TOKEN_ELEVATION elevation{};
    DWORD size = 0;
    return GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof elevation, &size) &&
           elevation.TokenIsElevated != 0;
}

}  // namespace

UINT monitorDpi(HMONITOR monitor) {
    // Through shcore's export, found at run time: the check runs on systems where it may be missing.
    using GetDpiForMonitorCall = HRESULT(WINAPI*)(HMONITOR, int, UINT*, UINT*);
    HMODULE shcore = GetModuleHandleW(L"shcore.dll");
    if (!shcore) shcore = LoadLibraryW(L"shcore.dll");
    auto getDpi = shcore ? reinterpret_cast<GetDpiForMonitorCall>(
                               reinterpret_cast<void*>(GetProcAddress(shcore, "GetDpiForMonitor")))
                         : nullptr;
    UINT dpiX = 0, dpiY = 0;
    if (!getDpi || FAILED(getDpi(monitor, 0 /* effective DPI */, &dpiX, &dpiY))) return 0;
    return dpiX;
}

std::string fileVersionOf(const std::wstring& path) {
    DWORD ignored = 0;
    DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
    if (size == 0) return std::string();
    std::string data(size, '\0');
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    if (!GetFileVersionInfoW(path.c_str(), 0, size, &data[0]) ||
        !VerQueryValueW(data.data(), L"\\", reinterpret_cast<void**>(&fixed), &length) || !fixed) {
        return std::string();
    }
    char text[64];
    std::snprintf(text, sizeof text, "%lu.%lu.%lu.%lu", static_cast<unsigned long>(HIWORD(fixed->dwFileVersionMS)),
                  static_cast<unsigned long>(LOWORD(fixed->dwFileVersionMS)),
                  static_cast<unsigned long>(HIWORD(fixed->dwFileVersionLS)),
                  static_cast<unsigned long>(LOWORD(fixed->dwFileVersionLS)));
    return text;
}

EnvironmentFacts readEnvironment(const std::wstring& programPath) {
    EnvironmentFacts facts;
    facts.windowsVersion = windowsVersion();
    facts.wineVersion = wineVersion();
    facts.underWine = !facts.wineVersion.empty();
    readRuntime(facts);
    EnumDisplayMonitors(nullptr, nullptr, noteMonitor, reinterpret_cast<LPARAM>(&facts.monitors));
    facts.elevated = runsElevated();
    facts.programPath = wideToUtf8(programPath);
    if (GetFileAttributesW(programPath.c_str()) != INVALID_FILE_ATTRIBUTES) {
        facts.programVersion = fileVersionOf(programPath);
        if (facts.programVersion.empty()) facts.programVersion = "unknown (no version resource)";
    }
    facts.checkVersion = GRA_VERSION_TEXT;
    return facts;
}

std::vector<std::pair<std::string, std::string>> environmentLines(const EnvironmentFacts& facts) {
    std::vector<std::pair<std::string, std::string>> lines;
    lines.emplace_back("Windows", facts.windowsVersion);
    lines.emplace_back("Wine", facts.underWine ? "yes, " + facts.wineVersion : "no");
    lines.emplace_back("WebView2 runtime",
                       facts.runtimeProblem.empty() ? facts.runtimeVersion : "none usable - " + facts.runtimeProblem);
    if (!facts.runtimeFolder.empty()) {
        lines.emplace_back("WebView2 runtime folder", facts.runtimeFolder + " - " + facts.runtimeKind);
    }
    for (size_t i = 0; i < facts.monitors.size(); ++i) {
        lines.emplace_back("monitor " + std::to_string(i + 1), facts.monitors[i]);
    }
    lines.emplace_back("elevated", facts.elevated ? "yes (run as administrator)" : "no");
    lines.emplace_back("gra-overlay.exe",
                       facts.programVersion.empty() ? facts.programPath + " - not found"
                                                    : facts.programVersion + " - " + facts.programPath);
    lines.emplace_back("gra-overlay-check", facts.checkVersion);
    return lines;
}
