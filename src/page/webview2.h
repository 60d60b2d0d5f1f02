// The program's own declarations of the WebView2 COM interfaces that it uses.
// They mirror the published WebView2 interfaces: same names, same interface
// identifiers, same inheritance and every virtual-table slot in the published
// order, so that a call lands on the runtime's method. The slot lists were
// checked against SDK version 1.0.2849.39. Slots the program never calls keep
// their place but take loose parameter types (void*, int) where the published
// type is something the program has no other use for.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <eventtoken.h>  // EventRegistrationToken, the platform's own 8-byte token

static_assert(sizeof(EventRegistrationToken) == 8, "event tokens are one 64-bit value");

struct COREWEBVIEW2_COLOR {
    BYTE A;
    BYTE R;
    BYTE G;
    BYTE B;
};
static_assert(sizeof(COREWEBVIEW2_COLOR) == 4, "a colour is four bytes, alpha first");

enum COREWEBVIEW2_MOVE_FOCUS_REASON {
    COREWEBVIEW2_MOVE_FOCUS_REASON_PROGRAMMATIC = 0,
    COREWEBVIEW2_MOVE_FOCUS_REASON_NEXT = 1,
    COREWEBVIEW2_MOVE_FOCUS_REASON_PREVIOUS = 2,
};

enum COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND {
    COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND_DENY = 0,
    COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND_ALLOW = 1,
    COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND_DENY_CORS = 2,
};

// Interface identifiers.
inline const IID IID_ICoreWebView2EnvironmentOptions = {
    0x2fde08a8, 0x1e9a, 0x4766, {0x8c, 0x05, 0x95, 0xa9, 0xce, 0xb9, 0xd1, 0xc5}};
inline const IID IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler = {
    0x4e8a3389, 0xc9d8, 0x4bd2, {0xb6, 0xb5, 0x12, 0x4f, 0xee, 0x6c, 0xc1, 0x4d}};
inline const IID IID_ICoreWebView2Environment = {
    0xb96d755e, 0x0319, 0x4e92, {0xa2, 0x96, 0x23, 0x43, 0x6f, 0x46, 0xa1, 0xfc}};
inline const IID IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler = {
    0x6c4819f3, 0xc9b7, 0x4260, {0x81, 0x27, 0xc9, 0xf5, 0xbd, 0xe7, 0xf6, 0x8c}};
inline const IID IID_ICoreWebView2Controller = {
    0x4d00c0d1, 0x9434, 0x4eb6, {0x80, 0x78, 0x86, 0x97, 0xa5, 0x60, 0x33, 0x4f}};
inline const IID IID_ICoreWebView2Controller2 = {
    0xc979903e, 0xd4ca, 0x4228, {0x92, 0xeb, 0x47, 0xee, 0x3f, 0xa9, 0x6e, 0xab}};
inline const IID IID_ICoreWebView2Controller3 = {
    0xf9614724, 0x5d2b, 0x41dc, {0xae, 0xf7, 0x73, 0xd6, 0x2b, 0x51, 0x54, 0x3b}};
inline const IID IID_ICoreWebView2 = {
    0x76eceacb, 0x0462, 0x4d94, {0xac, 0x83, 0x42, 0x3a, 0x67, 0x93, 0x77, 0x5e}};
inline const IID IID_ICoreWebView2_2 = {
    0x9e8f0cf8, 0xe670, 0x4b5e, {0xb2, 0xbc, 0x73, 0xe0, 0x61, 0xe3, 0x18, 0x4c}};
inline const IID IID_ICoreWebView2_3 = {
    0xa0d6df20, 0x3b92, 0x416d, {0xaa, 0x0c, 0x43, 0x7a, 0x9c, 0x72, 0x78, 0x57}};
inline const IID IID_ICoreWebView2Settings = {
    0xe562e4f0, 0xd7fa, 0x43ac, {0x8d, 0x71, 0xc0, 0x51, 0x50, 0x49, 0x9f, 0x00}};
inline const IID IID_ICoreWebView2WebMessageReceivedEventHandler = {
    0x57213f19, 0x00e6, 0x49fa, {0x8e, 0x07, 0x89, 0x8e, 0xa0, 0x1e, 0xcb, 0xd2}};
inline const IID IID_ICoreWebView2WebMessageReceivedEventArgs = {
    0x0f99a40c, 0xe962, 0x4207, {0x9e, 0x92, 0xe3, 0xd5, 0x42, 0xef, 0xf8, 0x49}};

struct ICoreWebView2;
struct ICoreWebView2Controller;
struct ICoreWebView2Environment;
struct ICoreWebView2Settings;
struct ICoreWebView2WebMessageReceivedEventArgs;
struct ICoreWebView2WebMessageReceivedEventHandler;
struct ICoreWebView2CreateCoreWebView2ControllerCompletedHandler;

struct ICoreWebView2EnvironmentOptions : public IUnknown {
    STDMETHOD(get_AdditionalBrowserArguments)(LPWSTR* value) = 0;                 // 3
    STDMETHOD(put_AdditionalBrowserArguments)(LPCWSTR value) = 0;                 // 4
    STDMETHOD(get_Language)(LPWSTR* value) = 0;                                   // 5
    STDMETHOD(put_Language)(LPCWSTR value) = 0;                                   // 6
    STDMETHOD(get_TargetCompatibleBrowserVersion)(LPWSTR* value) = 0;             // 7
    STDMETHOD(put_TargetCompatibleBrowserVersion)(LPCWSTR value) = 0;             // 8
    STDMETHOD(get_AllowSingleSignOnUsingOSPrimaryAccount)(BOOL* allow) = 0;       // 9
    STDMETHOD(put_AllowSingleSignOnUsingOSPrimaryAccount)(BOOL allow) = 0;        // 10
};

struct ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler : public IUnknown {
    STDMETHOD(Invoke)(HRESULT errorCode, ICoreWebView2Environment* result) = 0;  // 3
};

struct ICoreWebView2Environment : public IUnknown {
    STDMETHOD(CreateCoreWebView2Controller)(
        HWND parentWindow, ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) = 0;  // 3
    STDMETHOD(CreateWebResourceResponse)(IStream* content, int statusCode, LPCWSTR reasonPhrase,
                                         LPCWSTR headers, IUnknown** response) = 0;  // 4
    STDMETHOD(get_BrowserVersionString)(LPWSTR* versionInfo) = 0;                     // 5
    STDMETHOD(add_NewBrowserVersionAvailable)(IUnknown* handler, EventRegistrationToken* token) = 0;  // 6
    STDMETHOD(remove_NewBrowserVersionAvailable)(EventRegistrationToken token) = 0;   // 7
};

struct ICoreWebView2CreateCoreWebView2ControllerCompletedHandler : public IUnknown {
    STDMETHOD(Invoke)(HRESULT errorCode, ICoreWebView2Controller* result) = 0;  // 3
};

struct ICoreWebView2Controller : public IUnknown {
    STDMETHOD(get_IsVisible)(BOOL* isVisible) = 0;                                        // 3
    STDMETHOD(put_IsVisible)(BOOL isVisible) = 0;                                         // 4
    STDMETHOD(get_Bounds)(RECT* bounds) = 0;                                              // 5
    STDMETHOD(put_Bounds)(RECT bounds) = 0;                                               // 6
    STDMETHOD(get_ZoomFactor)(double* zoomFactor) = 0;                                    // 7
    STDMETHOD(put_ZoomFactor)(double zoomFactor) = 0;                                     // 8
    STDMETHOD(add_ZoomFactorChanged)(IUnknown* handler, EventRegistrationToken* token) = 0;  // 9
    STDMETHOD(remove_ZoomFactorChanged)(EventRegistrationToken token) = 0;                // 10
    STDMETHOD(SetBoundsAndZoomFactor)(RECT bounds, double zoomFactor) = 0;                // 11
    STDMETHOD(MoveFocus)(COREWEBVIEW2_MOVE_FOCUS_REASON reason) = 0;                      // 12
    STDMETHOD(add_MoveFocusRequested)(IUnknown* handler, EventRegistrationToken* token) = 0;  // 13
    STDMETHOD(remove_MoveFocusRequested)(EventRegistrationToken token) = 0;               // 14
    STDMETHOD(add_GotFocus)(IUnknown* handler, EventRegistrationToken* token) = 0;        // 15
    STDMETHOD(remove_GotFocus)(EventRegistrationToken token) = 0;                         // 16
    STDMETHOD(add_LostFocus)(IUnknown* handler, EventRegistrationToken* token) = 0;       // 17
    STDMETHOD(remove_LostFocus)(EventRegistrationToken token) = 0;                        // 18
    STDMETHOD(add_AcceleratorKeyPressed)(IUnknown* handler, EventRegistrationToken* token) = 0;  // 19
    STDMETHOD(remove_AcceleratorKeyPressed)(EventRegistrationToken token) = 0;            // 20
    STDMETHOD(get_ParentWindow)(HWND* parentWindow) = 0;                                  // 21
    STDMETHOD(put_ParentWindow)(HWND parentWindow) = 0;                                   // 22
    STDMETHOD(NotifyParentWindowPositionChanged)() = 0;                                   // 23
    STDMETHOD(Close)() = 0;                                                               // 24
    STDMETHOD(get_CoreWebView2)(ICoreWebView2** coreWebView2) = 0;                        // 25
};

struct ICoreWebView2Controller2 : public ICoreWebView2Controller {
    STDMETHOD(get_DefaultBackgroundColor)(COREWEBVIEW2_COLOR* value) = 0;  // 26
    STDMETHOD(put_DefaultBackgroundColor)(COREWEBVIEW2_COLOR value) = 0;   // 27
};

struct ICoreWebView2Controller3 : public ICoreWebView2Controller2 {
    STDMETHOD(get_RasterizationScale)(double* scale) = 0;                                       // 28
    STDMETHOD(put_RasterizationScale)(double scale) = 0;                                        // 29
    STDMETHOD(get_ShouldDetectMonitorScaleChanges)(BOOL* value) = 0;                            // 30
    STDMETHOD(put_ShouldDetectMonitorScaleChanges)(BOOL value) = 0;                             // 31
    STDMETHOD(add_RasterizationScaleChanged)(IUnknown* handler, EventRegistrationToken* token) = 0;  // 32
    STDMETHOD(remove_RasterizationScaleChanged)(EventRegistrationToken token) = 0;              // 33
    STDMETHOD(get_BoundsMode)(int* boundsMode) = 0;                                             // 34
    STDMETHOD(put_BoundsMode)(int boundsMode) = 0;                                              // 35
};

struct ICoreWebView2 : public IUnknown {
    STDMETHOD(get_Settings)(ICoreWebView2Settings** settings) = 0;                              // 3
    STDMETHOD(get_Source)(LPWSTR* uri) = 0;                                                     // 4
    STDMETHOD(Navigate)(LPCWSTR uri) = 0;                                                       // 5
    STDMETHOD(NavigateToString)(LPCWSTR htmlContent) = 0;                                       // 6
    STDMETHOD(add_NavigationStarting)(IUnknown* handler, EventRegistrationToken* token) = 0;    // 7
    STDMETHOD(remove_NavigationStarting)(EventRegistrationToken token) = 0;                     // 8
    STDMETHOD(add_ContentLoading)(IUnknown* handler, EventRegistrationToken* token) = 0;        // 9
    STDMETHOD(remove_ContentLoading)(EventRegistrationToken token) = 0;                         // 10
    STDMETHOD(add_SourceChanged)(IUnknown* handler, EventRegistrationToken* token) = 0;         // 11
    STDMETHOD(remove_SourceChanged)(EventRegistrationToken token) = 0;                          // 12
    STDMETHOD(add_HistoryChanged)(IUnknown* handler, EventRegistrationToken* token) = 0;        // 13
    STDMETHOD(remove_HistoryChanged)(EventRegistrationToken token) = 0;                         // 14
    STDMETHOD(add_NavigationCompleted)(IUnknown* handler, EventRegistrationToken* token) = 0;   // 15
    STDMETHOD(remove_NavigationCompleted)(EventRegistrationToken token) = 0;                    // 16
    STDMETHOD(add_FrameNavigationStarting)(IUnknown* handler, EventRegistrationToken* token) = 0;  // 17
    STDMETHOD(remove_FrameNavigationStarting)(EventRegistrationToken token) = 0;                // 18
    STDMETHOD(add_FrameNavigationCompleted)(IUnknown* handler, EventRegistrationToken* token) = 0;  // 19
    STDMETHOD(remove_FrameNavigationCompleted)(EventRegistrationToken token) = 0;               // 20
    STDMETHOD(add_ScriptDialogOpening)(IUnknown* handler, EventRegistrationToken* token) = 0;   // 21
    STDMETHOD(remove_ScriptDialogOpening)(EventRegistrationToken token) = 0;                    // 22
    STDMETHOD(add_PermissionRequested)(IUnknown* handler, EventRegistrationToken* token) = 0;   // 23
    STDMETHOD(remove_PermissionRequested)(EventRegistrationToken token) = 0;                    // 24
    STDMETHOD(add_ProcessFailed)(IUnknown* handler, EventRegistrationToken* token) = 0;         // 25
    STDMETHOD(remove_ProcessFailed)(EventRegistrationToken token) = 0;                          // 26
    STDMETHOD(AddScriptToExecuteOnDocumentCreated)(LPCWSTR javaScript, IUnknown* handler) = 0;  // 27
    STDMETHOD(RemoveScriptToExecuteOnDocumentCreated)(LPCWSTR id) = 0;                          // 28
    STDMETHOD(ExecuteScript)(LPCWSTR javaScript, IUnknown* handler) = 0;                        // 29
    STDMETHOD(CapturePreview)(int imageFormat, IStream* imageStream, IUnknown* handler) = 0;    // 30
    STDMETHOD(Reload)() = 0;                                                                    // 31
    STDMETHOD(PostWebMessageAsJson)(LPCWSTR webMessageAsJson) = 0;                              // 32
    STDMETHOD(PostWebMessageAsString)(LPCWSTR webMessageAsString) = 0;                          // 33
    STDMETHOD(add_WebMessageReceived)(ICoreWebView2WebMessageReceivedEventHandler* handler,
                                      EventRegistrationToken* token) = 0;                       // 34
    STDMETHOD(remove_WebMessageReceived)(EventRegistrationToken token) = 0;                     // 35
    STDMETHOD(CallDevToolsProtocolMethod)(LPCWSTR methodName, LPCWSTR parametersAsJson,
                                          IUnknown* handler) = 0;                               // 36
    STDMETHOD(get_BrowserProcessId)(UINT32* value) = 0;                                         // 37
    STDMETHOD(get_CanGoBack)(BOOL* canGoBack) = 0;                                              // 38
    STDMETHOD(get_CanGoForward)(BOOL* canGoForward) = 0;                                        // 39
    STDMETHOD(GoBack)() = 0;                                                                    // 40
    STDMETHOD(GoForward)() = 0;                                                                 // 41
    STDMETHOD(GetDevToolsProtocolEventReceiver)(LPCWSTR eventName, IUnknown** receiver) = 0;    // 42
    STDMETHOD(Stop)() = 0;                                                                      // 43
    STDMETHOD(add_NewWindowRequested)(IUnknown* handler, EventRegistrationToken* token) = 0;    // 44
    STDMETHOD(remove_NewWindowRequested)(EventRegistrationToken token) = 0;                     // 45
    STDMETHOD(add_DocumentTitleChanged)(IUnknown* handler, EventRegistrationToken* token) = 0;  // 46
    STDMETHOD(remove_DocumentTitleChanged)(EventRegistrationToken token) = 0;                   // 47
    STDMETHOD(get_DocumentTitle)(LPWSTR* title) = 0;                                            // 48
    STDMETHOD(AddHostObjectToScript)(LPCWSTR name, void* object) = 0;                           // 49
    STDMETHOD(RemoveHostObjectFromScript)(LPCWSTR name) = 0;                                    // 50
    STDMETHOD(OpenDevToolsWindow)() = 0;                                                        // 51
    STDMETHOD(add_ContainsFullScreenElementChanged)(IUnknown* handler, EventRegistrationToken* token) = 0;  // 52
    STDMETHOD(remove_ContainsFullScreenElementChanged)(EventRegistrationToken token) = 0;       // 53
    STDMETHOD(get_ContainsFullScreenElement)(BOOL* containsFullScreenElement) = 0;              // 54
    STDMETHOD(add_WebResourceRequested)(IUnknown* handler, EventRegistrationToken* token) = 0;  // 55
    STDMETHOD(remove_WebResourceRequested)(EventRegistrationToken token) = 0;                   // 56
    STDMETHOD(AddWebResourceRequestedFilter)(LPCWSTR uri, int resourceContext) = 0;             // 57
    STDMETHOD(RemoveWebResourceRequestedFilter)(LPCWSTR uri, int resourceContext) = 0;          // 58
    STDMETHOD(add_WindowCloseRequested)(IUnknown* handler, EventRegistrationToken* token) = 0;  // 59
    STDMETHOD(remove_WindowCloseRequested)(EventRegistrationToken token) = 0;                   // 60
};

struct ICoreWebView2_2 : public ICoreWebView2 {
    STDMETHOD(add_WebResourceResponseReceived)(IUnknown* handler, EventRegistrationToken* token) = 0;  // 61
    STDMETHOD(remove_WebResourceResponseReceived)(EventRegistrationToken token) = 0;            // 62
    STDMETHOD(NavigateWithWebResourceRequest)(IUnknown* request) = 0;                           // 63
    STDMETHOD(add_DOMContentLoaded)(IUnknown* handler, EventRegistrationToken* token) = 0;      // 64
    STDMETHOD(remove_DOMContentLoaded)(EventRegistrationToken token) = 0;                       // 65
    STDMETHOD(get_CookieManager)(IUnknown** cookieManager) = 0;                                 // 66
    STDMETHOD(get_Environment)(ICoreWebView2Environment** environment) = 0;                     // 67
};

struct ICoreWebView2_3 : public ICoreWebView2_2 {
    STDMETHOD(TrySuspend)(IUnknown* handler) = 0;                                               // 68
    STDMETHOD(Resume)() = 0;                                                                    // 69
    STDMETHOD(get_IsSuspended)(BOOL* isSuspended) = 0;                                          // 70
    STDMETHOD(SetVirtualHostNameToFolderMapping)(LPCWSTR hostName, LPCWSTR folderPath,
                                                 COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND accessKind) = 0;  // 71
    STDMETHOD(ClearVirtualHostNameToFolderMapping)(LPCWSTR hostName) = 0;                       // 72
};

struct ICoreWebView2Settings : public IUnknown {
    STDMETHOD(get_IsScriptEnabled)(BOOL* isScriptEnabled) = 0;                                  // 3
    STDMETHOD(put_IsScriptEnabled)(BOOL isScriptEnabled) = 0;                                   // 4
    STDMETHOD(get_IsWebMessageEnabled)(BOOL* isWebMessageEnabled) = 0;                          // 5
    STDMETHOD(put_IsWebMessageEnabled)(BOOL isWebMessageEnabled) = 0;                           // 6
    STDMETHOD(get_AreDefaultScriptDialogsEnabled)(BOOL* areDefaultScriptDialogsEnabled) = 0;    // 7
    STDMETHOD(put_AreDefaultScriptDialogsEnabled)(BOOL areDefaultScriptDialogsEnabled) = 0;     // 8
    STDMETHOD(get_IsStatusBarEnabled)(BOOL* isStatusBarEnabled) = 0;                            // 9
    STDMETHOD(put_IsStatusBarEnabled)(BOOL isStatusBarEnabled) = 0;                             // 10
    STDMETHOD(get_AreDevToolsEnabled)(BOOL* areDevToolsEnabled) = 0;                            // 11
    STDMETHOD(put_AreDevToolsEnabled)(BOOL areDevToolsEnabled) = 0;                             // 12
    STDMETHOD(get_AreDefaultContextMenusEnabled)(BOOL* enabled) = 0;                            // 13
    STDMETHOD(put_AreDefaultContextMenusEnabled)(BOOL enabled) = 0;                             // 14
    STDMETHOD(get_AreHostObjectsAllowed)(BOOL* allowed) = 0;                                    // 15
    STDMETHOD(put_AreHostObjectsAllowed)(BOOL allowed) = 0;                                     // 16
    STDMETHOD(get_IsZoomControlEnabled)(BOOL* enabled) = 0;                                     // 17
    STDMETHOD(put_IsZoomControlEnabled)(BOOL enabled) = 0;                                      // 18
    STDMETHOD(get_IsBuiltInErrorPageEnabled)(BOOL* enabled) = 0;                                // 19
    STDMETHOD(put_IsBuiltInErrorPageEnabled)(BOOL enabled) = 0;                                 // 20
};

struct ICoreWebView2WebMessageReceivedEventHandler : public IUnknown {
    STDMETHOD(Invoke)(ICoreWebView2* sender, ICoreWebView2WebMessageReceivedEventArgs* args) = 0;  // 3
};

struct ICoreWebView2WebMessageReceivedEventArgs : public IUnknown {
    STDMETHOD(get_Source)(LPWSTR* value) = 0;                // 3
    STDMETHOD(get_WebMessageAsJson)(LPWSTR* value) = 0;      // 4
    STDMETHOD(TryGetWebMessageAsString)(LPWSTR* value) = 0;  // 5
};
