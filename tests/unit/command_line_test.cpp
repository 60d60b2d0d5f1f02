#include <gtest/gtest.h>

#include "app/command_line.h"
#include "app/host_state.h"

namespace {

struct Scan {
    HostState state;
    bool show = false;
    explicit Scan(const wchar_t* commandLine) {
        deriveDefaultPaths(state, L"C:\\Games\\GRA\\overlay");
        show = scanCommandLine(commandLine, state);
    }
};

TEST(CommandLine, NoOptionsGiveTheDefaults) {
    Scan scan(L"gra-overlay.exe");
    const HostState& s = scan.state;
    EXPECT_TRUE(s.childMode);
    EXPECT_EQ(s.linkPort, 47632);
    EXPECT_EQ(s.programFolder, L"C:\\Games\\GRA\\overlay");
    EXPECT_EQ(s.webFolder, L"C:\\Games\\GRA\\overlay\\web");
    EXPECT_EQ(s.docFolder, L"C:\\Games\\GRA\\overlay\\..\\package\\Documents");
    EXPECT_EQ(s.logPath, L"C:\\Games\\GRA\\overlay\\gra_overlay.log");
    EXPECT_EQ(s.gameTitle, L"Gravos Arena");
    EXPECT_EQ(s.gameClass, L"Win32Window");
    EXPECT_EQ(s.dataFolder, L"");
    EXPECT_FALSE(scan.show);
}

TEST(CommandLine, ModeOwnedOnlyForTheExactWord) {
    EXPECT_FALSE(Scan(L"p --mode owned").state.childMode);
    EXPECT_TRUE(Scan(L"p --mode Owned").state.childMode);
    EXPECT_TRUE(Scan(L"p --mode child").state.childMode);
    EXPECT_TRUE(Scan(L"p --mode x").state.childMode);
}

TEST(CommandLine, ModeAsTheLastTokenLeavesTheModeAsItWas) {
    EXPECT_FALSE(Scan(L"p --mode owned --mode").state.childMode);
    EXPECT_TRUE(Scan(L"p --mode").state.childMode);
}

TEST(CommandLine, PortIsParsedLikeTheCLibrary) {
    EXPECT_EQ(Scan(L"p --port 12ab").state.linkPort, 12);
    EXPECT_EQ(Scan(L"p --port x").state.linkPort, 0);
    EXPECT_EQ(Scan(L"p --port \" -7\"").state.linkPort, -7);
    EXPECT_EQ(Scan(L"p --port 113168").state.linkPort, 113168);
    EXPECT_EQ(Scan(L"p --port 113168").state.linkPort & 0xFFFF, 47632);
}

TEST(CommandLine, TheLastOfTwoLogOptionsWins) {
    EXPECT_EQ(Scan(L"p --log C:\\a.log --log C:\\b.log").state.logPath, L"C:\\b.log");
}

TEST(CommandLine, ShowTakesNoValueAndAStrayWordIsIgnored) {
    Scan scan(L"p --show stray");
    EXPECT_TRUE(scan.show);
    EXPECT_EQ(scan.state.webFolder, L"C:\\Games\\GRA\\overlay\\web");
}

TEST(CommandLine, QuotedFolderWithSpaces) {
    Scan scan(L"p --doc \"C:\\My Documents\\GRA\" --web \"D:\\web pages\"");
    EXPECT_EQ(scan.state.docFolder, L"C:\\My Documents\\GRA");
    EXPECT_EQ(scan.state.webFolder, L"D:\\web pages");
}

TEST(CommandLine, AValueOptionTakesTheNextTokenWhateverItLooksLike) {
    Scan scan(L"p --web --show");
    EXPECT_EQ(scan.state.webFolder, L"--show");
    EXPECT_FALSE(scan.show);
}

TEST(CommandLine, OptionsReplaceOnlyTheirOwnValue) {
    Scan scan(L"p --doc D:\\docs --game \"My Game\" --game-class MyClass --data E:\\data --web W");
    EXPECT_EQ(scan.state.docFolder, L"D:\\docs");
    EXPECT_EQ(scan.state.gameTitle, L"My Game");
    EXPECT_EQ(scan.state.gameClass, L"MyClass");
    EXPECT_EQ(scan.state.dataFolder, L"E:\\data");
    EXPECT_EQ(scan.state.webFolder, L"W");
    EXPECT_EQ(scan.state.logPath, L"C:\\Games\\GRA\\overlay\\gra_overlay.log");
    EXPECT_EQ(scan.state.programFolder, L"C:\\Games\\GRA\\overlay");
}

TEST(CommandLine, UnknownTokensPrefixesAndEqualsFormsAreIgnored) {
    Scan scan(L"p --verbose --mod owned --mode=owned -show --SHOW --port");
    EXPECT_TRUE(scan.state.childMode);
    EXPECT_FALSE(scan.show);
    EXPECT_EQ(scan.state.linkPort, 47632);
}

TEST(CommandLine, TheProgramTokenIsSkipped) {
    EXPECT_FALSE(Scan(L"--show").show);
}

TEST(CommandLine, FolderOfPathKeepsEverythingBeforeTheLastSeparator) {
    EXPECT_EQ(folderOfPath(L"C:\\a\\b\\gra-overlay.exe"), L"C:\\a\\b");
    EXPECT_EQ(folderOfPath(L"C:\\a/b/gra-overlay.exe"), L"C:\\a/b");
    EXPECT_EQ(folderOfPath(L"gra-overlay.exe"), L"gra-overlay.exe");
}

TEST(CommandLine, ProgramFolderIsTheTestProgramsFolder) {
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring folder = findProgramFolder();
    EXPECT_EQ(std::wstring(path).substr(0, folder.size()), folder);
    EXPECT_EQ(path[folder.size()], L'\\');
}

}  // namespace
