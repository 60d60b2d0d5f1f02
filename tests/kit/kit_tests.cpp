// gra_link_launch's command line, split again by the system's own
// CommandLineToArgvW, gives back every argument exactly; and the launch's
// refusals and failures.
#define GRA_LINK_IMPLEMENTATION
#include "gra_link.h"
#include "quote_cases.h"

#include <gtest/gtest.h>

#include <shellapi.h>

#include <string>
#include <vector>

namespace {

std::wstring wide(const std::string& utf8) {
    if (utf8.empty()) return std::wstring();
    int n = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0);
    std::wstring out(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), &out[0], n);
    return out;
}

// The tokens that CommandLineToArgvW makes of a UTF-8 command line.
std::vector<std::wstring> split(const std::string& line) {
    int argc = 0;
    LPWSTR* argv = CommandLineToArgvW(wide(line).c_str(), &argc);
    std::vector<std::wstring> tokens;
    if (!argv) return tokens;
    for (int i = 0; i < argc; i++) tokens.push_back(argv[i]);
    LocalFree(argv);
    return tokens;
}

std::string quoted(const char* arg) {
    std::string out(gra_link_quote_argument(arg, nullptr, 0) + 1, '?');
    out.resize(gra_link_quote_argument(arg, &out[0], out.size()));
    return out;
}

std::string commandLine(const gra_link_launch_options& o) {
    std::string out(gra_link_command_line(&o, nullptr, 0) + 1, '?');
    out.resize(gra_link_command_line(&o, &out[0], out.size()));
    return out;
}

TEST(QuotingRoundTrip, EachHardCaseComesBackAloneAndExact) {
    for (const QuoteCase& c : quoteCases) {
        std::vector<std::wstring> tokens = split("\"C:\\x.exe\" " + quoted(c.argument));
        ASSERT_EQ(tokens.size(), 2u) << c.argument;
        EXPECT_TRUE(tokens[1] == wide(c.argument)) << "case: " << c.argument;
    }
}

TEST(QuotingRoundTrip, AllHardCasesInOneLineKeepTheirOrderAndBounds) {
    std::string line = "\"C:\\x.exe\"";
    for (const QuoteCase& c : quoteCases) line += " " + quoted(c.argument);
    std::vector<std::wstring> tokens = split(line);
    ASSERT_EQ(tokens.size(), 1 + sizeof quoteCases / sizeof quoteCases[0]);
    for (size_t i = 0; i < sizeof quoteCases / sizeof quoteCases[0]; i++)
        EXPECT_TRUE(tokens[i + 1] == wide(quoteCases[i].argument)) << quoteCases[i].argument;
}

TEST(QuotingRoundTrip, TheWholeCommandLineGivesTheProgramEveryOptionAndValue) {
    gra_link_launch_options o{};
    o.program = "C:\\Games\\My \"Game\\overlay\\gra-overlay.exe"; // refused: a quotation mark
    EXPECT_EQ(gra_link_command_line(&o, nullptr, 0), 0u);
    o.program = "C:\\Games\\My Game\\overlay\\gra-overlay.exe";
    o.web = "C:\\Games\\My Game\\web\\";
    o.doc = "";
    o.port = 47700;
    o.game = "Gravos \"Arena\" \\\"2\\";
    o.game_class = "Win32 \\Window";
    o.mode = "owned";
    o.log = "--show";
    o.data = "D:\\data \\\\";
    o.show = 1;
    std::vector<std::wstring> expected = {
        L"C:\\Games\\My Game\\overlay\\gra-overlay.exe",
        L"--web", L"C:\\Games\\My Game\\web\\", L"--doc", L"", L"--port", L"47700",
        L"--game", L"Gravos \"Arena\" \\\"2\\", L"--game-class", L"Win32 \\Window",
        L"--mode", L"owned", L"--log", L"--show", L"--data", L"D:\\data \\\\", L"--show"};
    EXPECT_TRUE(split(commandLine(o)) == expected);
}

TEST(Launch, AProgramThatIsNotThereFailsWithTheSystemsError) {
    gra_link_launch_options o{};
    gra_link_process p;
    o.program = "Z:\\no\\such\\folder\\gra-overlay.exe";
    EXPECT_EQ(gra_link_launch(&o, &p), GRA_LINK_E_LAUNCH);
    EXPECT_TRUE(p.error == ERROR_PATH_NOT_FOUND || p.error == ERROR_FILE_NOT_FOUND) << p.error;
    EXPECT_EQ(p.handle, nullptr);
}

TEST(Launch, OptionsThatCannotBeUsedAreRefusedBeforeAnythingStarts) {
    gra_link_launch_options o{};
    gra_link_process p;
    EXPECT_EQ(gra_link_launch(&o, &p), GRA_LINK_E_INVALID);
    EXPECT_EQ(gra_link_launch(nullptr, &p), GRA_LINK_E_INVALID);
    o.program = "C:\\x.exe";
    EXPECT_EQ(gra_link_launch(&o, nullptr), GRA_LINK_E_INVALID);
    o.game = "not \xFF UTF-8";
    EXPECT_EQ(gra_link_launch(&o, &p), GRA_LINK_E_INVALID);
    std::string huge(32767, 'g');
    o.game = huge.c_str();
    EXPECT_EQ(gra_link_launch(&o, &p), GRA_LINK_E_TOO_LONG);
}

} // namespace
