#include "page/webview2_loader.h"

#include <gtest/gtest.h>

#include <string>

namespace {

const HRESULT fileNotFound = static_cast<HRESULT>(0x80070002);

struct RegistryReader {
    std::wstring folder;
    int calls = 0;
    std::function<std::wstring()> reader() {
        return [this] {
            ++calls;
            return folder;
        };
    }
};

// ---- the folder decision ----

// ---- the browser arguments ----

TEST(BrowserArguments, EnvironmentArgumentsFollowTheProgramsOwn) {
    EXPECT_EQ(combinedBrowserArguments(L"--autoplay-policy=no-user-gesture-required", L"--remote-debugging-port=9222"),
              L"--autoplay-policy=no-user-gesture-required --remote-debugging-port=9222");
}

TEST(BrowserArguments, WithoutEnvironmentArgumentsOnlyTheProgramsOwn) {
    EXPECT_EQ(combinedBrowserArguments(L"--a", L""), L"--a");
}

TEST(BrowserArguments, WithoutOwnArgumentsOnlyTheEnvironments) {
    EXPECT_EQ(combinedBrowserArguments(L"", L"--b --c"), L"--b --c");
}

TEST(RuntimeFolder, EnvironmentValueComesFirst) {
    RegistryReader registry{L"C:\\installed"};
    RuntimeFolder found = chooseRuntimeFolder(L"C:\\fixed", L"C:\\argument", registry.reader());
    EXPECT_EQ(found.folder, L"C:\\fixed");
    EXPECT_EQ(found.type, fixedVersionRuntime);
    EXPECT_EQ(registry.calls, 0);
}

TEST(RuntimeFolder, ThenTheArgument) {
    RegistryReader registry{L"C:\\installed"};
    RuntimeFolder found = chooseRuntimeFolder(L"", L"C:\\argument", registry.reader());
    EXPECT_EQ(found.folder, L"C:\\argument");
    EXPECT_EQ(found.type, fixedVersionRuntime);
    EXPECT_EQ(registry.calls, 0);
}

TEST(RuntimeFolder, ThenTheInstalledRuntime) {
    RegistryReader registry{L"C:\\installed"};
    RuntimeFolder found = chooseRuntimeFolder(L"", nullptr, registry.reader());
    EXPECT_EQ(found.folder, L"C:\\installed");
    EXPECT_EQ(found.type, installedRuntime);
    EXPECT_EQ(registry.calls, 1);
}

TEST(RuntimeFolder, EmptyArgumentCountsAsNone) {
    RegistryReader registry{L"C:\\installed"};
    RuntimeFolder found = chooseRuntimeFolder(L"", L"", registry.reader());
    EXPECT_EQ(found.folder, L"C:\\installed");
    EXPECT_EQ(found.type, installedRuntime);
    EXPECT_EQ(registry.calls, 1);
}

TEST(RuntimeFolder, NothingFound) {
    RegistryReader registry{L""};
    RuntimeFolder found = chooseRuntimeFolder(L"", nullptr, registry.reader());
    EXPECT_EQ(found.folder, L"");
    EXPECT_EQ(registry.calls, 1);
}

TEST(RuntimeFolder, RuntimeTypesAsTheRuntimeNumbersThem) {
    EXPECT_EQ(static_cast<int>(installedRuntime), 0);
    EXPECT_EQ(static_cast<int>(fixedVersionRuntime), 1);
}

TEST(RuntimeFolder, ClientLibraryPath) {
    EXPECT_EQ(runtimeClientLibrary(L"C:\\rt"), L"C:\\rt\\EBWebView\\x64\\EmbeddedBrowserWebView.dll");
    EXPECT_EQ(runtimeClientLibrary(L"C:\\rt\\"), L"C:\\rt\\EBWebView\\x64\\EmbeddedBrowserWebView.dll");
}

// ---- the registry, read from stand-in hives ----

// Scratch registry keys of this process's own: tests run side by side in
// several processes.
std::wstring scratchRegistryRoot() {
    return L"Software\\gra-overlay-unit-tests-" + std::to_wstring(GetCurrentProcessId());
}

// Maps HKEY_LOCAL_MACHINE and HKEY_CURRENT_USER of this process to two scratch
// keys, so that the test neither sees nor touches the machine's own settings.
class InstalledRuntimeRegistry : public ::testing::Test {
protected:
    const std::wstring root = scratchRegistryRoot();
    const std::wstring scratchKey = root + L"\\loader";
    const wchar_t* scratch = scratchKey.c_str();
    const wchar_t* channelKey =
        L"Software\\Microsoft\\EdgeUpdate\\ClientState\\{F3017226-FE2A-4295-8BDF-00C3A9A7E4C5}";
    HKEY machine = nullptr;
    HKEY user = nullptr;

    void SetUp() override {
        RegDeleteTreeW(HKEY_CURRENT_USER, scratch);
        ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, (std::wstring(scratch) + L"\\machine").c_str(), 0, nullptr, 0,
                                  KEY_ALL_ACCESS, nullptr, &machine, nullptr),
                  ERROR_SUCCESS);
        ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, (std::wstring(scratch) + L"\\user").c_str(), 0, nullptr, 0,
                                  KEY_ALL_ACCESS, nullptr, &user, nullptr),
                  ERROR_SUCCESS);
        ASSERT_EQ(RegOverridePredefKey(HKEY_LOCAL_MACHINE, machine), ERROR_SUCCESS);
        ASSERT_EQ(RegOverridePredefKey(HKEY_CURRENT_USER, user), ERROR_SUCCESS);
    }

    void TearDown() override {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
        if (machine) RegCloseKey(machine);
        if (user) RegCloseKey(user);
        RegDeleteTreeW(HKEY_CURRENT_USER, root.c_str());
    }

    void note(HKEY hive, const wchar_t* folder) {
        HKEY key = nullptr;
        ASSERT_EQ(RegCreateKeyExW(hive, channelKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr),
                  ERROR_SUCCESS);
        RegSetValueExW(key, L"EBWebView", 0, REG_SZ, reinterpret_cast<const BYTE*>(folder),
                       static_cast<DWORD>((wcslen(folder) + 1) * sizeof(wchar_t)));
        RegCloseKey(key);
    }
};

TEST_F(InstalledRuntimeRegistry, NoneNoted) {
    EXPECT_EQ(readInstalledRuntimeFolder(), L"");
}

TEST_F(InstalledRuntimeRegistry, UserInstall) {
    note(user, L"C:\\Users\\p\\AppData\\Local\\Microsoft\\EdgeWebView\\Application\\154.0.1.2");
    EXPECT_EQ(readInstalledRuntimeFolder(), L"C:\\Users\\p\\AppData\\Local\\Microsoft\\EdgeWebView\\Application\\154.0.1.2");
}

TEST_F(InstalledRuntimeRegistry, MachineInstallWins) {
    note(machine, L"C:\\Program Files (x86)\\Microsoft\\EdgeWebView\\Application\\154.0.1.2");
    note(user, L"C:\\elsewhere");
    EXPECT_EQ(readInstalledRuntimeFolder(), L"C:\\Program Files (x86)\\Microsoft\\EdgeWebView\\Application\\154.0.1.2");
}

TEST_F(InstalledRuntimeRegistry, EmptyMachineValueFallsBackToTheUser) {
    note(machine, L"");
    note(user, L"C:\\user-runtime");
    EXPECT_EQ(readInstalledRuntimeFolder(), L"C:\\user-runtime");
}

// ---- creation failing at once ----

// Sets an environment variable for one test and puts the old value back.
class ScopedEnvironment {
public:
    ScopedEnvironment(const wchar_t* name, const wchar_t* value) : name(name) {
        wchar_t old[1024];
        DWORD length = GetEnvironmentVariableW(name, old, 1024);
        hadValue = length > 0 && length < 1024;
        if (hadValue) oldValue = old;
        SetEnvironmentVariableW(name, value);
    }
    ~ScopedEnvironment() { SetEnvironmentVariableW(name, hadValue ? oldValue.c_str() : nullptr); }

private:
    const wchar_t* name;
    bool hadValue = false;
    std::wstring oldValue;
};

std::wstring freshFolder(const wchar_t* leaf) {
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    std::wstring folder = std::wstring(temp) + L"gra-loader-test-" + leaf;
    CreateDirectoryW(folder.c_str(), nullptr);
    return folder;
}

// A handler that must never be called when creation fails at once.
struct CountingHandler : ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler {
    int invokes = 0;
    STDMETHOD(QueryInterface)(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHOD_(ULONG, AddRef)() override { return 2; }
    STDMETHOD_(ULONG, Release)() override { return 1; }
    STDMETHOD(Invoke)(HRESULT, ICoreWebView2Environment*) override {
        ++invokes;
        return S_OK;
    }
};

TEST(RuntimeLoader, EnvironmentFolderWithoutClientLibrary) {
    std::wstring folder = freshFolder(L"empty");
    ScopedEnvironment runtime(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", folder.c_str());
    CountingHandler handler;
    EXPECT_EQ(CreateCoreWebView2EnvironmentWithOptions(nullptr, L"", nullptr, &handler), fileNotFound);
    EXPECT_EQ(handler.invokes, 0);
    RemoveDirectoryW(folder.c_str());
}

TEST(RuntimeLoader, ArgumentFolderWithoutClientLibrary) {
    ScopedEnvironment runtime(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", nullptr);
    CountingHandler handler;
    std::wstring folder = freshFolder(L"argument");
    EXPECT_EQ(CreateCoreWebView2EnvironmentWithOptions(folder.c_str(), L"", nullptr, &handler), fileNotFound);
    EXPECT_EQ(handler.invokes, 0);
    RemoveDirectoryW(folder.c_str());
}

// A library that loads but lacks the entry point: any system library will do.
TEST(RuntimeLoader, ClientLibraryWithoutEntryPoint) {
    std::wstring folder = freshFolder(L"no-entry");
    CreateDirectoryW((folder + L"\\EBWebView").c_str(), nullptr);
    CreateDirectoryW((folder + L"\\EBWebView\\x64").c_str(), nullptr);
    wchar_t system[MAX_PATH];
    GetSystemDirectoryW(system, MAX_PATH);
    std::wstring library = runtimeClientLibrary(folder);
    ASSERT_TRUE(CopyFileW((std::wstring(system) + L"\\version.dll").c_str(), library.c_str(), FALSE));
    HMODULE loaded = LoadLibraryW(library.c_str());
    ASSERT_NE(loaded, nullptr) << "the copied library must load for this test to mean anything";
    EXPECT_EQ(GetProcAddress(loaded, "CreateWebViewEnvironmentWithOptionsInternal"), nullptr);
    FreeLibrary(loaded);

    {
        ScopedEnvironment runtime(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", folder.c_str());
        CountingHandler handler;
        EXPECT_EQ(CreateCoreWebView2EnvironmentWithOptions(nullptr, L"", nullptr, &handler), fileNotFound);
        EXPECT_EQ(handler.invokes, 0);
    }
    EXPECT_TRUE(DeleteFileW(library.c_str())) << "the library must not stay loaded";
    RemoveDirectoryW((folder + L"\\EBWebView\\x64").c_str());
    RemoveDirectoryW((folder + L"\\EBWebView").c_str());
    RemoveDirectoryW(folder.c_str());
}

TEST(RuntimeLoader, NoRuntimeAnywhere) {
    ScopedEnvironment runtime(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", nullptr);
    // Stand-in hives without the installed runtime's note.
    HKEY empty = nullptr;
    const std::wstring root = scratchRegistryRoot();
    ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, (root + L"\\empty").c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                              nullptr, &empty, nullptr),
              ERROR_SUCCESS);
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, empty);
    RegOverridePredefKey(HKEY_CURRENT_USER, empty);
    CountingHandler handler;
    HRESULT result = CreateCoreWebView2EnvironmentWithOptions(nullptr, L"", nullptr, &handler);
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
    RegCloseKey(empty);
    RegDeleteTreeW(HKEY_CURRENT_USER, root.c_str());
    EXPECT_EQ(result, fileNotFound);
    EXPECT_EQ(handler.invokes, 0);
}

}  // namespace
