// The warnings for what keeps the overlay from working: the comparison of the
// game's token with the program's own, and the exclusive fullscreen watch.
// Wine answers SHQueryUserNotificationState with a fixed value, so the
// fullscreen tests replace it in this test program's imports with a stand-in
// whose answer each test sets.
#include "host/game_warnings.h"

#include <shellapi.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/host_state.h"
#include "fakes.h"
#include "import_patch.h"

namespace {

using Texts = std::vector<std::wstring>;
using Strings = std::vector<std::string>;

const std::string elevatedLine =
    "game runs elevated and this program does not - Windows keeps the overlay from the game's window and input "
    "(start both elevated, or neither)";
const std::string fullscreenLine =
    "the game went exclusive fullscreen - the overlay cannot be seen over it (borderless windowed works)";
const std::string windowedLine = "the game left exclusive fullscreen";

TokenFacts token(bool elevated, uint32_t integrity = 0) {
    TokenFacts facts;
    facts.elevated = elevated;
    facts.integrityKnown = integrity != 0;
    facts.integrity = integrity;
    return facts;
}

TokenReading reading(const TokenFacts& facts) {
    TokenReading result;
    result.ok = true;
    result.facts = facts;
    return result;
}

TokenReading unreadable(const char* call, unsigned long error) {
    TokenReading result;
    result.failedCall = call;
    result.error = error;
    return result;
}

// --- the comparison ---

TEST(GameOutranksProgram, AnElevatedGameOverAProgramThatIsNot) {
    EXPECT_TRUE(gameOutranksProgram(token(true), token(false)));
}

TEST(GameOutranksProgram, AlikeOrTheProgramAboveIsNothing) {
    EXPECT_FALSE(gameOutranksProgram(token(true), token(true)));
    EXPECT_FALSE(gameOutranksProgram(token(false), token(false)));
    EXPECT_FALSE(gameOutranksProgram(token(false), token(true)));
}

TEST(GameOutranksProgram, AHigherIntegrityLevelCountsWhereBothAreKnown) {
    EXPECT_TRUE(gameOutranksProgram(token(false, 0x3000), token(false, 0x2000)));
    EXPECT_FALSE(gameOutranksProgram(token(false, 0x3000), token(false, 0x3000)));
    EXPECT_FALSE(gameOutranksProgram(token(false, 0x2000), token(false, 0x3000)));
    EXPECT_FALSE(gameOutranksProgram(token(false, 0x3000), token(false)));
}

// As Wine stages it: the limited token keeps the high integrity level, and
// the elevation alone tells the two apart.
TEST(GameOutranksProgram, ElevationDecidesAtTheSameIntegrityLevel) {
    EXPECT_TRUE(gameOutranksProgram(token(true, 0x3000), token(false, 0x3000)));
}

TEST(ReadProcessToken, TheProgramsOwnTokenReads) {
    TokenReading own = readProcessToken(GetCurrentProcess());
    EXPECT_TRUE(own.ok);
    EXPECT_STREQ(own.failedCall, "");
    EXPECT_EQ(own.error, 0u);
}

TEST(ReadProcessToken, AHandleThatIsNoProcessNamesTheFailedCallAndItsError) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_NE(event, nullptr);
    TokenReading result = readProcessToken(event);
    CloseHandle(event);
    EXPECT_FALSE(result.ok);
    EXPECT_STREQ(result.failedCall, "OpenProcessToken");
    EXPECT_NE(result.error, 0u);
}

// --- telling it ---

class Warnings : public fakes::ChildModeHostTest {
protected:
    void SetUp() override {
        ChildModeHostTest::SetUp();
        host.warnings = GameWarnings{};
        host.gameAway = false;
    }
    void pageIsReady() {
        host.webView.ptr = webView.get();
        host.pageReady = true;
    }
    Strings datagrams() { return game.receiveAll(); }
};

TEST_F(Warnings, AnElevatedGameIsToldToTheLogTheGameAndTheReadyPage) {
    pageIsReady();
    judgeGameTokens(reading(token(true)), reading(token(false)));
    EXPECT_EQ(log.messages(), Strings{elevatedLine});
    EXPECT_EQ(datagrams(), Strings{"GRAO warn elevated"});
    EXPECT_EQ(webView.posted, Texts{L"{\"type\":\"warn\",\"what\":\"elevated\"}"});
    EXPECT_TRUE(host.warnings.gameElevated);
}

TEST_F(Warnings, ThePageGetsTheElevationOnceItIsReady) {
    judgeGameTokens(reading(token(true)), reading(token(false)));
    EXPECT_EQ(host.pendingPageMessages, Texts{L"{\"type\":\"warn\",\"what\":\"elevated\"}"});
}

TEST_F(Warnings, AGameThatHasNotSpokenYetIsToldWithItsFirstDatagram) {
    host.replyAddressKnown = false;
    judgeGameTokens(reading(token(true)), reading(token(false)));
    EXPECT_TRUE(datagrams().empty());
    game.install();
    tellGameTheWarnings();
    EXPECT_EQ(datagrams(), Strings{"GRAO warn elevated"});
}

TEST_F(Warnings, AlikeTokensSayNothing) {
    pageIsReady();
    judgeGameTokens(reading(token(true)), reading(token(true)));
    judgeGameTokens(reading(token(false)), reading(token(false)));
    tellGameTheWarnings();
    EXPECT_TRUE(log.messages().empty());
    EXPECT_TRUE(datagrams().empty());
    EXPECT_TRUE(webView.posted.empty());
    EXPECT_FALSE(host.warnings.gameElevated);
}

TEST_F(Warnings, AnUnreadableTokenIsLoggedWithItsErrorAndNothingIsTold) {
    pageIsReady();
    judgeGameTokens(unreadable("OpenProcess", 5), reading(token(false)));
    judgeGameTokens(reading(token(true)), unreadable("GetTokenInformation", 87));
    EXPECT_EQ(log.messages(),
              (Strings{"the game's token cannot be read - OpenProcess error 5 - whether the game runs elevated is "
                       "unknown",
                       "this program's token cannot be read - GetTokenInformation error 87 - whether the game runs "
                       "elevated is unknown"}));
    EXPECT_TRUE(datagrams().empty());
    EXPECT_TRUE(webView.posted.empty());
}

using ProcessOpener = HANDLE(WINAPI*)(DWORD, BOOL, DWORD);
ProcessOpener realOpenProcess = nullptr;
int processOpenings = 0;
bool refuseProcesses = false;

HANDLE WINAPI countingOpenProcess(DWORD access, BOOL inherit, DWORD processId) {
    ++processOpenings;
    if (!refuseProcesses) return realOpenProcess(access, inherit, processId);
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
}

class GameToken : public Warnings {
protected:
    void SetUp() override {
        Warnings::SetUp();
        ASSERT_TRUE(patch.applied());
        realOpenProcess = reinterpret_cast<ProcessOpener>(patch.original());
        processOpenings = 0;
        refuseProcesses = false;
        // The test program plays the game: its token is the program's own.
        host.gameProcessId = GetCurrentProcessId();
    }
    ImportPatch patch{"kernel32.dll", "OpenProcess", reinterpret_cast<void*>(&countingOpenProcess)};
};

TEST_F(GameToken, TheGameProcessIsComparedOncePerProcess) {
    checkGameElevation();
    checkGameElevation();
    EXPECT_EQ(processOpenings, 1);
    EXPECT_EQ(host.warnings.tokenCheckedFor, GetCurrentProcessId());
    EXPECT_TRUE(log.messages().empty());
    EXPECT_TRUE(datagrams().empty());
}

TEST_F(GameToken, AGameProcessThatCannotBeOpenedIsLoggedWithTheError) {
    refuseProcesses = true;
    checkGameElevation();
    EXPECT_EQ(log.messages(), Strings{"the game's token cannot be read - OpenProcess error 5 - whether the game runs "
                                      "elevated is unknown"});
    EXPECT_TRUE(datagrams().empty());
}

// --- exclusive fullscreen ---

QUERY_USER_NOTIFICATION_STATE answer = QUNS_ACCEPTS_NOTIFICATIONS;
HRESULT answerResult = S_OK;
int questions = 0;

HRESULT WINAPI standInQuery(QUERY_USER_NOTIFICATION_STATE* state) {
    ++questions;
    if (SUCCEEDED(answerResult)) *state = answer;
    return answerResult;
}

class Fullscreen : public Warnings {
protected:
    void SetUp() override {
        Warnings::SetUp();
        ASSERT_TRUE(patch.applied());
        answer = QUNS_ACCEPTS_NOTIFICATIONS;
        answerResult = S_OK;
        questions = 0;
        pageIsReady();
    }
    ImportPatch patch{"shell32.dll", "SHQueryUserNotificationState", reinterpret_cast<void*>(&standInQuery)};
};

TEST_F(Fullscreen, WhileNothingIsWrongNothingIsSaid) {
    for (uint32_t now = 5000; now < 15000; now += 100) watchExclusiveFullscreen(now);
    EXPECT_EQ(questions, 10);
    EXPECT_TRUE(log.messages().empty());
    EXPECT_TRUE(datagrams().empty());
    EXPECT_TRUE(webView.posted.empty());
}

TEST_F(Fullscreen, TheSystemIsAskedAtMostOnceASecond) {
    watchExclusiveFullscreen(5000);
    EXPECT_EQ(questions, 1);
    watchExclusiveFullscreen(5100);
    watchExclusiveFullscreen(5999);
    EXPECT_EQ(questions, 1);
    watchExclusiveFullscreen(6000);
    EXPECT_EQ(questions, 2);
    watchExclusiveFullscreen(6999);
    EXPECT_EQ(questions, 2);
}

TEST_F(Fullscreen, TheSecondAcrossTheTickCountsWrapStillCounts) {
    watchExclusiveFullscreen(0xFFFFFF00u);
    watchExclusiveFullscreen(0x00000100u);
    EXPECT_EQ(questions, 1);
    watchExclusiveFullscreen(0x000002E8u);
    EXPECT_EQ(questions, 2);
}

TEST_F(Fullscreen, GoingAndLeavingAreToldOnceEach) {
    watchExclusiveFullscreen(1000);
    answer = QUNS_RUNNING_D3D_FULL_SCREEN;
    watchExclusiveFullscreen(2000);
    watchExclusiveFullscreen(3000);
    watchExclusiveFullscreen(4000);
    EXPECT_EQ(log.messages(), Strings{fullscreenLine});
    EXPECT_EQ(datagrams(), Strings{"GRAO warn fullscreen"});
    EXPECT_EQ(webView.posted, Texts{L"{\"type\":\"warn\",\"what\":\"fullscreen\"}"});

    answer = QUNS_ACCEPTS_NOTIFICATIONS;
    watchExclusiveFullscreen(5000);
    answer = QUNS_BUSY;  // another state that is no exclusive fullscreen
    watchExclusiveFullscreen(6000);
    EXPECT_EQ(log.messages(), (Strings{fullscreenLine, windowedLine}));
    EXPECT_EQ(datagrams(), Strings{"GRAO warn windowed"});
    EXPECT_EQ(webView.posted, (Texts{L"{\"type\":\"warn\",\"what\":\"fullscreen\"}",
                                     L"{\"type\":\"warn\",\"what\":\"windowed\"}"}));
}

TEST_F(Fullscreen, NotAskedWhileTheGameIsAwayOrThereIsNoGameWindow) {
    answer = QUNS_RUNNING_D3D_FULL_SCREEN;
    host.gameAway = true;
    watchExclusiveFullscreen(1000);
    host.gameAway = false;
    host.gameWindow = nullptr;
    watchExclusiveFullscreen(2000);
    EXPECT_EQ(questions, 0);
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(Fullscreen, AGameThatHasNotSpokenYetHearsOfItWithItsFirstDatagram) {
    host.replyAddressKnown = false;
    answer = QUNS_RUNNING_D3D_FULL_SCREEN;
    watchExclusiveFullscreen(1000);
    EXPECT_TRUE(datagrams().empty());
    game.install();
    tellGameTheWarnings();
    EXPECT_EQ(datagrams(), Strings{"GRAO warn fullscreen"});
}

TEST_F(Fullscreen, ThePageGetsItOnceItIsReady) {
    host.pageReady = false;
    answer = QUNS_RUNNING_D3D_FULL_SCREEN;
    watchExclusiveFullscreen(1000);
    EXPECT_TRUE(webView.posted.empty());
    EXPECT_EQ(host.pendingPageMessages, Texts{L"{\"type\":\"warn\",\"what\":\"fullscreen\"}"});
}

TEST_F(Fullscreen, AFailingQuestionIsLoggedOnceAndChangesNothing) {
    answerResult = E_FAIL;
    watchExclusiveFullscreen(1000);
    watchExclusiveFullscreen(2000);
    EXPECT_EQ(questions, 2);
    EXPECT_EQ(log.messages(),
              Strings{"SHQueryUserNotificationState: 0x80004005 - exclusive fullscreen goes unnoticed"});
    EXPECT_TRUE(datagrams().empty());
    EXPECT_FALSE(host.warnings.exclusiveFullscreen);
}

}  // namespace
