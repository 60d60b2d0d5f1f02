// Every slot of every WebView2 interface that the program declares, checked
// against the published slot numbers: a call through the declaration must land
// on that slot of the virtual table. A method missing or added further up in a
// declaration moves every later slot and fails here.
#include "page/webview2.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cwchar>
#include <type_traits>

#include "vtable_probe.h"

namespace {

template <typename T, typename Call>
int slot(Call call) {
    return vtable_probe::slotOf(vtable_probe::as<T>(), call);
}

TEST(WebView2Slots, IUnknownComesFirst) {
    using I = ICoreWebView2_3;
    EXPECT_EQ(slot<I>([](I* p) { p->QueryInterface(IID_IUnknown, nullptr); }), 0);
    EXPECT_EQ(slot<I>([](I* p) { p->AddRef(); }), 1);
    EXPECT_EQ(slot<I>([](I* p) { p->Release(); }), 2);
}

// Later interfaces repeat their bases' slots: reached through the most derived
// declaration, an inherited method keeps its number.
TEST(WebView2Slots, InheritedMethodsKeepTheirSlots) {
    using C = ICoreWebView2Controller3;
    EXPECT_EQ(slot<C>([](C* p) { p->put_IsVisible(TRUE); }), 4);
    EXPECT_EQ(slot<C>([](C* p) { p->get_CoreWebView2(nullptr); }), 25);
    EXPECT_EQ(slot<C>([](C* p) { p->put_DefaultBackgroundColor({}); }), 27);
    EXPECT_EQ(slot<C>([](C* p) { p->get_RasterizationScale(nullptr); }), 28);
    using W = ICoreWebView2_3;
    EXPECT_EQ(slot<W>([](W* p) { p->Navigate(nullptr); }), 5);
    EXPECT_EQ(slot<W>([](W* p) { p->PostWebMessageAsJson(nullptr); }), 32);
    EXPECT_EQ(slot<W>([](W* p) { p->remove_WindowCloseRequested({}); }), 60);
    EXPECT_EQ(slot<W>([](W* p) { p->get_Environment(nullptr); }), 67);
    EXPECT_EQ(slot<W>([](W* p) { p->SetVirtualHostNameToFolderMapping(nullptr, nullptr, {}); }), 71);
}

TEST(WebView2Declarations, Inheritance) {
    static_assert(std::is_base_of<IUnknown, ICoreWebView2EnvironmentOptions>::value, "");
    static_assert(std::is_base_of<ICoreWebView2Controller, ICoreWebView2Controller2>::value, "");
    static_assert(std::is_base_of<ICoreWebView2Controller2, ICoreWebView2Controller3>::value, "");
    static_assert(std::is_base_of<ICoreWebView2, ICoreWebView2_2>::value, "");
    static_assert(std::is_base_of<ICoreWebView2_2, ICoreWebView2_3>::value, "");
    static_assert(!std::is_base_of<ICoreWebView2, ICoreWebView2Settings>::value, "");
    SUCCEED();
}

TEST(WebView2Declarations, ValueTypes) {
    EXPECT_EQ(sizeof(EventRegistrationToken), 8u);
    EXPECT_EQ(sizeof(COREWEBVIEW2_COLOR), 4u);
    EXPECT_EQ(offsetof(COREWEBVIEW2_COLOR, A), 0u);
    EXPECT_EQ(offsetof(COREWEBVIEW2_COLOR, R), 1u);
    EXPECT_EQ(offsetof(COREWEBVIEW2_COLOR, G), 2u);
    EXPECT_EQ(offsetof(COREWEBVIEW2_COLOR, B), 3u);
    EXPECT_EQ(sizeof(COREWEBVIEW2_MOVE_FOCUS_REASON), 4u);
    EXPECT_EQ(COREWEBVIEW2_MOVE_FOCUS_REASON_PROGRAMMATIC, 0);
    EXPECT_EQ(COREWEBVIEW2_MOVE_FOCUS_REASON_NEXT, 1);
    EXPECT_EQ(COREWEBVIEW2_MOVE_FOCUS_REASON_PREVIOUS, 2);
    EXPECT_EQ(sizeof(COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND), 4u);
    EXPECT_EQ(COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND_DENY, 0);
    EXPECT_EQ(COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND_ALLOW, 1);
    EXPECT_EQ(COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND_DENY_CORS, 2);
}

// The identifiers in their registry form, as the interfaces publish them.
TEST(WebView2Declarations, InterfaceIdentifiers) {
    struct Known {
        const IID& iid;
        const wchar_t* text;
    };
    const Known known[] = {
        {IID_ICoreWebView2EnvironmentOptions, L"{2FDE08A8-1E9A-4766-8C05-95A9CEB9D1C5}"},
        {IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler, L"{4E8A3389-C9D8-4BD2-B6B5-124FEE6CC14D}"},
        {IID_ICoreWebView2Environment, L"{B96D755E-0319-4E92-A296-23436F46A1FC}"},
        {IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler, L"{6C4819F3-C9B7-4260-8127-C9F5BDE7F68C}"},
        {IID_ICoreWebView2Controller, L"{4D00C0D1-9434-4EB6-8078-8697A560334F}"},
        {IID_ICoreWebView2Controller2, L"{C979903E-D4CA-4228-92EB-47EE3FA96EAB}"},
        {IID_ICoreWebView2Controller3, L"{F9614724-5D2B-41DC-AEF7-73D62B51543B}"},
        {IID_ICoreWebView2, L"{76ECEACB-0462-4D94-AC83-423A6793775E}"},
        {IID_ICoreWebView2_2, L"{9E8F0CF8-E670-4B5E-B2BC-73E061E3184C}"},
        {IID_ICoreWebView2_3, L"{A0D6DF20-3B92-416D-AA0C-437A9C727857}"},
        {IID_ICoreWebView2Settings, L"{E562E4F0-D7FA-43AC-8D71-C05150499F00}"},
        {IID_ICoreWebView2WebMessageReceivedEventHandler, L"{57213F19-00E6-49FA-8E07-898EA01ECBD2}"},
        {IID_ICoreWebView2WebMessageReceivedEventArgs, L"{0F99A40C-E962-4207-9E92-E3D542EFF849}"},
    };
    for (const Known& k : known) {
        wchar_t text[40] = L"";
        ASSERT_GT(StringFromGUID2(k.iid, text, 40), 0);
        EXPECT_STREQ(text, k.text);
    }
}

TEST(WebView2Slots, ICoreWebView2EnvironmentOptions) {
    using I = ICoreWebView2EnvironmentOptions;
    EXPECT_EQ(slot<I>([](I* p) { p->get_AdditionalBrowserArguments({}); }), 3);
    EXPECT_EQ(slot<I>([](I* p) { p->put_AdditionalBrowserArguments({}); }), 4);
    EXPECT_EQ(slot<I>([](I* p) { p->get_Language({}); }), 5);
    EXPECT_EQ(slot<I>([](I* p) { p->put_Language({}); }), 6);
    EXPECT_EQ(slot<I>([](I* p) { p->get_TargetCompatibleBrowserVersion({}); }), 7);
    EXPECT_EQ(slot<I>([](I* p) { p->put_TargetCompatibleBrowserVersion({}); }), 8);
    EXPECT_EQ(slot<I>([](I* p) { p->get_AllowSingleSignOnUsingOSPrimaryAccount({}); }), 9);
    EXPECT_EQ(slot<I>([](I* p) { p->put_AllowSingleSignOnUsingOSPrimaryAccount({}); }), 10);
}

TEST(WebView2Slots, ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler) {
    using I = ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler;
    EXPECT_EQ(slot<I>([](I* p) { p->Invoke({}, {}); }), 3);
}

TEST(WebView2Slots, ICoreWebView2Environment) {
    using I = ICoreWebView2Environment;
    EXPECT_EQ(slot<I>([](I* p) { p->CreateCoreWebView2Controller({}, {}); }), 3);
    EXPECT_EQ(slot<I>([](I* p) { p->CreateWebResourceResponse({}, {}, {}, {}, {}); }), 4);
    EXPECT_EQ(slot<I>([](I* p) { p->get_BrowserVersionString({}); }), 5);
    EXPECT_EQ(slot<I>([](I* p) { p->add_NewBrowserVersionAvailable({}, {}); }), 6);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_NewBrowserVersionAvailable({}); }), 7);
}

TEST(WebView2Slots, ICoreWebView2CreateCoreWebView2ControllerCompletedHandler) {
    using I = ICoreWebView2CreateCoreWebView2ControllerCompletedHandler;
    EXPECT_EQ(slot<I>([](I* p) { p->Invoke({}, {}); }), 3);
}

TEST(WebView2Slots, ICoreWebView2Controller) {
    using I = ICoreWebView2Controller;
    EXPECT_EQ(slot<I>([](I* p) { p->get_IsVisible({}); }), 3);
    EXPECT_EQ(slot<I>([](I* p) { p->put_IsVisible({}); }), 4);
    EXPECT_EQ(slot<I>([](I* p) { p->get_Bounds({}); }), 5);
    EXPECT_EQ(slot<I>([](I* p) { p->put_Bounds({}); }), 6);
    EXPECT_EQ(slot<I>([](I* p) { p->get_ZoomFactor({}); }), 7);
    EXPECT_EQ(slot<I>([](I* p) { p->put_ZoomFactor({}); }), 8);
    EXPECT_EQ(slot<I>([](I* p) { p->add_ZoomFactorChanged({}, {}); }), 9);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_ZoomFactorChanged({}); }), 10);
    EXPECT_EQ(slot<I>([](I* p) { p->SetBoundsAndZoomFactor({}, {}); }), 11);
    EXPECT_EQ(slot<I>([](I* p) { p->MoveFocus({}); }), 12);
    EXPECT_EQ(slot<I>([](I* p) { p->add_MoveFocusRequested({}, {}); }), 13);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_MoveFocusRequested({}); }), 14);
    EXPECT_EQ(slot<I>([](I* p) { p->add_GotFocus({}, {}); }), 15);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_GotFocus({}); }), 16);
    EXPECT_EQ(slot<I>([](I* p) { p->add_LostFocus({}, {}); }), 17);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_LostFocus({}); }), 18);
    EXPECT_EQ(slot<I>([](I* p) { p->add_AcceleratorKeyPressed({}, {}); }), 19);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_AcceleratorKeyPressed({}); }), 20);
    EXPECT_EQ(slot<I>([](I* p) { p->get_ParentWindow({}); }), 21);
    EXPECT_EQ(slot<I>([](I* p) { p->put_ParentWindow({}); }), 22);
    EXPECT_EQ(slot<I>([](I* p) { p->NotifyParentWindowPositionChanged(); }), 23);
    EXPECT_EQ(slot<I>([](I* p) { p->Close(); }), 24);
    EXPECT_EQ(slot<I>([](I* p) { p->get_CoreWebView2({}); }), 25);
}

TEST(WebView2Slots, ICoreWebView2Controller2) {
    using I = ICoreWebView2Controller2;
    EXPECT_EQ(slot<I>([](I* p) { p->get_DefaultBackgroundColor({}); }), 26);
    EXPECT_EQ(slot<I>([](I* p) { p->put_DefaultBackgroundColor({}); }), 27);
}

TEST(WebView2Slots, ICoreWebView2Controller3) {
    using I = ICoreWebView2Controller3;
    EXPECT_EQ(slot<I>([](I* p) { p->get_RasterizationScale({}); }), 28);
    EXPECT_EQ(slot<I>([](I* p) { p->put_RasterizationScale({}); }), 29);
    EXPECT_EQ(slot<I>([](I* p) { p->get_ShouldDetectMonitorScaleChanges({}); }), 30);
    EXPECT_EQ(slot<I>([](I* p) { p->put_ShouldDetectMonitorScaleChanges({}); }), 31);
    EXPECT_EQ(slot<I>([](I* p) { p->add_RasterizationScaleChanged({}, {}); }), 32);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_RasterizationScaleChanged({}); }), 33);
    EXPECT_EQ(slot<I>([](I* p) { p->get_BoundsMode({}); }), 34);
    EXPECT_EQ(slot<I>([](I* p) { p->put_BoundsMode({}); }), 35);
}

TEST(WebView2Slots, ICoreWebView2) {
    using I = ICoreWebView2;
    EXPECT_EQ(slot<I>([](I* p) { p->get_Settings({}); }), 3);
    EXPECT_EQ(slot<I>([](I* p) { p->get_Source({}); }), 4);
    EXPECT_EQ(slot<I>([](I* p) { p->Navigate({}); }), 5);
    EXPECT_EQ(slot<I>([](I* p) { p->NavigateToString({}); }), 6);
    EXPECT_EQ(slot<I>([](I* p) { p->add_NavigationStarting({}, {}); }), 7);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_NavigationStarting({}); }), 8);
    EXPECT_EQ(slot<I>([](I* p) { p->add_ContentLoading({}, {}); }), 9);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_ContentLoading({}); }), 10);
    EXPECT_EQ(slot<I>([](I* p) { p->add_SourceChanged({}, {}); }), 11);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_SourceChanged({}); }), 12);
    EXPECT_EQ(slot<I>([](I* p) { p->add_HistoryChanged({}, {}); }), 13);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_HistoryChanged({}); }), 14);
    EXPECT_EQ(slot<I>([](I* p) { p->add_NavigationCompleted({}, {}); }), 15);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_NavigationCompleted({}); }), 16);
    EXPECT_EQ(slot<I>([](I* p) { p->add_FrameNavigationStarting({}, {}); }), 17);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_FrameNavigationStarting({}); }), 18);
    EXPECT_EQ(slot<I>([](I* p) { p->add_FrameNavigationCompleted({}, {}); }), 19);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_FrameNavigationCompleted({}); }), 20);
    EXPECT_EQ(slot<I>([](I* p) { p->add_ScriptDialogOpening({}, {}); }), 21);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_ScriptDialogOpening({}); }), 22);
    EXPECT_EQ(slot<I>([](I* p) { p->add_PermissionRequested({}, {}); }), 23);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_PermissionRequested({}); }), 24);
    EXPECT_EQ(slot<I>([](I* p) { p->add_ProcessFailed({}, {}); }), 25);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_ProcessFailed({}); }), 26);
    EXPECT_EQ(slot<I>([](I* p) { p->AddScriptToExecuteOnDocumentCreated({}, {}); }), 27);
    EXPECT_EQ(slot<I>([](I* p) { p->RemoveScriptToExecuteOnDocumentCreated({}); }), 28);
    EXPECT_EQ(slot<I>([](I* p) { p->ExecuteScript({}, {}); }), 29);
    EXPECT_EQ(slot<I>([](I* p) { p->CapturePreview({}, {}, {}); }), 30);
    EXPECT_EQ(slot<I>([](I* p) { p->Reload(); }), 31);
    EXPECT_EQ(slot<I>([](I* p) { p->PostWebMessageAsJson({}); }), 32);
    EXPECT_EQ(slot<I>([](I* p) { p->PostWebMessageAsString({}); }), 33);
    EXPECT_EQ(slot<I>([](I* p) { p->add_WebMessageReceived({}, {}); }), 34);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_WebMessageReceived({}); }), 35);
    EXPECT_EQ(slot<I>([](I* p) { p->CallDevToolsProtocolMethod({}, {}, {}); }), 36);
    EXPECT_EQ(slot<I>([](I* p) { p->get_BrowserProcessId({}); }), 37);
    EXPECT_EQ(slot<I>([](I* p) { p->get_CanGoBack({}); }), 38);
    EXPECT_EQ(slot<I>([](I* p) { p->get_CanGoForward({}); }), 39);
    EXPECT_EQ(slot<I>([](I* p) { p->GoBack(); }), 40);
    EXPECT_EQ(slot<I>([](I* p) { p->GoForward(); }), 41);
    EXPECT_EQ(slot<I>([](I* p) { p->GetDevToolsProtocolEventReceiver({}, {}); }), 42);
    EXPECT_EQ(slot<I>([](I* p) { p->Stop(); }), 43);
    EXPECT_EQ(slot<I>([](I* p) { p->add_NewWindowRequested({}, {}); }), 44);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_NewWindowRequested({}); }), 45);
    EXPECT_EQ(slot<I>([](I* p) { p->add_DocumentTitleChanged({}, {}); }), 46);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_DocumentTitleChanged({}); }), 47);
    EXPECT_EQ(slot<I>([](I* p) { p->get_DocumentTitle({}); }), 48);
    EXPECT_EQ(slot<I>([](I* p) { p->AddHostObjectToScript({}, {}); }), 49);
    EXPECT_EQ(slot<I>([](I* p) { p->RemoveHostObjectFromScript({}); }), 50);
    EXPECT_EQ(slot<I>([](I* p) { p->OpenDevToolsWindow(); }), 51);
    EXPECT_EQ(slot<I>([](I* p) { p->add_ContainsFullScreenElementChanged({}, {}); }), 52);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_ContainsFullScreenElementChanged({}); }), 53);
    EXPECT_EQ(slot<I>([](I* p) { p->get_ContainsFullScreenElement({}); }), 54);
    EXPECT_EQ(slot<I>([](I* p) { p->add_WebResourceRequested({}, {}); }), 55);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_WebResourceRequested({}); }), 56);
    EXPECT_EQ(slot<I>([](I* p) { p->AddWebResourceRequestedFilter({}, {}); }), 57);
    EXPECT_EQ(slot<I>([](I* p) { p->RemoveWebResourceRequestedFilter({}, {}); }), 58);
    EXPECT_EQ(slot<I>([](I* p) { p->add_WindowCloseRequested({}, {}); }), 59);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_WindowCloseRequested({}); }), 60);
}

TEST(WebView2Slots, ICoreWebView2_2) {
    using I = ICoreWebView2_2;
    EXPECT_EQ(slot<I>([](I* p) { p->add_WebResourceResponseReceived({}, {}); }), 61);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_WebResourceResponseReceived({}); }), 62);
    EXPECT_EQ(slot<I>([](I* p) { p->NavigateWithWebResourceRequest({}); }), 63);
    EXPECT_EQ(slot<I>([](I* p) { p->add_DOMContentLoaded({}, {}); }), 64);
    EXPECT_EQ(slot<I>([](I* p) { p->remove_DOMContentLoaded({}); }), 65);
    EXPECT_EQ(slot<I>([](I* p) { p->get_CookieManager({}); }), 66);
    EXPECT_EQ(slot<I>([](I* p) { p->get_Environment({}); }), 67);
}

TEST(WebView2Slots, ICoreWebView2_3) {
    using I = ICoreWebView2_3;
    EXPECT_EQ(slot<I>([](I* p) { p->TrySuspend({}); }), 68);
    EXPECT_EQ(slot<I>([](I* p) { p->Resume(); }), 69);
    EXPECT_EQ(slot<I>([](I* p) { p->get_IsSuspended({}); }), 70);
    EXPECT_EQ(slot<I>([](I* p) { p->SetVirtualHostNameToFolderMapping({}, {}, {}); }), 71);
    EXPECT_EQ(slot<I>([](I* p) { p->ClearVirtualHostNameToFolderMapping({}); }), 72);
}

TEST(WebView2Slots, ICoreWebView2Settings) {
    using I = ICoreWebView2Settings;
    EXPECT_EQ(slot<I>([](I* p) { p->get_IsScriptEnabled({}); }), 3);
    EXPECT_EQ(slot<I>([](I* p) { p->put_IsScriptEnabled({}); }), 4);
    EXPECT_EQ(slot<I>([](I* p) { p->get_IsWebMessageEnabled({}); }), 5);
    EXPECT_EQ(slot<I>([](I* p) { p->put_IsWebMessageEnabled({}); }), 6);
    EXPECT_EQ(slot<I>([](I* p) { p->get_AreDefaultScriptDialogsEnabled({}); }), 7);
    EXPECT_EQ(slot<I>([](I* p) { p->put_AreDefaultScriptDialogsEnabled({}); }), 8);
    EXPECT_EQ(slot<I>([](I* p) { p->get_IsStatusBarEnabled({}); }), 9);
    EXPECT_EQ(slot<I>([](I* p) { p->put_IsStatusBarEnabled({}); }), 10);
    EXPECT_EQ(slot<I>([](I* p) { p->get_AreDevToolsEnabled({}); }), 11);
    EXPECT_EQ(slot<I>([](I* p) { p->put_AreDevToolsEnabled({}); }), 12);
    EXPECT_EQ(slot<I>([](I* p) { p->get_AreDefaultContextMenusEnabled({}); }), 13);
    EXPECT_EQ(slot<I>([](I* p) { p->put_AreDefaultContextMenusEnabled({}); }), 14);
    EXPECT_EQ(slot<I>([](I* p) { p->get_AreHostObjectsAllowed({}); }), 15);
    EXPECT_EQ(slot<I>([](I* p) { p->put_AreHostObjectsAllowed({}); }), 16);
    EXPECT_EQ(slot<I>([](I* p) { p->get_IsZoomControlEnabled({}); }), 17);
    EXPECT_EQ(slot<I>([](I* p) { p->put_IsZoomControlEnabled({}); }), 18);
    EXPECT_EQ(slot<I>([](I* p) { p->get_IsBuiltInErrorPageEnabled({}); }), 19);
    EXPECT_EQ(slot<I>([](I* p) { p->put_IsBuiltInErrorPageEnabled({}); }), 20);
}

TEST(WebView2Slots, ICoreWebView2WebMessageReceivedEventHandler) {
    using I = ICoreWebView2WebMessageReceivedEventHandler;
    EXPECT_EQ(slot<I>([](I* p) { p->Invoke({}, {}); }), 3);
}

TEST(WebView2Slots, ICoreWebView2WebMessageReceivedEventArgs) {
    using I = ICoreWebView2WebMessageReceivedEventArgs;
    EXPECT_EQ(slot<I>([](I* p) { p->get_Source({}); }), 3);
    EXPECT_EQ(slot<I>([](I* p) { p->get_WebMessageAsJson({}); }), 4);
    EXPECT_EQ(slot<I>([](I* p) { p->TryGetWebMessageAsString({}); }), 5);
}

}  // namespace
