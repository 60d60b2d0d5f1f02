#include "page/environment_options.h"

#include <cstring>

namespace {

// Strings handed out through the interface belong to the caller, who frees
// them with CoTaskMemFree; so they are allocated with CoTaskMemAlloc.
HRESULT copyOut(const std::wstring& text, LPWSTR* value) {
    if (!value) return E_POINTER;
    size_t bytes = (text.size() + 1) * sizeof(wchar_t);
    *value = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
    if (!*value) return E_OUTOFMEMORY;
    std::memcpy(*value, text.c_str(), bytes);
    return S_OK;
}

void copyIn(LPCWSTR value, std::wstring& field) {
    field = value ? value : L"";
}

}  // namespace

STDMETHODIMP CoreWebView2EnvironmentOptions::QueryInterface(REFIID riid, void** object) {
    if (!object) return E_POINTER;
    // Newer option interfaces, which the runtime may ask for, are not offered.
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ICoreWebView2EnvironmentOptions)) {
        *object = static_cast<ICoreWebView2EnvironmentOptions*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

// The runtime may drop its reference on one of its own threads.
STDMETHODIMP_(ULONG) CoreWebView2EnvironmentOptions::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&references));
}

STDMETHODIMP_(ULONG) CoreWebView2EnvironmentOptions::Release() {
    LONG left = InterlockedDecrement(&references);
    if (left == 0) delete this;
    return static_cast<ULONG>(left);
}

STDMETHODIMP CoreWebView2EnvironmentOptions::get_AdditionalBrowserArguments(LPWSTR* value) {
    return copyOut(additionalBrowserArguments, value);
}

STDMETHODIMP CoreWebView2EnvironmentOptions::put_AdditionalBrowserArguments(LPCWSTR value) {
    copyIn(value, additionalBrowserArguments);
    return S_OK;
}

STDMETHODIMP CoreWebView2EnvironmentOptions::get_Language(LPWSTR* value) {
    return copyOut(language, value);
}

STDMETHODIMP CoreWebView2EnvironmentOptions::put_Language(LPCWSTR value) {
    copyIn(value, language);
    return S_OK;
}

STDMETHODIMP CoreWebView2EnvironmentOptions::get_TargetCompatibleBrowserVersion(LPWSTR* value) {
    return copyOut(targetCompatibleBrowserVersion, value);
}

STDMETHODIMP CoreWebView2EnvironmentOptions::put_TargetCompatibleBrowserVersion(LPCWSTR value) {
    copyIn(value, targetCompatibleBrowserVersion);
    return S_OK;
}

STDMETHODIMP CoreWebView2EnvironmentOptions::get_AllowSingleSignOnUsingOSPrimaryAccount(BOOL* allow) {
    if (!allow) return E_POINTER;
    *allow = allowSingleSignOnUsingOSPrimaryAccount;
    return S_OK;
}

STDMETHODIMP CoreWebView2EnvironmentOptions::put_AllowSingleSignOnUsingOSPrimaryAccount(BOOL allow) {
    allowSingleSignOnUsingOSPrimaryAccount = allow;
    return S_OK;
}
