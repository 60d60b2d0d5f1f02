// Finding the game window, attaching the host window to it, and the two
// descriptions used in log lines, with real windows of the test process.
#include "host/game_window.h"

#include <winsock2.h>
#include <windows.h>
#include <sddl.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/host_state.h"
#include "app/text.h"
#include "fakes.h"
#include "host_windows_support.h"
#include "test_support.h"

using host_windows::hex;
using host_windows::makeGameWindow;
using host_windows::makeHostWindow;
using host_windows::uniqueName;
using test_support::ScratchLog;

namespace {

class GameWindow : public ::testing::Test {
protected:
    void TearDown() override {
        // the host first: as a child of a game window it would go with it and run the destroy step
        host_windows::destroyQuietly(hostWindow);
        for (HWND window : windows) DestroyWindow(window);
        host_windows::takeQuitMessage();
    }

    // A game window that the test owns and destroys.
    HWND game(const std::wstring& className, const std::wstring& title, bool visible = true) {
        HWND window = makeGameWindow(className, title, visible);
        windows.push_back(window);
        return window;
    }

    // Points the search at a class and title.
    void lookFor(const std::wstring& className, const std::wstring& title) {
        host.gameClass = className;
        host.gameTitle = title;
    }

    void makeHost(bool childMode) {
        host.childMode = childMode;
        hostWindow = makeHostWindow(childMode);
        host.hostWindow = hostWindow;
    }

    std::string foundLine(HWND window, const char* mode) const {
        return "game window " + hex(window) + " found (" + mode + "), process " + host_windows::ownImageName() +
               " pid " + std::to_string(GetCurrentProcessId());
    }

    fakes::HostStateGuard saved;
    ScratchLog log;
    std::vector<HWND> windows;
    HWND hostWindow = nullptr;
    const std::wstring gameClass = uniqueName(L"GameClass");
    const std::wstring title = uniqueName(L"Game Title");
};

// --- findGameWindow ---

TEST_F(GameWindow, NoMatchingWindowFindsNothing) {
    lookFor(gameClass, title);
    EXPECT_EQ(findGameWindow(), nullptr);
}

TEST_F(GameWindow, AVisibleWindowWithTheExactClassAndTitleIsFound) {
    HWND window = game(gameClass, title);
    lookFor(gameClass, title);
    EXPECT_EQ(findGameWindow(), window);
}

TEST_F(GameWindow, AHiddenWindowIsIgnoredUntilItIsShown) {
    HWND window = game(gameClass, title, false);
    lookFor(gameClass, title);
    EXPECT_EQ(findGameWindow(), nullptr);
    ShowWindow(window, SW_SHOWNOACTIVATE);
    EXPECT_EQ(findGameWindow(), window);
}

TEST_F(GameWindow, OfTwoMatchingWindowsTheHigherInTheZOrderWins) {
    HWND first = game(gameClass, title);
    HWND second = game(gameClass, title);
    lookFor(gameClass, title);
    SetWindowPos(second, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    EXPECT_EQ(findGameWindow(), second);
    SetWindowPos(first, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    EXPECT_EQ(findGameWindow(), first);
}

TEST_F(GameWindow, AHiddenWindowHigherUpDoesNotHideAVisibleOneBelow) {
    HWND visible = game(gameClass, title);
    HWND hidden = game(gameClass, title, false);
    SetWindowPos(hidden, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE | SWP_NOOWNERZORDER);
    lookFor(gameClass, title);
    EXPECT_EQ(findGameWindow(), visible);
}

TEST_F(GameWindow, ATitleThatDiffersOnlyInCaseIsNotChosen) {
    game(gameClass, L"Gravos Arena " + title);
    lookFor(gameClass, L"gravos arena " + title);
    EXPECT_EQ(findGameWindow(), nullptr);
}

TEST_F(GameWindow, AClassThatDiffersOnlyInCaseIsNotChosen) {
    game(L"Win32Window" + gameClass, title);
    lookFor(L"WIN32WINDOW" + gameClass, title);
    EXPECT_EQ(findGameWindow(), nullptr);
}

TEST_F(GameWindow, TitlesAndClassesAreWholeStringsNotPrefixes) {
    game(gameClass, title + L" (2)");
    lookFor(gameClass, title);
    EXPECT_EQ(findGameWindow(), nullptr);
    lookFor(gameClass.substr(0, gameClass.size() - 1), title + L" (2)");
    EXPECT_EQ(findGameWindow(), nullptr);
}

TEST_F(GameWindow, ASeventyCharacterClassNeverMatchesButItsFirst63CharactersDo) {
    std::wstring longClass = gameClass + std::wstring(70 - gameClass.size(), L'x');
    ASSERT_EQ(longClass.size(), 70u);
    HWND window = game(longClass, title);
    lookFor(longClass, title);
    EXPECT_EQ(findGameWindow(), nullptr);
    // the class name is read into 64 characters: what is compared is its first 63
    lookFor(longClass.substr(0, 63), title);
    EXPECT_EQ(findGameWindow(), window);
}

TEST_F(GameWindow, ATitleLongerThan127CharactersNeverMatchesButItsFirst127Do) {
    std::wstring longTitle = title + std::wstring(130 - title.size(), L't');
    HWND window = game(gameClass, longTitle);
    lookFor(gameClass, longTitle);
    EXPECT_EQ(findGameWindow(), nullptr);
    lookFor(gameClass, longTitle.substr(0, 127));
    EXPECT_EQ(findGameWindow(), window);
}

TEST_F(GameWindow, AMatchingChildWindowIsNotATopLevelWindowAndIsNotFound) {
    HWND parent = game(gameClass, title + L" parent");
    HWND child = CreateWindowExW(0, gameClass.c_str(), title.c_str(), WS_CHILD | WS_VISIBLE, 0, 0, 50, 50, parent,
                                 nullptr, GetModuleHandleW(nullptr), nullptr);
    ASSERT_NE(child, nullptr);
    lookFor(gameClass, title);
    EXPECT_EQ(findGameWindow(), nullptr);
}

TEST_F(GameWindow, ANonAsciiTitleMatchesExactly) {
    const std::wstring grand = L"Gr\u00e4v\u00f6s \u2603 " + title;
    HWND window = game(gameClass, grand);
    lookFor(gameClass, grand);
    EXPECT_EQ(findGameWindow(), window);
}

// --- attachToGameWindow ---

TEST_F(GameWindow, ChildModeMakesTheHostAChildWithClipChildrenWhileTheMouseIsOurs) {
    makeHost(true);
    HWND window = game(gameClass, title);
    host.mouseToGame = false;
    host.noGameWindowSince = 12345;
    host.gameProcessId = 99;
    attachToGameWindow(window);
    EXPECT_EQ(host.gameWindow, window);
    EXPECT_EQ(host.gameProcessId, GetCurrentProcessId());
    EXPECT_EQ(GetAncestor(hostWindow, GA_PARENT), window);
    EXPECT_EQ(static_cast<uint32_t>(GetWindowLongPtrW(hostWindow, GWL_STYLE)), 0x46000000u);
    EXPECT_EQ(host.noGameWindowSince, 0u);
    EXPECT_EQ(log.messages(), std::vector<std::string>{foundLine(window, "child")});
}

TEST_F(GameWindow, ChildModeLeavesOutClipChildrenWhileTheMouseBelongsToTheGame) {
    makeHost(true);
    HWND window = game(gameClass, title);
    host.mouseToGame = true;
    attachToGameWindow(window);
    EXPECT_EQ(static_cast<uint32_t>(GetWindowLongPtrW(hostWindow, GWL_STYLE)), 0x44000000u);
    EXPECT_EQ(GetAncestor(hostWindow, GA_PARENT), window);
}

TEST_F(GameWindow, TheChildStyleDropsWsVisibleOfAShownHost) {
    makeHost(true);
    ShowWindow(hostWindow, SW_SHOWNA);
    HWND window = game(gameClass, title);
    attachToGameWindow(window);
    EXPECT_EQ(static_cast<uint32_t>(GetWindowLongPtrW(hostWindow, GWL_STYLE)), 0x46000000u);
    EXPECT_FALSE(IsWindowVisible(hostWindow));
}

TEST_F(GameWindow, ChildStyleValues) {
    EXPECT_EQ(childStyleFor(false), 0x46000000u);
    EXPECT_EQ(childStyleFor(true), 0x44000000u);
}

TEST_F(GameWindow, OwnedModeMakesTheGameWindowTheOwnerAndKeepsThePopup) {
    makeHost(false);
    HWND window = game(gameClass, title);
    LONG_PTR styleBefore = GetWindowLongPtrW(hostWindow, GWL_STYLE);
    host.noGameWindowSince = 777;
    attachToGameWindow(window);
    EXPECT_EQ(GetWindow(hostWindow, GW_OWNER), window);
    EXPECT_EQ(GetAncestor(hostWindow, GA_PARENT), GetDesktopWindow());
    EXPECT_EQ(GetWindowLongPtrW(hostWindow, GWL_STYLE), styleBefore);
    EXPECT_EQ(GetWindowLongPtrW(hostWindow, GWL_STYLE) & WS_POPUP, WS_POPUP);
    EXPECT_EQ(static_cast<uint32_t>(GetWindowLongPtrW(hostWindow, GWL_EXSTYLE)) & 0x08000080u, 0x08000080u);
    EXPECT_EQ(host.gameWindow, window);
    EXPECT_EQ(host.gameProcessId, GetCurrentProcessId());
    EXPECT_EQ(host.noGameWindowSince, 0u);
    EXPECT_EQ(log.messages(), std::vector<std::string>{foundLine(window, "owned")});
}

TEST_F(GameWindow, AWindowThatIsGoneGivesProcessIdZeroAndAQuestionMark) {
    makeHost(false);
    HWND window = game(gameClass, title);
    DestroyWindow(window);
    host.gameProcessId = 4242;  // from an earlier find: cleared first
    attachToGameWindow(window);
    EXPECT_EQ(host.gameProcessId, 0u);
    EXPECT_EQ(log.messages(), std::vector<std::string>{"game window " + hex(window) + " found (owned), process ? pid 0"});
}

TEST_F(GameWindow, ASecondFindReplacesTheGameWindowAndLogsAgain) {
    makeHost(true);
    HWND first = game(gameClass, title);
    HWND second = game(gameClass, title);
    attachToGameWindow(first);
    attachToGameWindow(second);
    EXPECT_EQ(host.gameWindow, second);
    EXPECT_EQ(GetAncestor(hostWindow, GA_PARENT), second);
    EXPECT_EQ(log.messages(), (std::vector<std::string>{foundLine(first, "child"), foundLine(second, "child")}));
}

// A stand-in game started with a security descriptor that denies everyone
// every access: the program may not query its process (its image name).
class GuardedGame {
public:
    GuardedGame(const std::wstring& className, const std::wstring& title) {
        wchar_t path[MAX_PATH];
        DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
        std::wstring folder(path, length);
        folder = folder.substr(0, folder.find_last_of(L'\\') + 1);
        std::wstring commandLine = L"\"" + folder + L"standin-game.exe\" --title \"" + title + L"\" --class \"" +
                                   className + L"\" --port " + std::to_wstring(freePort());
        PSECURITY_DESCRIPTOR denyAll = nullptr;
        if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(D;;GA;;;WD)(D;;GA;;;OW)", SDDL_REVISION_1,
                                                                  &denyAll, nullptr)) {
            return;
        }
        SECURITY_ATTRIBUTES attributes{sizeof attributes, denyAll, FALSE};
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        started = CreateProcessW(nullptr, &commandLine[0], &attributes, nullptr, FALSE, 0, nullptr, nullptr,
                                 &startup, &process) != 0;
        LocalFree(denyAll);
        for (int tries = 0; started && !window && tries < 400; ++tries) {
            window = FindWindowW(className.c_str(), title.c_str());
            if (!window) Sleep(50);
        }
    }
    ~GuardedGame() {
        if (!started) return;
        TerminateProcess(process.hProcess, 0);
        WaitForSingleObject(process.hProcess, 10000);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
    }

    static int freePort() {
        WSADATA data;
        WSAStartup(0x0202, &data);
        SOCKET s = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address);
        int size = sizeof address;
        getsockname(s, reinterpret_cast<sockaddr*>(&address), &size);
        closesocket(s);
        WSACleanup();
        return ntohs(address.sin_port);
    }

    bool started = false;
    PROCESS_INFORMATION process{};
    HWND window = nullptr;
};

TEST_F(GameWindow, AGameWhoseProcessMayNotBeQueriedIsFoundAndNamedWithAQuestionMark) {
    GuardedGame guarded(gameClass, title);
    ASSERT_TRUE(guarded.started);
    ASSERT_NE(guarded.window, nullptr);
    ASSERT_EQ(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, guarded.process.dwProcessId), nullptr);
    makeHost(false);
    lookFor(gameClass, title);
    HWND found = findGameWindow();
    EXPECT_EQ(found, guarded.window);
    attachToGameWindow(found);
    EXPECT_EQ(host.gameProcessId, guarded.process.dwProcessId);
    // Neither can its token be read for the comparison with the program's.
    EXPECT_EQ(log.messages(),
              (std::vector<std::string>{"game window " + hex(found) + " found (owned), process ? pid " +
                                            std::to_string(guarded.process.dwProcessId),
                                        "the game's token cannot be read - OpenProcess error 5 - whether the game "
                                        "runs elevated is unknown"}));
    SetWindowLongPtrW(hostWindow, GWLP_HWNDPARENT, 0);
}

// --- describeWindow ---

std::string described(HWND window, const std::string& className, const std::string& title) {
    return host_windows::ownImageName() + " pid " + std::to_string(GetCurrentProcessId()) + " class '" + className +
           "' title '" + title + "' (" + hex(window) + ")";
}

std::string narrow(const std::wstring& text) {
    return wideToUtf8(text);
}

TEST_F(GameWindow, DescribingNoWindowSaysNone) {
    EXPECT_EQ(describeWindow(nullptr), "none");
}

TEST_F(GameWindow, ADescriptionNamesImagePidClassTitleAndHandle) {
    HWND window = game(gameClass, title);
    EXPECT_EQ(describeWindow(window), described(window, narrow(gameClass), narrow(title)));
}

TEST_F(GameWindow, ATitleOf61CharactersShowsItsFirst60AndThreeFullStops) {
    std::wstring longTitle = title + std::wstring(61 - title.size(), L'q');
    HWND window = game(gameClass, longTitle);
    EXPECT_EQ(describeWindow(window), described(window, narrow(gameClass), narrow(longTitle.substr(0, 60)) + "..."));
}

TEST_F(GameWindow, ATitleOfExactly60CharactersIsKeptWhole) {
    std::wstring exactTitle = title + std::wstring(60 - title.size(), L'q');
    HWND window = game(gameClass, exactTitle);
    EXPECT_EQ(describeWindow(window), described(window, narrow(gameClass), narrow(exactTitle)));
}

TEST_F(GameWindow, TitleAndClassAreWrittenAsUtf8) {
    std::wstring className = gameClass + L"\u00df";
    HWND window = game(className, L"Gr\u00fc\u00dfe \u2603");
    EXPECT_EQ(describeWindow(window),
              described(window, narrow(gameClass) + "\xC3\x9F", "Gr\xC3\xBC\xC3\x9F" "e \xE2\x98\x83"));
}

TEST_F(GameWindow, AWindowOfNoProcessIsDescribedWithAQuestionMarkAndPidZero) {
    HWND window = game(gameClass, title);
    DestroyWindow(window);
    EXPECT_EQ(describeWindow(window), "? pid 0 class '' title '' (" + hex(window) + ")");
}

// --- processImageName ---

TEST_F(GameWindow, TheImageNameOfThisProcessIsItsFileName) {
    EXPECT_EQ(processImageName(GetCurrentProcessId()), host_windows::ownImageName());
    EXPECT_EQ(host_windows::ownImageName(), "unit_tests.exe");
}

TEST_F(GameWindow, ProcessIdZeroGivesAQuestionMark) {
    EXPECT_EQ(processImageName(0), "?");
}

TEST_F(GameWindow, AProcessThatHasEndedGivesAQuestionMark) {
    uint32_t ended = host_windows::endedProcessId();
    ASSERT_NE(ended, 0u);
    EXPECT_EQ(processImageName(ended), "?");
}

}  // namespace
