#include "page/environment_options.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// A made-up identifier standing for any interface the object does not offer,
// such as newer option interfaces the runtime may ask for.
const IID someOtherInterface = {0x12345678, 0x9abc, 0x4def, {0x80, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77}};

using StringGetter = HRESULT (STDMETHODCALLTYPE ICoreWebView2EnvironmentOptions::*)(LPWSTR*);

// Takes a string out through a getter and frees the caller's copy.
std::wstring take(ICoreWebView2EnvironmentOptions* options, StringGetter getter, HRESULT* result = nullptr) {
    LPWSTR value = nullptr;
    HRESULT hr = (options->*getter)(&value);
    if (result) *result = hr;
    std::wstring text = value ? value : L"<null>";
    CoTaskMemFree(value);
    return text;
}

// Notes its own destruction, to see that the last Release deletes the object.
class Watched : public CoreWebView2EnvironmentOptions {
public:
    explicit Watched(bool* destroyed) : destroyed(destroyed) {}

protected:
    ~Watched() override { *destroyed = true; }

private:
    bool* destroyed;
};

class EnvironmentOptions : public ::testing::Test {
protected:
    void TearDown() override {
        if (options) options->Release();
    }
    CoreWebView2EnvironmentOptions* options = new CoreWebView2EnvironmentOptions();
};

TEST_F(EnvironmentOptions, Defaults) {
    HRESULT hr = E_FAIL;
    EXPECT_EQ(take(options, &ICoreWebView2EnvironmentOptions::get_AdditionalBrowserArguments, &hr), L"");
    EXPECT_EQ(hr, S_OK);
    EXPECT_EQ(take(options, &ICoreWebView2EnvironmentOptions::get_Language, &hr), L"");
    EXPECT_EQ(hr, S_OK);
    EXPECT_EQ(take(options, &ICoreWebView2EnvironmentOptions::get_TargetCompatibleBrowserVersion, &hr),
              L"154.0.4258.31");
    EXPECT_EQ(hr, S_OK);
    BOOL allow = TRUE;
    EXPECT_EQ(options->get_AllowSingleSignOnUsingOSPrimaryAccount(&allow), S_OK);
    EXPECT_EQ(allow, FALSE);
}

TEST_F(EnvironmentOptions, PutThenGet) {
    EXPECT_EQ(options->put_AdditionalBrowserArguments(L"--autoplay-policy=no-user-gesture-required"), S_OK);
    EXPECT_EQ(options->put_Language(L"de-DE"), S_OK);
    EXPECT_EQ(options->put_TargetCompatibleBrowserVersion(L"120.0.0.1"), S_OK);
    EXPECT_EQ(options->put_AllowSingleSignOnUsingOSPrimaryAccount(TRUE), S_OK);

    EXPECT_EQ(take(options, &ICoreWebView2EnvironmentOptions::get_AdditionalBrowserArguments),
              L"--autoplay-policy=no-user-gesture-required");
    EXPECT_EQ(take(options, &ICoreWebView2EnvironmentOptions::get_Language), L"de-DE");
    EXPECT_EQ(take(options, &ICoreWebView2EnvironmentOptions::get_TargetCompatibleBrowserVersion), L"120.0.0.1");
    BOOL allow = FALSE;
    options->get_AllowSingleSignOnUsingOSPrimaryAccount(&allow);
    EXPECT_EQ(allow, TRUE);
}

TEST_F(EnvironmentOptions, NullStringIsStoredAsEmpty) {
    options->put_Language(L"fr");
    EXPECT_EQ(options->put_Language(nullptr), S_OK);
    EXPECT_EQ(take(options, &ICoreWebView2EnvironmentOptions::get_Language), L"");
}

TEST_F(EnvironmentOptions, EveryGetHandsOutAFreshTaskMemoryCopy) {
    LPWSTR first = nullptr;
    LPWSTR second = nullptr;
    options->get_TargetCompatibleBrowserVersion(&first);
    options->get_TargetCompatibleBrowserVersion(&second);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    first[0] = L'9';  // the caller owns its copy
    EXPECT_STREQ(second, L"154.0.4258.31");
    CoTaskMemFree(first);
    CoTaskMemFree(second);
}

TEST_F(EnvironmentOptions, NullOutPointers) {
    EXPECT_EQ(options->get_AdditionalBrowserArguments(nullptr), E_POINTER);
    EXPECT_EQ(options->get_Language(nullptr), E_POINTER);
    EXPECT_EQ(options->get_TargetCompatibleBrowserVersion(nullptr), E_POINTER);
    EXPECT_EQ(options->get_AllowSingleSignOnUsingOSPrimaryAccount(nullptr), E_POINTER);
    EXPECT_EQ(options->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST_F(EnvironmentOptions, AnswersForIUnknownAndItsOwnInterface) {
    void* unknown = nullptr;
    ASSERT_EQ(options->QueryInterface(IID_IUnknown, &unknown), S_OK);
    EXPECT_EQ(unknown, static_cast<ICoreWebView2EnvironmentOptions*>(options));
    void* own = nullptr;
    ASSERT_EQ(options->QueryInterface(IID_ICoreWebView2EnvironmentOptions, &own), S_OK);
    EXPECT_EQ(own, static_cast<ICoreWebView2EnvironmentOptions*>(options));
    // Each answer added a reference: 1 + 2, so two releases leave one.
    EXPECT_EQ(options->Release(), 2u);
    EXPECT_EQ(options->Release(), 1u);
}

TEST_F(EnvironmentOptions, RefusesEverythingElse) {
    const IID* others[] = {&someOtherInterface, &IID_ICoreWebView2Environment, &IID_ICoreWebView2,
                           &IID_IClassFactory};
    for (const IID* other : others) {
        void* object = reinterpret_cast<void*>(1);
        EXPECT_EQ(options->QueryInterface(*other, &object), E_NOINTERFACE);
        EXPECT_EQ(object, nullptr);
    }
    EXPECT_EQ(options->AddRef(), 2u);  // no reference was added by the refusals
    options->Release();
}

TEST(EnvironmentOptionsLife, StartsWithOneReferenceAndDeletesItselfAtZero) {
    bool destroyed = false;
    Watched* options = new Watched(&destroyed);
    EXPECT_EQ(options->AddRef(), 2u);
    EXPECT_EQ(options->Release(), 1u);
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(options->Release(), 0u);
    EXPECT_TRUE(destroyed);
}

}  // namespace
