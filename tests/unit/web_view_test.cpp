// The web view's callbacks driven by hand, against stand-in browser objects
// whose every virtual-table slot writes the call into a journal. The journal
// shows which methods the program called, in which order and with which
// arguments (read raw from the x64 argument registers).
#include "page/web_view.h"

#include <shlobj.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "app/counters.h"
#include "app/host_state.h"
#include "fakes.h"
#include "memory_faults.h"
#include "test_support.h"

using test_support::ScratchLog;

namespace {

struct Fake;

struct Call {
    const Fake* object;
    int slot;
    uintptr_t a, b, c;
};
std::vector<Call> journal;

// What a stand-in hands back through the out pointer of one slot.
struct Out {
    enum class Kind { none, object, number, text } kind = Kind::none;
    Fake* fake = nullptr;
    uint32_t value = 0;
    std::wstring string;

    static Out object(Fake* fake) {
        Out out;
        out.kind = Kind::object;
        out.fake = fake;
        return out;
    }
    static Out number(uint32_t value) {
        Out out;
        out.kind = Kind::number;
        out.value = value;
        return out;
    }
    static Out text(const std::wstring& string) {
        Out out;
        out.kind = Kind::text;
        out.string = string;
        return out;
    }
};

struct Fake {
    void* const* table;  // first, where a COM object keeps its table
    std::vector<const IID*> interfaces;
    std::map<int, Out> outs;
    std::map<int, HRESULT> results;
    std::map<int, int> keeps;  // slot -> argument (1 or 2) holding an object the runtime keeps
    std::vector<IUnknown*> kept;
    LONG references = 1;

    Fake();
    ~Fake() {
        for (IUnknown* object : kept) object->Release();
    }
    template <typename T>
    T* as() {
        return reinterpret_cast<T*>(this);
    }
};

HRESULT STDMETHODCALLTYPE fakeQueryInterface(Fake* self, const IID* iid, void** object) {
    journal.push_back({self, 0, reinterpret_cast<uintptr_t>(iid), 0, 0});
    for (const IID* offered : self->interfaces) {
        if (IsEqualIID(*iid, *offered)) {
            ++self->references;
            *object = self;
            return S_OK;
        }
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE fakeAddRef(Fake* self) {
    journal.push_back({self, 1, 0, 0, 0});
    return static_cast<ULONG>(++self->references);
}

ULONG STDMETHODCALLTYPE fakeRelease(Fake* self) {
    journal.push_back({self, 2, 0, 0, 0});
    return static_cast<ULONG>(--self->references);
}

void writeOut(const Out& out, uintptr_t pointer) {
    switch (out.kind) {
    case Out::Kind::object:
        ++out.fake->references;  // an out interface pointer carries a reference
        *reinterpret_cast<Fake**>(pointer) = out.fake;
        break;
    case Out::Kind::number: *reinterpret_cast<uint32_t*>(pointer) = out.value; break;
    case Out::Kind::text: {
        size_t bytes = (out.string.size() + 1) * sizeof(wchar_t);
        void* copy = CoTaskMemAlloc(bytes);
        std::memcpy(copy, out.string.c_str(), bytes);
        *reinterpret_cast<void**>(pointer) = copy;
        break;
    }
    case Out::Kind::none: break;
    }
}

template <int N>
HRESULT STDMETHODCALLTYPE fakeSlot(Fake* self, uintptr_t a, uintptr_t b, uintptr_t c) {
    journal.push_back({self, N, a, b, c});
    auto keep = self->keeps.find(N);
    if (keep != self->keeps.end()) {
        IUnknown* object = reinterpret_cast<IUnknown*>(keep->second == 1 ? a : b);
        object->AddRef();
        self->kept.push_back(object);
    }
    auto result = self->results.find(N);
    if (result != self->results.end()) return result->second;
    auto out = self->outs.find(N);
    if (out != self->outs.end()) writeOut(out->second, a);
    return S_OK;
}

template <int... N>
std::array<void*, 3 + sizeof...(N)> makeTable(std::integer_sequence<int, N...>) {
    return {reinterpret_cast<void*>(&fakeQueryInterface), reinterpret_cast<void*>(&fakeAddRef),
            reinterpret_cast<void*>(&fakeRelease), reinterpret_cast<void*>(&fakeSlot<N + 3>)...};
}

const std::array<void*, 80>& fakeTable() {
    static const std::array<void*, 80> table = makeTable(std::make_integer_sequence<int, 77>{});
    return table;
}

Fake::Fake() : table(fakeTable().data()) {}

// The calls made on one object, as (slot, first argument) pairs.
std::vector<std::pair<int, uintptr_t>> callsOn(const Fake& fake) {
    std::vector<std::pair<int, uintptr_t>> calls;
    for (const Call& call : journal) {
        if (call.object == &fake) calls.push_back({call.slot, call.a});
    }
    return calls;
}

std::wstring wide(uintptr_t pointer) {
    return pointer ? reinterpret_cast<const wchar_t*>(pointer) : L"<null>";
}

uint32_t low32(uintptr_t value) {
    return static_cast<uint32_t>(value & 0xFFFFFFFFu);
}

// Drops the stand-ins' references that the program took, and puts the host
// record back as it was.
class WebView : public ::testing::Test {
protected:
    void SetUp() override {
        journal.clear();
        host.webView.reset();
        host.webController.reset();
        host.browserProcessId = 0;
        host.webFolder = L"C:\\game\\web";

        controller.interfaces = {&IID_IUnknown, &IID_ICoreWebView2Controller, &IID_ICoreWebView2Controller2,
                                 &IID_ICoreWebView2Controller3};
        controller.outs[25] = Out::object(&webView);
        webView.interfaces = {&IID_IUnknown, &IID_ICoreWebView2, &IID_ICoreWebView2_2, &IID_ICoreWebView2_3};
        webView.outs[3] = Out::object(&settings);
        webView.outs[37] = Out::number(4321);
        webView.keeps[34] = 1;
    }

    void TearDown() override {
        host.webView.reset();
        host.webController.reset();
    }

    uint32_t total(Counter which) const { return activity.counter[which].total; }

    fakes::HostStateGuard saved;
    Fake controller, webView, settings;
};

TEST_F(WebView, ControllerArrives) {
    ScratchLog log;
    EXPECT_EQ(onControllerCreated(S_OK, controller.as<ICoreWebView2Controller>()), S_OK);

    EXPECT_EQ(host.webController.get(), controller.as<ICoreWebView2Controller>());
    EXPECT_EQ(host.webView.get(), webView.as<ICoreWebView2>());
    EXPECT_EQ(host.browserProcessId, 4321u);

    // Controller: kept, asked for its web view, coloured, made invisible (the
    // mode is not active), its second interface released last.
    auto onController = callsOn(controller);
    ASSERT_EQ(onController.size(), 6u);
    EXPECT_EQ(onController[0].first, 1);
    EXPECT_EQ(onController[1].first, 25);
    EXPECT_EQ(onController[2].first, 0);
    EXPECT_TRUE(IsEqualIID(*reinterpret_cast<const IID*>(onController[2].second), IID_ICoreWebView2Controller2));
    EXPECT_EQ(onController[3].first, 27);
    EXPECT_EQ(low32(onController[3].second), 0x180B0BFFu);  // A 255, R 11, G 11, B 24
    EXPECT_EQ(onController[4].first, 4);
    EXPECT_EQ(low32(onController[4].second), 0u);
    EXPECT_EQ(onController[5].first, 2);

    auto onSettings = callsOn(settings);
    ASSERT_EQ(onSettings.size(), 5u);
    EXPECT_EQ(onSettings[0].first, 14);  // no context menus
    EXPECT_EQ(low32(onSettings[0].second), 0u);
    EXPECT_EQ(onSettings[1].first, 10);  // no status bar
    EXPECT_EQ(low32(onSettings[1].second), 0u);
    EXPECT_EQ(onSettings[2].first, 18);  // no zooming
    EXPECT_EQ(low32(onSettings[2].second), 0u);
    EXPECT_EQ(onSettings[3].first, 12);  // developer tools stay on
    EXPECT_EQ(low32(onSettings[3].second), 1u);
    EXPECT_EQ(onSettings[4].first, 2);

    auto onWebView = callsOn(webView);
    ASSERT_EQ(onWebView.size(), 7u);
    EXPECT_EQ(onWebView[0].first, 37);
    EXPECT_EQ(onWebView[1].first, 3);
    EXPECT_EQ(onWebView[2].first, 0);
    EXPECT_TRUE(IsEqualIID(*reinterpret_cast<const IID*>(onWebView[2].second), IID_ICoreWebView2_3));
    EXPECT_EQ(onWebView[3].first, 71);
    EXPECT_EQ(onWebView[4].first, 34);
    EXPECT_EQ(onWebView[5].first, 5);
    EXPECT_EQ(wide(onWebView[5].second), L"https://gra-overlay.invalid/index.html");
    EXPECT_EQ(onWebView[6].first, 2);

    // The folder mapping and the message handler registration in detail.
    for (const Call& call : journal) {
        if (call.object == &webView && call.slot == 71) {
            EXPECT_EQ(wide(call.a), L"gra-overlay.invalid");
            EXPECT_EQ(wide(call.b), L"C:\\game\\web");
            EXPECT_EQ(low32(call.c), 1u);
        }
        if (call.object == &webView && call.slot == 34) {
            EXPECT_NE(call.a, 0u);
            EXPECT_NE(call.b, 0u);  // a token of its own, then discarded
        }
    }

    // Across objects: the order of the steps.
    std::vector<std::pair<const Fake*, int>> order;
    for (const Call& call : journal) order.push_back({call.object, call.slot});
    std::vector<std::pair<const Fake*, int>> expected = {
        {&controller, 1}, {&controller, 25}, {&webView, 37}, {&controller, 0}, {&controller, 27},
        {&webView, 3},    {&settings, 14},   {&settings, 10}, {&settings, 18},  {&settings, 12},
        {&webView, 0},    {&webView, 71},    {&webView, 34},  {&controller, 4}, {&webView, 5},
        {&webView, 2},    {&settings, 2},    {&controller, 2}};
    EXPECT_EQ(order, expected);

    // The host holds one reference to each; the temporary ones are gone.
    EXPECT_EQ(controller.references, 2);
    EXPECT_EQ(webView.references, 2);
    EXPECT_EQ(settings.references, 1);

    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], "WebView2 browser process pid 4321");
    EXPECT_EQ(messages[1], "WebView2 ready, page https://gra-overlay.invalid/index.html from C:\\game\\web");
}

TEST_F(WebView, ControllerArrivesAfterTheCoverIsDownInActiveMode) {
    host.coverUp = false;
    host.activeMode = true;
    onControllerCreated(S_OK, controller.as<ICoreWebView2Controller>());
    for (const Call& call : journal) {
        if (call.object != &controller) continue;
        if (call.slot == 27) {
            EXPECT_EQ(low32(call.a), 0u);  // fully transparent
        }
        if (call.slot == 4) {
            EXPECT_EQ(low32(call.a), 1u);  // visible
        }
    }
}

TEST_F(WebView, OlderRuntimeWithoutColourOrFolderMapping) {
    ScratchLog log;
    controller.interfaces = {&IID_IUnknown, &IID_ICoreWebView2Controller};
    webView.interfaces = {&IID_IUnknown, &IID_ICoreWebView2};
    webView.results[37] = E_NOTIMPL;
    onControllerCreated(S_OK, controller.as<ICoreWebView2Controller>());
    for (const Call& call : journal) {
        EXPECT_NE(call.slot, 27);
        EXPECT_NE(call.slot, 71);
    }
    // The page is still asked for.
    auto onWebView = callsOn(webView);
    ASSERT_GE(onWebView.size(), 1u);
    EXPECT_EQ(onWebView.back().first, 5);
    EXPECT_EQ(host.browserProcessId, 0u);
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "WebView2 ready, page https://gra-overlay.invalid/index.html from C:\\game\\web");
}

TEST_F(WebView, SecondCallbackWithTheSameControllerReplacesTheWebView) {
    onControllerCreated(S_OK, controller.as<ICoreWebView2Controller>());
    journal.clear();
    onControllerCreated(S_OK, controller.as<ICoreWebView2Controller>());
    auto onController = callsOn(controller);
    ASSERT_FALSE(onController.empty());
    EXPECT_EQ(onController[0].first, 25);  // no second reference taken
    auto onWebView = callsOn(webView);
    ASSERT_FALSE(onWebView.empty());
    EXPECT_EQ(onWebView[0].first, 2);  // the old web view reference dropped first
    EXPECT_EQ(controller.references, 2);
    EXPECT_EQ(webView.references, 2);
}

TEST_F(WebView, ControllerFailure) {
    ScratchLog log;
    EXPECT_EQ(onControllerCreated(E_ACCESSDENIED, controller.as<ICoreWebView2Controller>()), S_OK);
    EXPECT_EQ(onControllerCreated(S_OK, nullptr), S_OK);
    EXPECT_TRUE(journal.empty());
    EXPECT_FALSE(host.webController);
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], "WebView2 controller failed: 0x80070005");
    EXPECT_EQ(messages[1], "WebView2 controller failed: 0x00000000");
}

TEST_F(WebView, EnvironmentFailure) {
    ScratchLog log;
    EXPECT_EQ(onEnvironmentCreated(static_cast<HRESULT>(0x80070002), nullptr), S_OK);
    EXPECT_EQ(onEnvironmentCreated(S_OK, nullptr), S_OK);
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0], "WebView2 environment failed: 0x80070002 (is the runtime installed?)");
    EXPECT_EQ(messages[1], "no WebView2 runtime was found - players need the WebView2 runtime installed");
    EXPECT_EQ(messages[2], "WebView2 environment failed: 0x00000000 (is the runtime installed?)");
}

TEST_F(WebView, OnlyFileNotFoundIsTakenForAMissingRuntime) {
    ScratchLog log;
    for (unsigned long code : {0x80004005ul, 0x80070003ul, 0x8007274dul, 0x00000002ul})
        EXPECT_EQ(onEnvironmentCreated(static_cast<HRESULT>(code), nullptr), S_OK);
    EXPECT_EQ(onControllerCreated(static_cast<HRESULT>(0x80070002), nullptr), S_OK);
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 5u);
    for (const std::string& line : messages) EXPECT_EQ(line.find("no WebView2 runtime"), std::string::npos) << line;
}

TEST_F(WebView, EnvironmentAsksForAControllerOnTheHostWindow) {
    ScratchLog log;
    Fake environment;
    environment.keeps[3] = 2;
    host.hostWindow = reinterpret_cast<HWND>(static_cast<uintptr_t>(0x1234));
    EXPECT_EQ(onEnvironmentCreated(S_OK, environment.as<ICoreWebView2Environment>()), S_OK);

    auto calls = callsOn(environment);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].first, 3);
    EXPECT_EQ(calls[0].second, 0x1234u);
    EXPECT_EQ(environment.references, 1);  // not kept
    ASSERT_EQ(environment.kept.size(), 1u);

    // The handler handed over is a controller completion handler whose only
    // reference is now the runtime's, and its Invoke reports success.
    auto* handler = static_cast<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler*>(environment.kept[0]);
    EXPECT_EQ(handler->AddRef(), 2u);
    EXPECT_EQ(handler->Release(), 1u);
    EXPECT_EQ(handler->Invoke(E_FAIL, nullptr), S_OK);
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "WebView2 controller failed: 0x80004005");
}

TEST_F(WebView, WebMessageIsCountedAndDispatched) {
    ScratchLog log;
    onControllerCreated(S_OK, controller.as<ICoreWebView2Controller>());
    ASSERT_EQ(webView.kept.size(), 1u);
    auto* handler = static_cast<ICoreWebView2WebMessageReceivedEventHandler*>(webView.kept[0]);

    Fake args;
    args.outs[4] = Out::text(L"{\"type\":\"log\",\"text\":\"hello from the page\"}");
    uint32_t before = total(pageToHost);
    EXPECT_EQ(handler->Invoke(webView.as<ICoreWebView2>(), args.as<ICoreWebView2WebMessageReceivedEventArgs>()),
              S_OK);
    EXPECT_EQ(total(pageToHost), before + 1);
    auto calls = callsOn(args);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].first, 4);  // the JSON text; neither the source nor the string form
    auto messages = log.messages();
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(messages.back(), "page: hello from the page");
}

TEST_F(WebView, WebMessageWithoutTextIsCountedOnly) {
    Fake args;
    args.results[4] = E_FAIL;
    uint32_t before = total(pageToHost);
    EXPECT_EQ(onWebMessageReceived(nullptr, args.as<ICoreWebView2WebMessageReceivedEventArgs>()), S_OK);
    Fake nullText;
    EXPECT_EQ(onWebMessageReceived(nullptr, nullText.as<ICoreWebView2WebMessageReceivedEventArgs>()), S_OK);
    EXPECT_EQ(total(pageToHost), before + 2);
}

TEST_F(WebView, TheMessageHandlerIsRegisteredOnceWithATokenOfItsOwn) {
    // A runtime that refuses a registration without token storage, with
    // another code than E_POINTER.
    webView.results[34] = E_INVALIDARG;
    onControllerCreated(S_OK, controller.as<ICoreWebView2Controller>());
    int registrations = 0;
    for (const Call& call : journal) {
        if (call.object != &webView || call.slot != 34) continue;
        ++registrations;
        EXPECT_NE(call.a, 0u);
        EXPECT_NE(call.b, 0u);
    }
    EXPECT_EQ(registrations, 1);
}

TEST_F(WebView, AMessageThatCannotBeHandledIsDroppedWithOneLineAndItsTextFreed) {
    ScratchLog log;
    test_support::TaskMemorySpy spy;
    ASSERT_TRUE(spy.registered);
    Fake args;
    args.outs[4] = Out::text(std::wstring(100000, L'x'));
    HRESULT result = E_FAIL;
    {
        // The copy of the text (200,000 bytes) cannot be made.
        test_support::FailLargeAllocations failing(150000);
        result = onWebMessageReceived(nullptr, args.as<ICoreWebView2WebMessageReceivedEventArgs>());
    }
    EXPECT_EQ(result, S_OK);
    EXPECT_EQ(spy.allocated, 1u);
    EXPECT_TRUE(spy.outstanding.empty());
    EXPECT_EQ(log.messages(), std::vector<std::string>{
                                  "page message of 100000 characters dropped - not enough memory to handle it"});
}

TEST_F(WebView, NoExceptionLeavesTheCreationCallbacks) {
    ScratchLog log;
    ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler = newControllerCreatedHandler();
    HRESULT result = E_FAIL;
    {
        // Nothing of the set-up can be allocated.
        test_support::FailLargeAllocations failing(1);
        result = handler->Invoke(S_OK, controller.as<ICoreWebView2Controller>());
    }
    handler->Release();
    EXPECT_EQ(result, S_OK);
    // The references taken on the way are given back.
    EXPECT_EQ(settings.references, 1);
    EXPECT_EQ(log.messages(),
              std::vector<std::string>{"WebView2 callback stopped - not enough memory to carry it out"});
}

TEST_F(WebView, PostBeforeTheWebViewExistsDoesNothing) {
    ScratchLog log;
    uint32_t before = total(hostToPage);
    postToPage(L"{\"type\":\"back\"}");
    EXPECT_EQ(total(hostToPage), before);
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(WebView, PostCountsAndSendsTheJsonText) {
    onControllerCreated(S_OK, controller.as<ICoreWebView2Controller>());
    journal.clear();
    ScratchLog log;
    uint32_t before = total(hostToPage);
    const std::wstring json = L"{\"type\":\"back\"}";  // alive while the journal is read
    postToPage(json);
    EXPECT_EQ(total(hostToPage), before + 1);
    auto calls = callsOn(webView);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].first, 32);
    EXPECT_EQ(wide(calls[0].second), L"{\"type\":\"back\"}");
    EXPECT_TRUE(log.messages().empty());
}

TEST(WebViewHandlers, AnswerForIUnknownAndTheirOwnInterfaceOnly) {
    struct Case {
        IUnknown* handler;
        const IID* own;
    };
    const Case cases[] = {
        {newEnvironmentCreatedHandler(), &IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler},
        {newControllerCreatedHandler(), &IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler},
        {newWebMessageReceivedHandler(), &IID_ICoreWebView2WebMessageReceivedEventHandler},
    };
    for (const Case& c : cases) {
        void* object = nullptr;
        EXPECT_EQ(c.handler->QueryInterface(IID_IUnknown, &object), S_OK);
        EXPECT_EQ(object, c.handler);
        EXPECT_EQ(c.handler->QueryInterface(*c.own, &object), S_OK);
        EXPECT_EQ(object, c.handler);
        EXPECT_EQ(c.handler->QueryInterface(IID_ICoreWebView2EnvironmentOptions, &object), E_NOINTERFACE);
        EXPECT_EQ(object, nullptr);
        // Created with one reference, plus the two answers above.
        EXPECT_EQ(c.handler->Release(), 2u);
        EXPECT_EQ(c.handler->Release(), 1u);
        EXPECT_EQ(c.handler->Release(), 0u);
    }
}

TEST(WebViewDataFolder, TheDataOptionWins) {
    fakes::HostStateGuard saved;
    host.dataFolder = L"D:\\browser data";
    EXPECT_EQ(browserDataFolder(), L"D:\\browser data");
}

TEST(WebViewDataFolder, LocalApplicationDataByDefault) {
    fakes::HostStateGuard saved;
    host.dataFolder.clear();
    PWSTR localAppData = nullptr;
    ASSERT_EQ(SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, &localAppData), S_OK);
    std::wstring expected = std::wstring(localAppData) + L"\\GRA\\overlay";
    CoTaskMemFree(localAppData);
    EXPECT_EQ(browserDataFolder(), expected);
}

TEST(WebViewStart, WithoutARuntimeTheImmediateFailureIsLogged) {
    ScratchLog log;
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    std::wstring empty = std::wstring(temp) + L"gra-web-view-test-no-runtime";
    CreateDirectoryW(empty.c_str(), nullptr);
    SetEnvironmentVariableW(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", empty.c_str());
    startWebView();
    SetEnvironmentVariableW(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", nullptr);
    RemoveDirectoryW(empty.c_str());
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], "CreateCoreWebView2EnvironmentWithOptions: 0x80070002");
    EXPECT_EQ(messages[1], "no WebView2 runtime was found - players need the WebView2 runtime installed");
    EXPECT_FALSE(host.webView);
}

TEST(WebViewAddress, ReservedHostName) {
    EXPECT_STREQ(pageHostName, L"gra-overlay.invalid");
    EXPECT_STREQ(pageAddress, L"https://gra-overlay.invalid/index.html");
}

}  // namespace
