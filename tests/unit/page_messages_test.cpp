// The page message dispatcher driven directly: each row of its table, with a
// stand-in web view that records the replies, a UDP socket standing for the
// game, a scratch log and a scratch documents folder. Also the two pure
// helpers behind it, parseRects and gameCommandText.
#include "page/page_messages.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "app/host_state.h"
#include "fakes.h"
#include "host_windows_support.h"
#include "test_support.h"

using fakes::GameSocket;
using fakes::HostStateGuard;
using fakes::RecordingWebView;
using host_windows::PlainWindow;
using test_support::fileExists;
using test_support::readBytes;
using test_support::ScratchFolder;
using test_support::ScratchLog;
using test_support::writeBytes;

namespace {

using Strings = std::vector<std::string>;
using WideStrings = std::vector<std::wstring>;

const std::wstring hostMessage = LR"({"type":"host","through":true,"hit":true})";

bool sameRects(const std::vector<PageRect>& got, const std::vector<PageRect>& expected) {
    if (got.size() != expected.size()) return false;
    for (size_t i = 0; i < got.size(); ++i) {
        if (got[i].x != expected[i].x || got[i].y != expected[i].y || got[i].width != expected[i].width ||
            got[i].height != expected[i].height) {
            return false;
        }
    }
    return true;
}

std::string describe(const std::vector<PageRect>& rects) {
    std::string text;
    for (const PageRect& r : rects) {
        text += "(" + std::to_string(r.x) + "," + std::to_string(r.y) + "," + std::to_string(r.width) + "," +
                std::to_string(r.height) + ")";
    }
    return text.empty() ? "(none)" : text;
}

#define EXPECT_RECTS(got, ...)                                              \
    do {                                                                    \
        std::vector<PageRect> actual = (got);                               \
        std::vector<PageRect> wanted = __VA_ARGS__;                         \
        EXPECT_TRUE(sameRects(actual, wanted)) << describe(actual) << " vs " << describe(wanted); \
    } while (0)

// ---- parseRects ----

TEST(ParseRects, FourNumbersMakeOneRectangle) {
    EXPECT_RECTS(parseRects(L"[10,20,300,40]"), {{10, 20, 300, 40}});
}

TEST(ParseRects, AnyNestingCarriesTheSameRectangles) {
    EXPECT_RECTS(parseRects(L"[[10,20,300,40]]"), {{10, 20, 300, 40}});
    EXPECT_RECTS(parseRects(LR"([{"x":10,"y":20,"w":300,"h":40}])"), {{10, 20, 300, 40}});
    EXPECT_RECTS(parseRects(LR"({"a":[10,[20]],"b":{"c":300},"d":"40"})"), {{10, 20, 300, 40}});
}

TEST(ParseRects, SeveralRectanglesInOrder) {
    EXPECT_RECTS(parseRects(L"[[1,2,3,4],[5,6,7,8],[9,10,11,12]]"),
                 {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}});
}

TEST(ParseRects, NumbersLeftOverAfterTheLastGroupOfFourAreDropped) {
    EXPECT_RECTS(parseRects(L"[0,0,100,50,200,0,10]"), {{0, 0, 100, 50}});
    EXPECT_RECTS(parseRects(L"[1,2,3]"), {});
    EXPECT_RECTS(parseRects(L"[1,2,3,4,5]"), {{1, 2, 3, 4}});
}

TEST(ParseRects, FractionsAreTruncatedTowardZero) {
    EXPECT_RECTS(parseRects(L"[1.9,-1.9,3,4]"), {{1, -1, 3, 4}});
    EXPECT_RECTS(parseRects(L"[0.99,-0.99,2.5,-2.5]"), {{0, 0, 2, -2}});
}

TEST(ParseRects, NothingToReadGivesNoRectangles) {
    EXPECT_RECTS(parseRects(L""), {});
    EXPECT_RECTS(parseRects(L"[]"), {});
    EXPECT_RECTS(parseRects(L"[[],{}]"), {});
    EXPECT_RECTS(parseRects(LR"("none")"), {});
}

TEST(ParseRects, ANumberAtTheVeryEndIsClosed) {
    EXPECT_RECTS(parseRects(L"1 2 3 4"), {{1, 2, 3, 4}});
    EXPECT_RECTS(parseRects(L"7,8,9,10"), {{7, 8, 9, 10}});
}

TEST(ParseRects, TokensAreReadForTheirLongestValidPrefix) {
    // "1-2" reads as 1; a lone "-" or "." reads as 0; "1.2.3" as 1.2.
    EXPECT_RECTS(parseRects(L"[1-2,-,.,1.2.3]"), {{1, 0, 0, 1}});
    EXPECT_RECTS(parseRects(L"[--5,-.9,5-,.5]"), {{0, 0, 5, 0}});
}

TEST(ParseRects, ExponentsAreTwoNumbers) {
    EXPECT_RECTS(parseRects(L"[1e3,5,6]"), {{1, 3, 5, 6}});
    EXPECT_RECTS(parseRects(L"[2E-1,7,8]"), {{2, -1, 7, 8}});
}

TEST(ParseRects, LettersQuotesAndSpacesAllEndANumber) {
    EXPECT_RECTS(parseRects(LR"("12"x34 56	78)"), {{12, 34, 56, 78}});
    EXPECT_RECTS(parseRects(L"a1b2c3d4e"), {{1, 2, 3, 4}});
}

TEST(ParseRects, OnlyAsciiDigitsCount) {
    // Fullwidth and Arabic-Indic digits are not digits here.
    EXPECT_RECTS(parseRects(L"[\uFF11,\u0661,1,2,3,4]"), {{1, 2, 3, 4}});
}

TEST(ParseRects, ValuesAreNotLimited) {
    EXPECT_RECTS(parseRects(L"[2147483647,-2147483648,-5,-7]"), {{INT32_MAX, INT32_MIN, -5, -7}});
    EXPECT_RECTS(parseRects(L"[2147483647.9,-2147483648.9,0,0]"), {{INT32_MAX, INT32_MIN, 0, 0}});
}

TEST(ParseRects, ManyRectangles) {
    std::wstring text = L"[";
    for (int i = 0; i < 500; ++i) text += (i ? L"," : L"") + std::to_wstring(i) + L",1,2,3";
    text += L"]";
    std::vector<PageRect> rects = parseRects(text);
    ASSERT_EQ(rects.size(), 500u);
    EXPECT_EQ(rects[499].x, 499);
    EXPECT_EQ(rects[499].height, 3);
}

// ---- gameCommandText ----

TEST(GameCommandText, CommandAndArgument) {
    EXPECT_EQ(gameCommandText("jump", "3"), "game jump 3");
    EXPECT_EQ(gameCommandText("open_map", "north east"), "game open_map north east");
}

TEST(GameCommandText, AnEmptyArgumentLeavesNoTrailingSpace) {
    EXPECT_EQ(gameCommandText("jump", ""), "game jump");
}

TEST(GameCommandText, ArgumentIsPassedAsItIs) {
    EXPECT_EQ(gameCommandText("say", " "), "game say  ");
    EXPECT_EQ(gameCommandText("say", " x\ty "), "game say  x\ty ");
    EXPECT_EQ(gameCommandText("say", "gr\xC3\xBC\xC3\x9F"), "game say gr\xC3\xBC\xC3\x9F");
}

TEST(GameCommandText, CommandLength) {
    EXPECT_EQ(gameCommandText("", "x"), "");
    EXPECT_EQ(gameCommandText("a", ""), "game a");
    EXPECT_EQ(gameCommandText(std::string(39, 'a'), "x"), "game " + std::string(39, 'a') + " x");
    EXPECT_EQ(gameCommandText(std::string(40, 'a'), "x"), "");
    EXPECT_EQ(gameCommandText(std::string(41, 'a'), ""), "");
}

TEST(GameCommandText, OnlyLowerCaseLettersAndTheUnderscore) {
    EXPECT_EQ(gameCommandText("_", ""), "game _");
    EXPECT_EQ(gameCommandText("abcdefghijklmnopqrstuvwxyz_", ""), "game abcdefghijklmnopqrstuvwxyz_");
    for (const char* refused : {"Jump", "JUMP", "jump2", "2", "jump-it", "jump it", "jump.", "j\xC3\xBCmp", "jump\t",
                                "@", "`", "{", "[", "\x7f"}) {
        EXPECT_EQ(gameCommandText(refused, ""), "") << refused;
    }
}

TEST(GameCommandText, ArgumentShorterThan200Bytes) {
    EXPECT_EQ(gameCommandText("jump", std::string(199, 'b')), "game jump " + std::string(199, 'b'));
    EXPECT_EQ(gameCommandText("jump", std::string(200, 'b')), "");
    EXPECT_EQ(gameCommandText("jump", std::string(1000, 'b')), "");
}

TEST(GameCommandText, TheLimitCountsBytesNotCharacters) {
    std::string twoByteCharacter = "\xC3\xA9";
    std::string hundred;
    for (int i = 0; i < 100; ++i) hundred += twoByteCharacter;
    EXPECT_EQ(gameCommandText("say", hundred), "");  // 100 characters, 200 bytes
    std::string almost = hundred.substr(2) + "a";     // 199 bytes
    EXPECT_EQ(gameCommandText("say", almost), "game say " + almost);
}

TEST(GameCommandText, NoLineBreaksInTheArgument) {
    EXPECT_EQ(gameCommandText("jump", "a\nb"), "");
    EXPECT_EQ(gameCommandText("jump", "a\rb"), "");
    EXPECT_EQ(gameCommandText("jump", "\n"), "");
    EXPECT_EQ(gameCommandText("jump", "ab\r\n"), "");
}

// ---- dispatchPageMessage ----

// Sets the host state that the dispatcher reads and writes to a known start,
// with the stand-in web view, the game's socket and the scratch folder, and
// puts everything back afterwards.
class PageMessages : public ::testing::Test {
protected:
    void SetUp() override {
        fakes::resetModeFields();
        host.hostWindow = nullptr;
        host.gameWindow = nullptr;
        game.install();
        host.docFolder = folder.path;
        host.webView.ptr = page.get();
    }

    void TearDown() override {
        EXPECT_TRUE(page.unexpectedSlots.empty()) << "the web view was used for more than posting";
    }

    void post(const std::wstring& text) { dispatchPageMessage(text); }
    const WideStrings& posted() const { return page.posted; }
    Strings logged() const { return log.messages(); }
    std::string file(const std::wstring& name) const { return readBytes(folder.file(name)); }

    // The host window stands for real, so that mode changes happen.
    void useWindow() {
        ASSERT_NE(window.handle, nullptr);
        host.hostWindow = window.handle;
    }

    HostStateGuard saved;  // first in, last out
    ScratchLog log;
    RecordingWebView page;
    GameSocket game;
    ScratchFolder folder;
    PlainWindow window;
};

// -- ready

TEST_F(PageMessages, ReadyLogsAndAnswersWithTheHostMessage) {
    post(LR"({"type":"ready"})");
    EXPECT_TRUE(host.pageReady);
    EXPECT_EQ(logged(), Strings{"page ready"});
    EXPECT_EQ(posted(), WideStrings{hostMessage});
    EXPECT_EQ(game.receive(300), "(none)");
}

TEST_F(PageMessages, ReadyWhileActiveSendsTheShowMessageWithTheKeptPadFirst) {
    host.mode = modeActive;
    host.pendingPad = L"x";
    post(LR"({"type":"ready"})");
    EXPECT_EQ(posted(), (WideStrings{LR"({"type":"show","pad":"x"})", hostMessage}));
    EXPECT_TRUE(host.pendingPad.empty());
}

TEST_F(PageMessages, AKeptDashStandsForNoPad) {
    host.mode = modeActive;
    host.pendingPad = L"-";
    post(LR"({"type":"ready"})");
    EXPECT_EQ(posted(), (WideStrings{LR"({"type":"show"})", hostMessage}));
    EXPECT_TRUE(host.pendingPad.empty());
}

TEST_F(PageMessages, ReadyWhileActiveShowsAlsoWithNothingKept) {
    host.mode = modeActive;
    post(LR"({"type":"ready"})");
    EXPECT_EQ(posted(), (WideStrings{LR"({"type":"show"})", hostMessage}));
}

TEST_F(PageMessages, TheKeptPadIsEscaped) {
    host.mode = modeActive;
    host.pendingPad = L"a\"b\\c\nd\u00e9";
    post(LR"({"type":"ready"})");
    EXPECT_EQ(posted(), (WideStrings{L"{\"type\":\"show\",\"pad\":\"a\\\"b\\\\c\\nd\u00e9\"}", hostMessage}));
}

TEST_F(PageMessages, ReadyWhileNotActiveDropsTheKeptPad) {
    for (int32_t mode : {modeHidden, modePassive}) {
        host.mode = mode;
        host.pendingPad = L"x";
        page.posted.clear();
        post(LR"({"type":"ready"})");
        EXPECT_EQ(posted(), WideStrings{hostMessage}) << mode;
        EXPECT_TRUE(host.pendingPad.empty());
    }
}

TEST_F(PageMessages, HeldBackMessagesGoInOrderBetweenTheShowAndTheHostMessage) {
    host.mode = modeActive;
    host.pendingPad = L"p";
    host.pendingPageMessages = {LR"({"type":"note","note":1})", LR"({"type":"note","note":"two"})"};
    post(LR"({"type":"ready"})");
    EXPECT_EQ(posted(), (WideStrings{LR"({"type":"show","pad":"p"})", LR"({"type":"note","note":1})",
                                     LR"({"type":"note","note":"two"})", hostMessage}));
    EXPECT_TRUE(host.pendingPageMessages.empty());
}

TEST_F(PageMessages, EveryReadyRunsTheSequenceAgain) {
    host.pendingPageMessages = {LR"({"type":"note","note":1})"};
    post(LR"({"type":"ready"})");
    host.mode = modeActive;
    post(LR"({"type":"ready"})");
    EXPECT_EQ(posted(), (WideStrings{LR"({"type":"note","note":1})", hostMessage, LR"({"type":"show"})",
                                     hostMessage}));
    EXPECT_EQ(logged(), (Strings{"page ready", "page ready"}));
    EXPECT_TRUE(host.pageReady);
}

TEST_F(PageMessages, WithoutAWebViewReadyStillEmptiesWhatWasKept) {
    host.webView.ptr = nullptr;
    host.mode = modeActive;
    host.pendingPad = L"x";
    host.pendingPageMessages = {LR"({"type":"note","note":1})"};
    post(LR"({"type":"ready"})");
    EXPECT_TRUE(host.pageReady);
    EXPECT_TRUE(host.pendingPad.empty());
    EXPECT_TRUE(host.pendingPageMessages.empty());
    EXPECT_TRUE(posted().empty());
    EXPECT_EQ(logged(), Strings{"page ready"});
}

TEST_F(PageMessages, TypesAreComparedExactly) {
    for (const wchar_t* text : {LR"({"type":"Ready"})", LR"({"type":"READY"})", LR"({"type":"ready "})",
                                LR"({"type":" ready"})", LR"({"type":"readyx"})", LR"({"Type":"ready"})"}) {
        post(text);
    }
    EXPECT_FALSE(host.pageReady);
    EXPECT_TRUE(posted().empty());
    EXPECT_TRUE(logged().empty());
}

TEST_F(PageMessages, AnEscapedTypeReadsAsItsText) {
    post(LR"({"type":"re\u0061dy"})");
    EXPECT_TRUE(host.pageReady);
}

// -- cover

TEST_F(PageMessages, CoverOnTrueDoesNothing) {
    post(LR"({"type":"cover","on":true})");
    post(LR"({"type":"cover","on":"true"})");
    EXPECT_TRUE(host.coverUp);
    EXPECT_TRUE(logged().empty());
}

TEST_F(PageMessages, CoverOnFalseTakesTheCoverDownOnce) {
    post(LR"({"type":"cover","on":false})");
    post(LR"({"type":"cover","on":false})");
    EXPECT_FALSE(host.coverUp);
    EXPECT_EQ(logged(), Strings{"cover off (the page has drawn)"});
    EXPECT_TRUE(posted().empty());
}

TEST_F(PageMessages, CoverWithAnythingButTrueTakesTheCoverDown) {
    for (const wchar_t* text : {LR"({"type":"cover"})", LR"({"type":"cover","on":"TRUE"})",
                                LR"({"type":"cover","on":1})", LR"({"type":"cover","on":"yes"})",
                                LR"({"type":"cover","on":true })"}) {
        host.coverUp = true;
        post(text);
        EXPECT_FALSE(host.coverUp) << std::string(text, text + wcslen(text));
    }
    EXPECT_EQ(logged().size(), 5u);
}

// -- through

TEST_F(PageMessages, ThroughIsLoggedOnlyWhenItChanges) {
    post(LR"({"type":"through","on":true})");
    post(LR"({"type":"through","on":true})");
    EXPECT_TRUE(host.throughWanted);
    post(LR"({"type":"through","on":false})");
    post(LR"({"type":"through","on":false})");
    EXPECT_FALSE(host.throughWanted);
    EXPECT_EQ(logged(), (Strings{"through on", "through off"}));
}

TEST_F(PageMessages, ThroughWithoutOnMeansOff) {
    host.throughWanted = true;
    post(LR"({"type":"through"})");
    EXPECT_FALSE(host.throughWanted);
    EXPECT_EQ(logged(), Strings{"through off"});
}

TEST_F(PageMessages, ThroughInPassiveModeGivesTheMouseToTheGame) {
    useWindow();
    host.mode = modePassive;
    host.coverUp = false;
    post(LR"({"type":"through","on":true})");
    EXPECT_TRUE(host.mouseToGame);
    EXPECT_EQ(logged(), (Strings{"through on", "mouse: the game's (the window out of the hit test)"}));
    LONG_PTR exStyle = GetWindowLongPtrW(window.handle, GWL_EXSTYLE);
    EXPECT_EQ(exStyle & (WS_EX_LAYERED | WS_EX_TRANSPARENT), WS_EX_LAYERED | WS_EX_TRANSPARENT);
    post(LR"({"type":"through","on":false})");
    EXPECT_FALSE(host.mouseToGame);
    EXPECT_EQ(logged().back(), "mouse: ours");
}

// -- hide and mode

TEST_F(PageMessages, ModeFindsItsValueBehindTheTypesOwnWord) {
    useWindow();
    post(LR"({"type":"mode","mode":"passive"})");
    EXPECT_EQ(host.mode, modePassive);
    EXPECT_EQ(logged(), Strings{"mode passive"});
    EXPECT_EQ(game.receive(), "GRAO state passive");
}

TEST_F(PageMessages, ModeActive) {
    useWindow();
    post(LR"({"type":"mode","mode":"active"})");
    EXPECT_EQ(host.mode, modeActive);
    EXPECT_TRUE(host.activeMode);
    EXPECT_EQ(logged(), Strings{"mode active"});
    EXPECT_EQ(game.receive(), "GRAO state active");
}

TEST_F(PageMessages, AnyOtherModeHides) {
    useWindow();
    for (const wchar_t* text : {LR"({"type":"mode","mode":"Active"})", LR"({"type":"mode"})",
                                LR"({"type":"mode","mode":"hidden"})", LR"({"type":"mode","mode":"passive "})",
                                LR"({"type":"mode","mode":2})", LR"({"type":"mode","mode":""})"}) {
        host.mode = modeActive;
        post(text);
        EXPECT_EQ(host.mode, modeHidden) << std::string(text, text + wcslen(text));
        EXPECT_EQ(game.receive(), "GRAO state hidden");
    }
    EXPECT_EQ(logged(), Strings(6, "mode hidden"));
}

TEST_F(PageMessages, HideHides) {
    useWindow();
    host.mode = modePassive;
    post(LR"({"type":"hide"})");
    EXPECT_EQ(host.mode, modeHidden);
    EXPECT_EQ(logged(), Strings{"mode hidden"});
    EXPECT_EQ(game.receive(), "GRAO state hidden");
    post(LR"({"type":"hide","mode":"active"})");
    EXPECT_EQ(host.mode, modeHidden);
    EXPECT_EQ(logged(), Strings{"mode hidden"});  // no change, no second line
    EXPECT_EQ(game.receive(), "GRAO state hidden");
}

// -- modal

TEST_F(PageMessages, ModalOnAndOff) {
    post(LR"({"type":"modal","on":true})");
    EXPECT_EQ(game.receive(), "GRAO modal on");
    post(LR"({"type":"modal","on":"true"})");
    EXPECT_EQ(game.receive(), "GRAO modal on");
    post(LR"({"type":"modal","on":false})");
    EXPECT_EQ(game.receive(), "GRAO modal off");
    post(LR"({"type":"modal"})");
    EXPECT_EQ(game.receive(), "GRAO modal off");
    post(LR"({"type":"modal","on":"True"})");
    EXPECT_EQ(game.receive(), "GRAO modal off");
    EXPECT_TRUE(logged().empty());
    EXPECT_TRUE(posted().empty());
}

TEST_F(PageMessages, ModalBeforeAnyDatagramSendsNothing) {
    host.replyAddressKnown = false;
    post(LR"({"type":"modal","on":true})");
    EXPECT_EQ(game.receive(300), "(none)");
}

// -- region

TEST_F(PageMessages, RegionReplacesTheRectanglesWhole) {
    host.regionRects = {{9, 9, 9, 9}, {8, 8, 8, 8}};
    post(LR"({"type":"region","rects":[0,0,100,50,200,0,10]})");
    EXPECT_RECTS(host.regionRects, {{0, 0, 100, 50}});
    post(LR"({"type":"region","rects":[[1.9,-1.9,3,4],[5,6,7,8]]})");
    EXPECT_RECTS(host.regionRects, {{1, -1, 3, 4}, {5, 6, 7, 8}});
    EXPECT_TRUE(logged().empty());
    EXPECT_TRUE(posted().empty());
}

TEST_F(PageMessages, RegionWithoutRectsEmptiesIt) {
    host.regionRects = {{9, 9, 9, 9}};
    post(LR"({"type":"region"})");
    EXPECT_TRUE(host.regionRects.empty());
}

TEST_F(PageMessages, RegionSetsTheHostWindowsRegion) {
    useWindow();
    host.coverUp = false;
    post(LR"({"type":"region","rects":[{"x":10,"y":20,"w":30,"h":40}]})");
    HRGN region = CreateRectRgn(0, 0, 0, 0);
    ASSERT_NE(GetWindowRgn(window.handle, region), ERROR);
    RECT box{};
    EXPECT_EQ(GetRgnBox(region, &box), SIMPLEREGION);
    EXPECT_EQ(box.left, 10);
    EXPECT_EQ(box.top, 20);
    EXPECT_EQ(box.right, 40);
    EXPECT_EQ(box.bottom, 60);
    post(LR"({"type":"region","rects":[]})");
    ASSERT_NE(GetWindowRgn(window.handle, region), ERROR);
    EXPECT_EQ(GetRgnBox(region, &box), NULLREGION);
    DeleteObject(region);
}

// -- load

TEST_F(PageMessages, LoadOfAMissingFile) {
    post(LR"({"type":"load","file":"gra_pad.json"})");
    EXPECT_EQ(posted(), WideStrings{LR"({"type":"file","name":"gra_pad.json","ok":false,"text":""})"});
    EXPECT_TRUE(logged().empty());
}

TEST_F(PageMessages, LoadOfAnEmptyFile) {
    writeBytes(folder.file(L"gra_overlay.json"), "");
    post(LR"({"type":"load","file":"gra_overlay.json"})");
    EXPECT_EQ(posted(), WideStrings{LR"({"type":"file","name":"gra_overlay.json","ok":true,"text":""})"});
}

TEST_F(PageMessages, LoadedTextIsEscaped) {
    writeBytes(folder.file(L"gra_pad.json"), "{\"n\":\"a\\b\"}\n\t\x01 \xC3\xA9\r/");
    post(LR"({"type":"load","file":"gra_pad.json"})");
    EXPECT_EQ(posted(), WideStrings{L"{\"type\":\"file\",\"name\":\"gra_pad.json\",\"ok\":true,\"text\":\""
                                    L"{\\\"n\\\":\\\"a\\\\b\\\"}\\n\\t\\u0001 \u00e9\\r/\"}"});
}

TEST_F(PageMessages, LoadIgnoresTheNamesCaseAndEchoesItAsWritten) {
    writeBytes(folder.file(L"gra_pad.json"), "pad");
    post(LR"({"type":"load","file":"GRA_PAD.JSON"})");
    EXPECT_EQ(posted(), WideStrings{LR"({"type":"file","name":"GRA_PAD.JSON","ok":true,"text":"pad"})"});
}

TEST_F(PageMessages, LoadKeepsAByteOrderMarkAsItsCharacter) {
    writeBytes(folder.file(L"gra_pad.json"), "\xEF\xBB\xBFhi");
    post(LR"({"type":"load","file":"gra_pad.json"})");
    EXPECT_EQ(posted(), WideStrings{L"{\"type\":\"file\",\"name\":\"gra_pad.json\",\"ok\":true,\"text\":\"\uFEFFhi\"}"});
}

TEST_F(PageMessages, LoadTurnsBrokenUtf8IntoReplacementCharacters) {
    writeBytes(folder.file(L"gra_pad.json"), "a\xFF" "b");
    post(LR"({"type":"load","file":"gra_pad.json"})");
    EXPECT_EQ(posted(), WideStrings{L"{\"type\":\"file\",\"name\":\"gra_pad.json\",\"ok\":true,\"text\":\"a\uFFFDb\"}"});
}

TEST_F(PageMessages, LoadRefusesEveryOtherNameEvenWhenTheFileExists) {
    writeBytes(folder.file(L"other.json"), "secret");
    writeBytes(folder.file(L"gra_pad.json.tmp"), "secret");
    post(LR"({"type":"load","file":"other.json"})");
    post(LR"({"type":"load","file":"gra_pad.json.tmp"})");
    post(LR"({"type":"load","file":""})");
    post(LR"({"type":"load"})");
    EXPECT_EQ(posted(), (WideStrings{LR"({"type":"file","name":"other.json","ok":false,"text":""})",
                                     LR"({"type":"file","name":"gra_pad.json.tmp","ok":false,"text":""})",
                                     LR"({"type":"file","name":"","ok":false,"text":""})",
                                     LR"({"type":"file","name":"","ok":false,"text":""})"}));
    EXPECT_TRUE(logged().empty());
}

TEST_F(PageMessages, LoadRefusesAFolderPart) {
    // The documents folder is a sub-folder; the parent holds a gra_pad.json.
    writeBytes(folder.file(L"gra_pad.json"), "outside");
    CreateDirectoryW(folder.file(L"docs").c_str(), nullptr);
    host.docFolder = folder.file(L"docs");
    post(LR"({"type":"load","file":"..\\gra_pad.json"})");
    EXPECT_EQ(posted(), WideStrings{LR"({"type":"file","name":"..\\gra_pad.json","ok":false,"text":""})"});
}

TEST_F(PageMessages, LoadEchoesARefusedNameEscaped) {
    post(L"{\"type\":\"load\",\"file\":\"a\\\"b\\u0001\"}");
    EXPECT_EQ(posted(), WideStrings{L"{\"type\":\"file\",\"name\":\"a\\\"b\\u0001\",\"ok\":false,\"text\":\"\"}"});
}

TEST_F(PageMessages, LoadRefusesANameWithAZeroCharacter) {
    writeBytes(folder.file(L"gra_pad.json"), "secret");
    post(LR"({"type":"load","file":"gra_pad.json\u0000x"})");
    EXPECT_EQ(posted(), WideStrings{LR"({"type":"file","name":"gra_pad.json\u0000x","ok":false,"text":""})"});
}

TEST_F(PageMessages, LoadOfAFolderIsNotOk) {
    CreateDirectoryW(folder.file(L"gra_pad.json").c_str(), nullptr);
    post(LR"({"type":"load","file":"gra_pad.json"})");
    EXPECT_EQ(posted(), WideStrings{LR"({"type":"file","name":"gra_pad.json","ok":false,"text":""})"});
}

// -- save

TEST_F(PageMessages, SaveWritesUtf8WithoutAByteOrderMark) {
    post(LR"({"type":"save","file":"gra_pad.json","text":"a\"b\\c\nd\u00e9\ud83c\udfae"})");
    EXPECT_EQ(file(L"gra_pad.json"), "a\"b\\c\nd\xC3\xA9\xF0\x9F\x8E\xAE");
    EXPECT_FALSE(fileExists(folder.file(L"gra_pad.json.tmp")));
    EXPECT_EQ(logged(), Strings{"save gra_pad.json: ok"});
    EXPECT_EQ(posted(), WideStrings{LR"({"type":"saved","name":"gra_pad.json","ok":true})"});
}

TEST_F(PageMessages, SaveThenLoadGivesTheSameText) {
    post(LR"({"type":"save","file":"gra_overlay.json","text":"{\"k\":\"gr\u00fc\u00df\\u00e9 \u20ac\"}\r\n"})");
    post(LR"({"type":"load","file":"gra_overlay.json"})");
    ASSERT_EQ(posted().size(), 2u);
    EXPECT_EQ(posted()[1], L"{\"type\":\"file\",\"name\":\"gra_overlay.json\",\"ok\":true,\"text\":\""
                           L"{\\\"k\\\":\\\"gr\u00fc\u00df\\\\u00e9 \u20ac\\\"}\\r\\n\"}");
}

TEST_F(PageMessages, SaveReplacesAnExistingFileWhole) {
    writeBytes(folder.file(L"gra_pad.json"), std::string(3000, 'o'));
    post(LR"({"type":"save","file":"gra_pad.json","text":"new"})");
    EXPECT_EQ(file(L"gra_pad.json"), "new");
}

TEST_F(PageMessages, SaveKeepsTheNamesCase) {
    post(LR"({"type":"save","file":"GRA_Overlay.JSON","text":"x"})");
    EXPECT_EQ(logged(), Strings{"save GRA_Overlay.JSON: ok"});
    EXPECT_EQ(posted(), WideStrings{LR"({"type":"saved","name":"GRA_Overlay.JSON","ok":true})"});
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW(folder.file(L"*.json").c_str(), &found);
    ASSERT_NE(search, INVALID_HANDLE_VALUE);
    EXPECT_EQ(std::wstring(found.cFileName), L"GRA_Overlay.JSON");
    FindClose(search);
}

TEST_F(PageMessages, SaveWithoutTextWritesAnEmptyFile) {
    writeBytes(folder.file(L"gra_pad.json"), "old");
    post(LR"({"type":"save","file":"gra_pad.json"})");
    EXPECT_TRUE(fileExists(folder.file(L"gra_pad.json")));
    EXPECT_EQ(file(L"gra_pad.json"), "");
    EXPECT_EQ(posted(), WideStrings{LR"({"type":"saved","name":"gra_pad.json","ok":true})"});
}

TEST_F(PageMessages, SaveOfARefusedNameWritesNothing) {
    post(LR"({"type":"save","file":"x.json","text":"whatever"})");
    post(LR"({"type":"save","file":"other.json","text":""})");
    EXPECT_EQ(logged(), (Strings{"save x.json: FAILED", "save other.json: FAILED"}));
    EXPECT_EQ(posted(), (WideStrings{LR"({"type":"saved","name":"x.json","ok":false})",
                                     LR"({"type":"saved","name":"other.json","ok":false})"}));
    EXPECT_FALSE(fileExists(folder.file(L"x.json")));
    EXPECT_FALSE(fileExists(folder.file(L"x.json.tmp")));
    EXPECT_FALSE(fileExists(folder.file(L"other.json")));
}

TEST_F(PageMessages, SaveRefusesANameWithAZeroCharacterAndOpensNothing) {
    writeBytes(folder.file(L"gra_pad.json"), "the good version");
    post(LR"({"type":"save","file":"gra_pad.json\u0000x","text":"short"})");
    EXPECT_EQ(file(L"gra_pad.json"), "the good version");
    EXPECT_FALSE(fileExists(folder.file(L"gra_pad.json.tmp")));
    // The log line's text ends at the zero character.
    EXPECT_EQ(logged(), Strings{"save gra_pad.json: FAILED"});
    EXPECT_EQ(posted(), WideStrings{LR"({"type":"saved","name":"gra_pad.json\u0000x","ok":false})"});
}

TEST_F(PageMessages, SaveWithoutFile) {
    post(LR"({"type":"save","text":"t"})");
    EXPECT_EQ(logged(), Strings{"save : FAILED"});
    EXPECT_EQ(posted(), WideStrings{LR"({"type":"saved","name":"","ok":false})"});
}

TEST_F(PageMessages, SaveLogsARefusedNameInUtf8) {
    post(LR"({"type":"save","file":"\u00e9.json","text":"t"})");
    EXPECT_EQ(logged(), Strings{"save \xC3\xA9.json: FAILED"});
    EXPECT_EQ(posted(), WideStrings{L"{\"type\":\"saved\",\"name\":\"\u00e9.json\",\"ok\":false}"});
}

TEST_F(PageMessages, AFailedMoveLeavesTheTmpFile) {
    CreateDirectoryW(folder.file(L"gra_pad.json").c_str(), nullptr);
    post(LR"({"type":"save","file":"gra_pad.json","text":"kept aside"})");
    EXPECT_EQ(logged(), Strings{"save gra_pad.json: FAILED"});
    EXPECT_EQ(posted(), WideStrings{LR"({"type":"saved","name":"gra_pad.json","ok":false})"});
    EXPECT_EQ(file(L"gra_pad.json.tmp"), "kept aside");
}

TEST_F(PageMessages, SaveIntoAMissingDocumentsFolderFails) {
    host.docFolder = folder.file(L"missing");
    post(LR"({"type":"save","file":"gra_pad.json","text":"t"})");
    EXPECT_EQ(logged(), Strings{"save gra_pad.json: FAILED"});
    EXPECT_FALSE(fileExists(folder.file(L"missing")));
}

// -- game

TEST_F(PageMessages, GameSendsTheCommandAndLogsIt) {
    post(LR"({"type":"game","cmd":"jump","arg":"3"})");
    EXPECT_EQ(game.receive(), "GRAO game jump 3");
    EXPECT_EQ(logged(), Strings{"game: jump 3"});
    EXPECT_TRUE(posted().empty());
}

TEST_F(PageMessages, GameWithAnEmptyArgument) {
    post(LR"({"type":"game","cmd":"jump","arg":""})");
    post(LR"({"type":"game","cmd":"jump"})");
    EXPECT_EQ(game.receiveAll(), (Strings{"GRAO game jump", "GRAO game jump"}));
    EXPECT_EQ(logged(), (Strings{"game: jump ", "game: jump "}));
}

TEST_F(PageMessages, GameArgumentInUtf8) {
    post(LR"({"type":"game","cmd":"say","arg":"gr\u00fc\u00df \"x\""})");
    EXPECT_EQ(game.receive(), "GRAO game say gr\xC3\xBC\xC3\x9F \"x\"");
    EXPECT_EQ(logged(), Strings{"game: say gr\xC3\xBC\xC3\x9F \"x\""});
}

TEST_F(PageMessages, GameFieldsMayBeBareValues) {
    post(LR"({"type":"game","cmd":"jump","arg":3})");
    EXPECT_EQ(game.receive(), "GRAO game jump 3");
}

TEST_F(PageMessages, RefusedGameMessagesAreDroppedSilently) {
    std::wstring fortyLetters(40, L'a');
    std::wstring twoHundred(200, L'b');
    for (const std::wstring& text :
         {std::wstring(LR"({"type":"game","cmd":"Jump","arg":""})"), std::wstring(LR"({"type":"game","cmd":"jump2"})"),
          std::wstring(LR"({"type":"game","arg":"x"})"), std::wstring(LR"({"type":"game","cmd":""})"),
          LR"({"type":"game","cmd":")" + fortyLetters + LR"("})",
          LR"({"type":"game","cmd":"jump","arg":")" + twoHundred + LR"("})",
          std::wstring(LR"({"type":"game","cmd":"jump","arg":"a\nb"})"),
          std::wstring(LR"({"type":"game","cmd":"jump","arg":"a\rb"})"),
          std::wstring(LR"({"type":"game","cmd":"jump","arg":"a\u000ab"})"),
          std::wstring(LR"({"type":"game","cmd":"j\u00fcmp"})")}) {
        post(text);
    }
    EXPECT_EQ(game.receive(300), "(none)");
    EXPECT_TRUE(logged().empty());
}

TEST_F(PageMessages, GameLimitsPass) {
    std::wstring thirtyNine(39, L'z');
    std::wstring hundredNinetyNine(199, L'b');
    post(LR"({"type":"game","cmd":")" + thirtyNine + LR"(","arg":")" + hundredNinetyNine + LR"("})");
    EXPECT_EQ(game.receive(), "GRAO game " + std::string(39, 'z') + " " + std::string(199, 'b'));
}

TEST_F(PageMessages, AZeroInTheArgumentEndsTheTextSent) {
    post(LR"({"type":"game","cmd":"say","arg":"a\u0000b"})");
    EXPECT_EQ(game.receive(), "GRAO game say a");
    EXPECT_EQ(logged(), Strings{"game: say a"});
}

TEST_F(PageMessages, GameIsLoggedAlsoWhenNoDatagramCanBeSent) {
    host.replyAddressKnown = false;
    post(LR"({"type":"game","cmd":"jump","arg":"3"})");
    EXPECT_EQ(game.receive(300), "(none)");
    EXPECT_EQ(logged(), Strings{"game: jump 3"});
}

// -- log

TEST_F(PageMessages, LogCopiesThePagesTextInUtf8) {
    post(LR"({"type":"log","text":"h\u00e9llo \u20ac"})");
    post(LR"({"type":"log","text":""})");
    post(LR"({"type":"log"})");
    EXPECT_EQ(logged(), (Strings{"page: h\xC3\xA9llo \xE2\x82\xAC", "page: ", "page: "}));
    EXPECT_TRUE(posted().empty());
}

// -- everything else

TEST_F(PageMessages, UnknownTypesNoTypeAndNonObjectsAreIgnored) {
    useWindow();
    for (const wchar_t* text : {LR"({"type":"jump"})", LR"({"type":""})", LR"({"kind":"ready"})", LR"("hello")",
                                L"", L"[1,2]", L"null", L"42", LR"({"type":"ready")", L"{", LR"({"type":null})"}) {
        post(text);
    }
    // The unterminated {"type":"ready" is still read as ready: the scanner
    // returns what it gathered. Everything else did nothing.
    EXPECT_EQ(posted(), WideStrings{hostMessage});
    EXPECT_EQ(logged(), Strings{"page ready"});
    EXPECT_EQ(host.mode, modeHidden);
    EXPECT_TRUE(host.coverUp);
    EXPECT_EQ(game.receive(300), "(none)");
}

TEST_F(PageMessages, MessagesWorkBeforeReady) {
    useWindow();
    post(LR"({"type":"mode","mode":"passive"})");
    post(LR"({"type":"region","rects":[1,2,3,4]})");
    post(LR"({"type":"save","file":"gra_pad.json","text":"early"})");
    post(LR"({"type":"load","file":"gra_pad.json"})");
    EXPECT_FALSE(host.pageReady);
    EXPECT_EQ(host.mode, modePassive);
    EXPECT_RECTS(host.regionRects, {{1, 2, 3, 4}});
    EXPECT_EQ(posted(), (WideStrings{LR"({"type":"saved","name":"gra_pad.json","ok":true})",
                                     LR"({"type":"file","name":"gra_pad.json","ok":true,"text":"early"})"}));
}

}  // namespace
