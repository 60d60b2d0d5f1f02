// The program's own taskbar identity is set before the web view's
// environment is created: otherwise WebView2 stamps a generated one on the
// root window of the web view's parent, which in child mode is the game's.
// Wine's SetCurrentProcessExplicitAppUserModelID keeps nothing (and its Get
// answers E_NOTIMPL), so the call is replaced in this test program's imports
// and noted, as is the loading of the runtime's client library, which is the
// first step of the environment's creation.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/host_state.h"
#include "fakes.h"
#include "import_patch.h"
#include "page/web_view.h"
#include "test_support.h"

namespace {

std::vector<std::wstring> steps;
HRESULT identityResult = S_OK;

HRESULT WINAPI notedIdentity(PCWSTR identity) {
    steps.push_back(L"identity " + std::wstring(identity ? identity : L"(null)"));
    return identityResult;
}

HMODULE WINAPI notedLoad(LPCWSTR path) {
    std::wstring text = path ? path : L"";
    steps.push_back(L"load " + text.substr(text.find_last_of(L'\\') + 1));
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
}

// No runtime is found here, which the log says after the failure.
const char* const missingRuntimeHint = "no WebView2 runtime was found - players need the WebView2 runtime installed";

class TaskbarIdentity : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(identityPatch.applied());
        ASSERT_TRUE(loadPatch.applied());
        steps.clear();
        identityResult = S_OK;
        SetEnvironmentVariableW(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", L"C:\\no-such-runtime");
    }
    void TearDown() override { SetEnvironmentVariableW(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", nullptr); }

    fakes::HostStateGuard guard;
    test_support::ScratchLog log;
    ImportPatch identityPatch{"shell32.dll", "SetCurrentProcessExplicitAppUserModelID",
                              reinterpret_cast<void*>(&notedIdentity)};
    ImportPatch loadPatch{"kernel32.dll", "LoadLibraryW", reinterpret_cast<void*>(&notedLoad)};
};

TEST_F(TaskbarIdentity, SetWithTheProgramsOwnIdentityBeforeTheEnvironmentIsCreated) {
    startWebView();
    EXPECT_EQ(steps, (std::vector<std::wstring>{L"identity GRA.Overlay", L"load EmbeddedBrowserWebView.dll"}));
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"CreateCoreWebView2EnvironmentWithOptions: 0x80070002",
                                                        missingRuntimeHint}));
}

TEST_F(TaskbarIdentity, AFailureIsLoggedAndTheWebViewStillStarts) {
    identityResult = E_INVALIDARG;
    startWebView();
    EXPECT_EQ(steps, (std::vector<std::wstring>{L"identity GRA.Overlay", L"load EmbeddedBrowserWebView.dll"}));
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"SetCurrentProcessExplicitAppUserModelID: 0x80070057",
                                                        "CreateCoreWebView2EnvironmentWithOptions: 0x80070002",
                                                        missingRuntimeHint}));
}

}  // namespace
