// The options object handed to the runtime when the browser environment is
// created: the program's own implementation of ICoreWebView2EnvironmentOptions.
#pragma once

#include <string>

#include "page/webview2.h"

class CoreWebView2EnvironmentOptions : public ICoreWebView2EnvironmentOptions {
public:
    // Starts with one reference, which belongs to the creator.
    CoreWebView2EnvironmentOptions() = default;
    CoreWebView2EnvironmentOptions(const CoreWebView2EnvironmentOptions&) = delete;
    CoreWebView2EnvironmentOptions& operator=(const CoreWebView2EnvironmentOptions&) = delete;

    // The browser version that this host was built and tested against; the
    // runtime refuses to start when it is older than this.
    static constexpr const wchar_t* defaultTargetVersion = L"154.0.4258.31";

    STDMETHOD(QueryInterface)(REFIID riid, void** object) override;
    STDMETHOD_(ULONG, AddRef)() override;
    STDMETHOD_(ULONG, Release)() override;

    STDMETHOD(get_AdditionalBrowserArguments)(LPWSTR* value) override;
    STDMETHOD(put_AdditionalBrowserArguments)(LPCWSTR value) override;
    STDMETHOD(get_Language)(LPWSTR* value) override;
    STDMETHOD(put_Language)(LPCWSTR value) override;
    STDMETHOD(get_TargetCompatibleBrowserVersion)(LPWSTR* value) override;
    STDMETHOD(put_TargetCompatibleBrowserVersion)(LPCWSTR value) override;
    STDMETHOD(get_AllowSingleSignOnUsingOSPrimaryAccount)(BOOL* allow) override;
    STDMETHOD(put_AllowSingleSignOnUsingOSPrimaryAccount)(BOOL allow) override;

protected:
    // Only Release deletes the object.
    virtual ~CoreWebView2EnvironmentOptions() = default;

private:
    LONG references = 1;
    std::wstring additionalBrowserArguments;
    std::wstring language;
    std::wstring targetCompatibleBrowserVersion = defaultTargetVersion;
    BOOL allowSingleSignOnUsingOSPrimaryAccount = FALSE;
};
