// The show message and the pad text: the message's exact text, the show
// operation before and after the page is ready, and what the page's "ready"
// does with a kept pad.
#include "page/show.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/counters.h"
#include "app/host_state.h"
#include "fakes.h"
#include "page/page_messages.h"

namespace {

using Texts = std::vector<std::wstring>;

const std::wstring hostMessage = L"{\"type\":\"host\",\"through\":true,\"hit\":true}";

// --- showMessage ---

TEST(ShowMessage, WithoutPadThereIsNoPadField) {
    EXPECT_EQ(showMessage(L""), L"{\"type\":\"show\"}");
}

TEST(ShowMessage, WithAPad) {
    EXPECT_EQ(showMessage(L"hi"), L"{\"type\":\"show\",\"pad\":\"hi\"}");
}

TEST(ShowMessage, QuotationMarksBackslashesAndLineBreaksAreEscaped) {
    EXPECT_EQ(showMessage(L"say \"hi\"\\now\r\nnext\tcol"),
              L"{\"type\":\"show\",\"pad\":\"say \\\"hi\\\"\\\\now\\r\\nnext\\tcol\"}");
}

TEST(ShowMessage, OtherControlCharactersBecomeUnicodeEscapes) {
    EXPECT_EQ(showMessage(std::wstring(L"a\x01" L"b\x1f", 4)), L"{\"type\":\"show\",\"pad\":\"a\\u0001b\\u001f\"}");
}

TEST(ShowMessage, NonAsciiAndSlashPassUnchanged) {
    EXPECT_EQ(showMessage(L"\x00e9/\x2028"), L"{\"type\":\"show\",\"pad\":\"\x00e9/\x2028\"}");
}

TEST(ShowMessage, ADashIsAnOrdinaryPad) {
    EXPECT_EQ(showMessage(L"-"), L"{\"type\":\"show\",\"pad\":\"-\"}");
}

// --- showOverlay and the page's "ready" ---

class Show : public fakes::ChildModeHostTest {
protected:
    void SetUp() override {
        ChildModeHostTest::SetUp();
        host.webView.ptr = webView.get();
    }

    uint32_t posts() const { return activity.counter[hostToPage].total; }
    void ready() { dispatchPageMessage(L"{\"type\":\"ready\"}"); }
};

TEST_F(Show, WhileReadyThePadGoesOutAtOnce) {
    host.pageReady = true;
    uint32_t before = posts();
    showOverlay(L"hi");
    EXPECT_EQ(webView.posted, Texts({L"{\"type\":\"show\",\"pad\":\"hi\"}"}));
    EXPECT_EQ(posts() - before, 1u);
    EXPECT_EQ(host.mode, modeActive);
    EXPECT_TRUE(host.pendingPad.empty());
    EXPECT_EQ(game.receiveAll(), std::vector<std::string>({"GRAO state active"}));
    EXPECT_EQ(log.messages(), std::vector<std::string>({"mode active"}));
}

TEST_F(Show, WhileReadyAnEmptyPadGivesNoPadField) {
    host.pageReady = true;
    showOverlay(L"");
    EXPECT_EQ(webView.posted, Texts({L"{\"type\":\"show\"}"}));
}

TEST_F(Show, WhileReadyADashArrivesAsADash) {
    host.pageReady = true;
    showOverlay(L"-");
    EXPECT_EQ(webView.posted, Texts({L"{\"type\":\"show\",\"pad\":\"-\"}"}));
}

TEST_F(Show, WhileReadyEscapesReachThePage) {
    host.pageReady = true;
    showOverlay(L"a\"b\\c\nd");
    EXPECT_EQ(webView.posted, Texts({L"{\"type\":\"show\",\"pad\":\"a\\\"b\\\\c\\nd\"}"}));
}

TEST_F(Show, WhileReadyWithoutAWebViewNothingIsSentCountedOrKept) {
    host.pageReady = true;
    host.webView.ptr = nullptr;
    uint32_t before = posts();
    showOverlay(L"hi");
    EXPECT_EQ(posts(), before);
    EXPECT_TRUE(host.pendingPad.empty());
    EXPECT_EQ(host.mode, modeActive);
}

TEST_F(Show, BeforeReadyThePadIsKeptAndNothingPosted) {
    uint32_t before = posts();
    showOverlay(L"x");
    EXPECT_TRUE(webView.posted.empty());
    EXPECT_EQ(posts(), before);
    EXPECT_EQ(host.pendingPad, L"x");
    EXPECT_EQ(host.mode, modeActive);
}

TEST_F(Show, BeforeReadyAShowWithoutPadIsKeptAsADash) {
    showOverlay(L"");
    EXPECT_EQ(host.pendingPad, L"-");
}

TEST_F(Show, ALaterShowBeforeReadyReplacesThePad) {
    showOverlay(L"first");
    showOverlay(L"second");
    EXPECT_EQ(host.pendingPad, L"second");
    showOverlay(L"");
    EXPECT_EQ(host.pendingPad, L"-");
}

TEST_F(Show, ReadyDeliversTheKeptPadBeforeTheHostMessage) {
    showOverlay(L"x");
    ready();
    EXPECT_EQ(webView.posted, Texts({L"{\"type\":\"show\",\"pad\":\"x\"}", hostMessage}));
    EXPECT_TRUE(host.pendingPad.empty());
}

TEST_F(Show, ReadyAfterAShowWithoutPadSendsNoPad) {
    showOverlay(L"");
    ready();
    EXPECT_EQ(webView.posted, Texts({L"{\"type\":\"show\"}", hostMessage}));
}

TEST_F(Show, ADashAskedBeforeReadyArrivesAsNoPadAtAll) {
    showOverlay(L"-");
    EXPECT_EQ(host.pendingPad, L"-");
    ready();
    EXPECT_EQ(webView.posted, Texts({L"{\"type\":\"show\"}", hostMessage}));
}

TEST_F(Show, ShowThenHideBeforeReadyDropsTheShow) {
    showOverlay(L"x");
    dispatchPageMessage(L"{\"type\":\"hide\"}");
    ready();
    EXPECT_EQ(webView.posted, Texts({hostMessage}));
    EXPECT_TRUE(host.pendingPad.empty());
}

TEST_F(Show, EveryReadyWhileActiveShowsAgainWithoutThePad) {
    showOverlay(L"x");
    ready();
    ready();
    EXPECT_EQ(webView.posted, Texts({L"{\"type\":\"show\",\"pad\":\"x\"}", hostMessage, L"{\"type\":\"show\"}",
                                     hostMessage}));
}

TEST_F(Show, ReadyWhileActiveWithNoShowAskedStillShows) {
    dispatchPageMessage(L"{\"type\":\"mode\",\"mode\":\"active\"}");
    ready();
    EXPECT_EQ(webView.posted, Texts({L"{\"type\":\"show\"}", hostMessage}));
}

}  // namespace
