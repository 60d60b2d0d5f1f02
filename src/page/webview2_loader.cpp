#include "page/webview2_loader.h"

#include <cwchar>

namespace {

// Where the installer of the stable channel notes the installed runtime.
const wchar_t* const stableChannelKey =
    L"Software\\Microsoft\\EdgeUpdate\\ClientState\\{F3017226-FE2A-4295-8BDF-00C3A9A7E4C5}";
const wchar_t* const runtimeFolderValue = L"EBWebView";

#if defined(_M_ARM64) || defined(__aarch64__)
const wchar_t* const clientLibrarySuffix = L"\\EBWebView\\arm64\\EmbeddedBrowserWebView.dll";
#elif defined(_M_IX86) || defined(__i386__)
const wchar_t* const clientLibrarySuffix = L"\\EBWebView\\x86\\EmbeddedBrowserWebView.dll";
#else
const wchar_t* const clientLibrarySuffix = L"\\EBWebView\\x64\\EmbeddedBrowserWebView.dll";
#endif

// The client library's entry point; the SDK's loader passes true first.
using CreateEnvironmentInternal = HRESULT(STDMETHODCALLTYPE*)(
    bool checkRunningInstance, int runtimeType, PCWSTR userDataFolder, IUnknown* environmentOptions,
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler);

const HRESULT runtimeNotFound = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

std::wstring readFolderValue(HKEY root, REGSAM view) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, stableChannelKey, 0, KEY_QUERY_VALUE | view, &key) != ERROR_SUCCESS) {
        return std::wstring();
    }
    std::wstring folder;
    DWORD bytes = 0;
    if (RegGetValueW(key, nullptr, runtimeFolderValue, RRF_RT_REG_SZ, nullptr, nullptr, &bytes) == ERROR_SUCCESS &&
        bytes > sizeof(wchar_t)) {
        folder.resize(bytes / sizeof(wchar_t));
        if (RegGetValueW(key, nullptr, runtimeFolderValue, RRF_RT_REG_SZ, nullptr, &folder[0], &bytes) ==
            ERROR_SUCCESS) {
            folder.resize(wcsnlen(folder.c_str(), folder.size()));
        } else {
            folder.clear();  // the value changed between the two reads
        }
    }
    RegCloseKey(key);
    return folder;
}

// Appends the WEBVIEW2_ADDITIONAL_BROWSER_ARGUMENTS value to the caller's
// own browser arguments in its options object.
void addEnvironmentBrowserArguments(ICoreWebView2EnvironmentOptions* options) {
    std::wstring fromEnvironment = environmentValue(L"WEBVIEW2_ADDITIONAL_BROWSER_ARGUMENTS");
    if (!options || fromEnvironment.empty()) return;
    LPWSTR own = nullptr;
    std::wstring ownArguments;
    if (SUCCEEDED(options->get_AdditionalBrowserArguments(&own)) && own) ownArguments = own;
    CoTaskMemFree(own);
    options->put_AdditionalBrowserArguments(combinedBrowserArguments(ownArguments, fromEnvironment).c_str());
}

}  // namespace

std::wstring environmentValue(const wchar_t* name) {
    DWORD size = GetEnvironmentVariableW(name, nullptr, 0);
    if (size == 0) return std::wstring();
    std::wstring value(size, L'\0');
    DWORD length = GetEnvironmentVariableW(name, &value[0], size);
    value.resize(length < size ? length : 0);
    return value;
}

std::wstring combinedBrowserArguments(const std::wstring& own, const std::wstring& fromEnvironment) {
    if (fromEnvironment.empty()) return own;
    if (own.empty()) return fromEnvironment;
    return own + L" " + fromEnvironment;
}

RuntimeFolder chooseRuntimeFolder(const std::wstring& environmentFolder, PCWSTR argumentFolder,
                                  const std::function<std::wstring()>& readInstalledFolder) {
    if (!environmentFolder.empty()) return {environmentFolder, fixedVersionRuntime};
    if (argumentFolder && *argumentFolder) return {argumentFolder, fixedVersionRuntime};
    return {readInstalledFolder(), installedRuntime};
}

std::wstring readInstalledRuntimeFolder() {
    // The installer is a 32-bit program: the machine-wide note lives in the
    // 32-bit view of the registry. A per-user install writes the user's hive.
    std::wstring folder = readFolderValue(HKEY_LOCAL_MACHINE, KEY_WOW64_32KEY);
    if (folder.empty()) folder = readFolderValue(HKEY_CURRENT_USER, 0);
    return folder;
}

std::wstring runtimeClientLibrary(const std::wstring& runtimeFolder) {
    std::wstring path = runtimeFolder;
    while (!path.empty() && (path.back() == L'\\' || path.back() == L'/')) path.pop_back();
    return path + clientLibrarySuffix;
}

HRESULT CreateCoreWebView2EnvironmentWithOptions(
    PCWSTR browserExecutableFolder, PCWSTR userDataFolder, ICoreWebView2EnvironmentOptions* environmentOptions,
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* environmentCreatedHandler) {
    RuntimeFolder runtime = chooseRuntimeFolder(environmentValue(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER"),
                                                browserExecutableFolder, readInstalledRuntimeFolder);
    if (runtime.folder.empty()) return runtimeNotFound;

    std::wstring dataFolderOverride = environmentValue(L"WEBVIEW2_USER_DATA_FOLDER");
    if (!dataFolderOverride.empty()) userDataFolder = dataFolderOverride.c_str();

    // The library stays loaded for the life of the process: the browser's
    // objects live in it.
    HMODULE library = LoadLibraryW(runtimeClientLibrary(runtime.folder).c_str());
    if (!library) return runtimeNotFound;
    auto create = reinterpret_cast<CreateEnvironmentInternal>(
        reinterpret_cast<void*>(GetProcAddress(library, "CreateWebViewEnvironmentWithOptionsInternal")));
    if (!create) {
        FreeLibrary(library);
        return runtimeNotFound;
    }
    addEnvironmentBrowserArguments(environmentOptions);
    return create(true, runtime.type, userDataFolder, environmentOptions, environmentCreatedHandler);
}
