// The stand-in runtime's own interface declarations against the binary
// interface: every method must land on its slot of the virtual table, and
// every interface identifier must read as published. A stand-in with a
// miscounted table would answer the program's calls with the wrong methods.
#include "../standin_runtime/standin_interfaces.h"
#include "vtable_probe.h"

#include <objbase.h>

#include <gtest/gtest.h>

#include <string>

using namespace standin;
using vtable_probe::as;
using vtable_probe::slotOf;

#define EXPECT_SLOT(object, slot, call) EXPECT_EQ(slotOf(object, [](auto* p) { p->call; }), slot) << #call

namespace {

const EventRegistrationToken kToken{};
const RECT kRect{};
const COREWEBVIEW2_COLOR kColor{};

std::wstring guidText(const GUID& iid) {
    wchar_t text[40] = {};
    StringFromGUID2(iid, text, 40);
    return text;
}

}  // namespace

TEST(StandinSlots, IUnknownComesFirst) {
    auto* p = as<ICoreWebView2Controller3>();
    EXPECT_SLOT(p, 0, QueryInterface(IID_IUnknown, nullptr));
    EXPECT_SLOT(p, 1, AddRef());
    EXPECT_SLOT(p, 2, Release());
}

TEST(StandinSlots, EnvironmentOptions) {
    auto* o = as<ICoreWebView2EnvironmentOptions>();
    EXPECT_SLOT(o, 3, get_AdditionalBrowserArguments(nullptr));
    EXPECT_SLOT(o, 4, put_AdditionalBrowserArguments(nullptr));
    EXPECT_SLOT(o, 5, get_Language(nullptr));
    EXPECT_SLOT(o, 6, put_Language(nullptr));
    EXPECT_SLOT(o, 7, get_TargetCompatibleBrowserVersion(nullptr));
    EXPECT_SLOT(o, 8, put_TargetCompatibleBrowserVersion(nullptr));
    EXPECT_SLOT(o, 9, get_AllowSingleSignOnUsingOSPrimaryAccount(nullptr));
    EXPECT_SLOT(o, 10, put_AllowSingleSignOnUsingOSPrimaryAccount(FALSE));
}

TEST(StandinSlots, CompletionHandlers) {
    EXPECT_SLOT(as<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler>(), 3, Invoke(S_OK, nullptr));
    EXPECT_SLOT(as<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler>(), 3, Invoke(S_OK, nullptr));
    EXPECT_SLOT(as<ICoreWebView2WebMessageReceivedEventHandler>(), 3, Invoke(nullptr, nullptr));
}

TEST(StandinSlots, Environment) {
    auto* e = as<ICoreWebView2Environment>();
    EXPECT_SLOT(e, 3, CreateCoreWebView2Controller(nullptr, nullptr));
    EXPECT_SLOT(e, 4, CreateWebResourceResponse(nullptr, 200, nullptr, nullptr, nullptr));
    EXPECT_SLOT(e, 5, get_BrowserVersionString(nullptr));
    EXPECT_SLOT(e, 6, add_NewBrowserVersionAvailable(nullptr, nullptr));
    EXPECT_SLOT(e, 7, remove_NewBrowserVersionAvailable(kToken));
}

TEST(StandinSlots, Controller) {
    auto* c = as<ICoreWebView2Controller3>();
    EXPECT_SLOT(c, 3, get_IsVisible(nullptr));
    EXPECT_SLOT(c, 4, put_IsVisible(TRUE));
    EXPECT_SLOT(c, 5, get_Bounds(nullptr));
    EXPECT_SLOT(c, 6, put_Bounds(kRect));
    EXPECT_SLOT(c, 7, get_ZoomFactor(nullptr));
    EXPECT_SLOT(c, 8, put_ZoomFactor(1.0));
    EXPECT_SLOT(c, 9, add_ZoomFactorChanged(nullptr, nullptr));
    EXPECT_SLOT(c, 10, remove_ZoomFactorChanged(kToken));
    EXPECT_SLOT(c, 11, SetBoundsAndZoomFactor(kRect, 1.0));
    EXPECT_SLOT(c, 12, MoveFocus(COREWEBVIEW2_MOVE_FOCUS_REASON_PROGRAMMATIC));
    EXPECT_SLOT(c, 13, add_MoveFocusRequested(nullptr, nullptr));
    EXPECT_SLOT(c, 14, remove_MoveFocusRequested(kToken));
    EXPECT_SLOT(c, 15, add_GotFocus(nullptr, nullptr));
    EXPECT_SLOT(c, 16, remove_GotFocus(kToken));
    EXPECT_SLOT(c, 17, add_LostFocus(nullptr, nullptr));
    EXPECT_SLOT(c, 18, remove_LostFocus(kToken));
    EXPECT_SLOT(c, 19, add_AcceleratorKeyPressed(nullptr, nullptr));
    EXPECT_SLOT(c, 20, remove_AcceleratorKeyPressed(kToken));
    EXPECT_SLOT(c, 21, get_ParentWindow(nullptr));
    EXPECT_SLOT(c, 22, put_ParentWindow(nullptr));
    EXPECT_SLOT(c, 23, NotifyParentWindowPositionChanged());
    EXPECT_SLOT(c, 24, Close());
    EXPECT_SLOT(c, 25, get_CoreWebView2(nullptr));
    EXPECT_SLOT(c, 26, get_DefaultBackgroundColor(nullptr));
    EXPECT_SLOT(c, 27, put_DefaultBackgroundColor(kColor));
    EXPECT_SLOT(c, 28, get_RasterizationScale(nullptr));
    EXPECT_SLOT(c, 29, put_RasterizationScale(1.0));
    EXPECT_SLOT(c, 30, get_ShouldDetectMonitorScaleChanges(nullptr));
    EXPECT_SLOT(c, 31, put_ShouldDetectMonitorScaleChanges(TRUE));
    EXPECT_SLOT(c, 32, add_RasterizationScaleChanged(nullptr, nullptr));
    EXPECT_SLOT(c, 33, remove_RasterizationScaleChanged(kToken));
    EXPECT_SLOT(c, 34, get_BoundsMode(nullptr));
    EXPECT_SLOT(c, 35, put_BoundsMode(0));
}

TEST(StandinSlots, ControllerBasesShareTheTable) {
    EXPECT_SLOT(as<ICoreWebView2Controller>(), 25, get_CoreWebView2(nullptr));
    EXPECT_SLOT(as<ICoreWebView2Controller2>(), 27, put_DefaultBackgroundColor(kColor));
}

TEST(StandinSlots, WebViewFirstPart) {
    auto* w = as<ICoreWebView2_3>();
    EXPECT_SLOT(w, 3, get_Settings(nullptr));
    EXPECT_SLOT(w, 4, get_Source(nullptr));
    EXPECT_SLOT(w, 5, Navigate(nullptr));
    EXPECT_SLOT(w, 6, NavigateToString(nullptr));
    EXPECT_SLOT(w, 7, add_NavigationStarting(nullptr, nullptr));
    EXPECT_SLOT(w, 8, remove_NavigationStarting(kToken));
    EXPECT_SLOT(w, 9, add_ContentLoading(nullptr, nullptr));
    EXPECT_SLOT(w, 10, remove_ContentLoading(kToken));
    EXPECT_SLOT(w, 11, add_SourceChanged(nullptr, nullptr));
    EXPECT_SLOT(w, 12, remove_SourceChanged(kToken));
    EXPECT_SLOT(w, 13, add_HistoryChanged(nullptr, nullptr));
    EXPECT_SLOT(w, 14, remove_HistoryChanged(kToken));
    EXPECT_SLOT(w, 15, add_NavigationCompleted(nullptr, nullptr));
    EXPECT_SLOT(w, 16, remove_NavigationCompleted(kToken));
    EXPECT_SLOT(w, 17, add_FrameNavigationStarting(nullptr, nullptr));
    EXPECT_SLOT(w, 18, remove_FrameNavigationStarting(kToken));
    EXPECT_SLOT(w, 19, add_FrameNavigationCompleted(nullptr, nullptr));
    EXPECT_SLOT(w, 20, remove_FrameNavigationCompleted(kToken));
    EXPECT_SLOT(w, 21, add_ScriptDialogOpening(nullptr, nullptr));
    EXPECT_SLOT(w, 22, remove_ScriptDialogOpening(kToken));
    EXPECT_SLOT(w, 23, add_PermissionRequested(nullptr, nullptr));
    EXPECT_SLOT(w, 24, remove_PermissionRequested(kToken));
    EXPECT_SLOT(w, 25, add_ProcessFailed(nullptr, nullptr));
    EXPECT_SLOT(w, 26, remove_ProcessFailed(kToken));
    EXPECT_SLOT(w, 27, AddScriptToExecuteOnDocumentCreated(nullptr, nullptr));
    EXPECT_SLOT(w, 28, RemoveScriptToExecuteOnDocumentCreated(nullptr));
    EXPECT_SLOT(w, 29, ExecuteScript(nullptr, nullptr));
    EXPECT_SLOT(w, 30, CapturePreview(0, nullptr, nullptr));
    EXPECT_SLOT(w, 31, Reload());
    EXPECT_SLOT(w, 32, PostWebMessageAsJson(nullptr));
    EXPECT_SLOT(w, 33, PostWebMessageAsString(nullptr));
    EXPECT_SLOT(w, 34, add_WebMessageReceived(nullptr, nullptr));
    EXPECT_SLOT(w, 35, remove_WebMessageReceived(kToken));
}

TEST(StandinSlots, WebViewSecondPart) {
    auto* w = as<ICoreWebView2_3>();
    EXPECT_SLOT(w, 36, CallDevToolsProtocolMethod(nullptr, nullptr, nullptr));
    EXPECT_SLOT(w, 37, get_BrowserProcessId(nullptr));
    EXPECT_SLOT(w, 38, get_CanGoBack(nullptr));
    EXPECT_SLOT(w, 39, get_CanGoForward(nullptr));
    EXPECT_SLOT(w, 40, GoBack());
    EXPECT_SLOT(w, 41, GoForward());
    EXPECT_SLOT(w, 42, GetDevToolsProtocolEventReceiver(nullptr, nullptr));
    EXPECT_SLOT(w, 43, Stop());
    EXPECT_SLOT(w, 44, add_NewWindowRequested(nullptr, nullptr));
    EXPECT_SLOT(w, 45, remove_NewWindowRequested(kToken));
    EXPECT_SLOT(w, 46, add_DocumentTitleChanged(nullptr, nullptr));
    EXPECT_SLOT(w, 47, remove_DocumentTitleChanged(kToken));
    EXPECT_SLOT(w, 48, get_DocumentTitle(nullptr));
    EXPECT_SLOT(w, 49, AddHostObjectToScript(nullptr, nullptr));
    EXPECT_SLOT(w, 50, RemoveHostObjectFromScript(nullptr));
    EXPECT_SLOT(w, 51, OpenDevToolsWindow());
    EXPECT_SLOT(w, 52, add_ContainsFullScreenElementChanged(nullptr, nullptr));
    EXPECT_SLOT(w, 53, remove_ContainsFullScreenElementChanged(kToken));
    EXPECT_SLOT(w, 54, get_ContainsFullScreenElement(nullptr));
    EXPECT_SLOT(w, 55, add_WebResourceRequested(nullptr, nullptr));
    EXPECT_SLOT(w, 56, remove_WebResourceRequested(kToken));
    EXPECT_SLOT(w, 57, AddWebResourceRequestedFilter(nullptr, 0));
    EXPECT_SLOT(w, 58, RemoveWebResourceRequestedFilter(nullptr, 0));
    EXPECT_SLOT(w, 59, add_WindowCloseRequested(nullptr, nullptr));
    EXPECT_SLOT(w, 60, remove_WindowCloseRequested(kToken));
    EXPECT_SLOT(w, 61, add_WebResourceResponseReceived(nullptr, nullptr));
    EXPECT_SLOT(w, 62, remove_WebResourceResponseReceived(kToken));
    EXPECT_SLOT(w, 63, NavigateWithWebResourceRequest(nullptr));
    EXPECT_SLOT(w, 64, add_DOMContentLoaded(nullptr, nullptr));
    EXPECT_SLOT(w, 65, remove_DOMContentLoaded(kToken));
    EXPECT_SLOT(w, 66, get_CookieManager(nullptr));
    EXPECT_SLOT(w, 67, get_Environment(nullptr));
    EXPECT_SLOT(w, 68, TrySuspend(nullptr));
    EXPECT_SLOT(w, 69, Resume());
    EXPECT_SLOT(w, 70, get_IsSuspended(nullptr));
    EXPECT_SLOT(w, 71, SetVirtualHostNameToFolderMapping(nullptr, nullptr, COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND_ALLOW));
    EXPECT_SLOT(w, 72, ClearVirtualHostNameToFolderMapping(nullptr));
}

TEST(StandinSlots, WebViewBasesShareTheTable) {
    EXPECT_SLOT(as<ICoreWebView2>(), 60, remove_WindowCloseRequested(kToken));
    EXPECT_SLOT(as<ICoreWebView2_2>(), 67, get_Environment(nullptr));
}

TEST(StandinSlots, Settings) {
    auto* s = as<ICoreWebView2Settings>();
    EXPECT_SLOT(s, 3, get_IsScriptEnabled(nullptr));
    EXPECT_SLOT(s, 4, put_IsScriptEnabled(TRUE));
    EXPECT_SLOT(s, 5, get_IsWebMessageEnabled(nullptr));
    EXPECT_SLOT(s, 6, put_IsWebMessageEnabled(TRUE));
    EXPECT_SLOT(s, 7, get_AreDefaultScriptDialogsEnabled(nullptr));
    EXPECT_SLOT(s, 8, put_AreDefaultScriptDialogsEnabled(TRUE));
    EXPECT_SLOT(s, 9, get_IsStatusBarEnabled(nullptr));
    EXPECT_SLOT(s, 10, put_IsStatusBarEnabled(TRUE));
    EXPECT_SLOT(s, 11, get_AreDevToolsEnabled(nullptr));
    EXPECT_SLOT(s, 12, put_AreDevToolsEnabled(TRUE));
    EXPECT_SLOT(s, 13, get_AreDefaultContextMenusEnabled(nullptr));
    EXPECT_SLOT(s, 14, put_AreDefaultContextMenusEnabled(TRUE));
    EXPECT_SLOT(s, 15, get_AreHostObjectsAllowed(nullptr));
    EXPECT_SLOT(s, 16, put_AreHostObjectsAllowed(TRUE));
    EXPECT_SLOT(s, 17, get_IsZoomControlEnabled(nullptr));
    EXPECT_SLOT(s, 18, put_IsZoomControlEnabled(TRUE));
    EXPECT_SLOT(s, 19, get_IsBuiltInErrorPageEnabled(nullptr));
    EXPECT_SLOT(s, 20, put_IsBuiltInErrorPageEnabled(TRUE));
}

TEST(StandinSlots, WebMessageArgs) {
    auto* a = as<ICoreWebView2WebMessageReceivedEventArgs>();
    EXPECT_SLOT(a, 3, get_Source(nullptr));
    EXPECT_SLOT(a, 4, get_WebMessageAsJson(nullptr));
    EXPECT_SLOT(a, 5, TryGetWebMessageAsString(nullptr));
}

TEST(StandinSlots, InterfaceIdentifiers) {
    EXPECT_EQ(guidText(IID_ICoreWebView2EnvironmentOptions), L"{2FDE08A8-1E9A-4766-8C05-95A9CEB9D1C5}");
    EXPECT_EQ(guidText(IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler),
              L"{4E8A3389-C9D8-4BD2-B6B5-124FEE6CC14D}");
    EXPECT_EQ(guidText(IID_ICoreWebView2Environment), L"{B96D755E-0319-4E92-A296-23436F46A1FC}");
    EXPECT_EQ(guidText(IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler),
              L"{6C4819F3-C9B7-4260-8127-C9F5BDE7F68C}");
    EXPECT_EQ(guidText(IID_ICoreWebView2Controller), L"{4D00C0D1-9434-4EB6-8078-8697A560334F}");
    EXPECT_EQ(guidText(IID_ICoreWebView2Controller2), L"{C979903E-D4CA-4228-92EB-47EE3FA96EAB}");
    EXPECT_EQ(guidText(IID_ICoreWebView2Controller3), L"{F9614724-5D2B-41DC-AEF7-73D62B51543B}");
    EXPECT_EQ(guidText(IID_ICoreWebView2), L"{76ECEACB-0462-4D94-AC83-423A6793775E}");
    EXPECT_EQ(guidText(IID_ICoreWebView2_2), L"{9E8F0CF8-E670-4B5E-B2BC-73E061E3184C}");
    EXPECT_EQ(guidText(IID_ICoreWebView2_3), L"{A0D6DF20-3B92-416D-AA0C-437A9C727857}");
    EXPECT_EQ(guidText(IID_ICoreWebView2Settings), L"{E562E4F0-D7FA-43AC-8D71-C05150499F00}");
    EXPECT_EQ(guidText(IID_ICoreWebView2WebMessageReceivedEventHandler), L"{57213F19-00E6-49FA-8E07-898EA01ECBD2}");
    EXPECT_EQ(guidText(IID_ICoreWebView2WebMessageReceivedEventArgs), L"{0F99A40C-E962-4207-9E92-E3D542EFF849}");
}

TEST(StandinSlots, SmallTypesHaveTheirSizes) {
    EXPECT_EQ(sizeof(EventRegistrationToken), 8u);
    EXPECT_EQ(sizeof(COREWEBVIEW2_COLOR), 4u);
    EXPECT_EQ(sizeof(COREWEBVIEW2_MOVE_FOCUS_REASON), 4u);
    EXPECT_EQ(sizeof(COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND), 4u);
}
