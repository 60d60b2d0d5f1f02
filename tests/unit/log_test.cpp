#include <gtest/gtest.h>

#include <string>

#include "app/host_state.h"
#include "app/log.h"
#include "test_support.h"

using test_support::ScratchLog;

namespace {

TEST(Log, LineFormatWithLocalTimeAndCrLf) {
    ScratchLog log;
    logLine("hello %d", 42);
    std::string bytes = log.bytes();
    ASSERT_EQ(bytes.size(), std::string("[gra-overlay] 00:00:00 hello 42\r\n").size());
    EXPECT_EQ(bytes.substr(0, 14), "[gra-overlay] ");
    for (int i : {14, 15, 17, 18, 20, 21}) EXPECT_TRUE(isdigit(static_cast<unsigned char>(bytes[i]))) << i;
    EXPECT_EQ(bytes[16], ':');
    EXPECT_EQ(bytes[19], ':');
    EXPECT_EQ(bytes.substr(22), " hello 42\r\n");
}

TEST(Log, ALineBreakInsideAMessageSpansTwoLines) {
    ScratchLog log;
    logLine("first\nsecond");
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], "first");
    EXPECT_EQ(messages[1], "second");  // no prefix on the second part
    EXPECT_EQ(log.bytes().find("[gra-overlay]", 1), std::string::npos);
}

TEST(Log, LongMessagesAreCutTo2047Bytes) {
    ScratchLog log;
    std::string message(3000, 'x');
    message[2046] = 'E';
    message[2047] = 'Z';
    logLine("%s", message.c_str());
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].size(), 2047u);
    EXPECT_EQ(messages[0].back(), 'E');
}

TEST(Log, ADeletedLogIsCreatedAgainByTheNextLine) {
    ScratchLog log;
    logLine("before");
    ASSERT_TRUE(DeleteFileW(log.path.c_str()));
    logLine("after");
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "after");
}

TEST(Log, AnUnwritablePathIsSilent) {
    ScratchLog log;
    host.logPath = test_support::scratchPath(L"missing-folder") + L"\\gra.log";
    logLine("lost");
    EXPECT_FALSE(test_support::fileExists(host.logPath));
}

TEST(Log, LinesAreAppendedInOrder) {
    ScratchLog log;
    logLine("one");
    logLine("two %s", "2");
    auto messages = log.messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], "one");
    EXPECT_EQ(messages[1], "two 2");
}

TEST(FormatText, PointersAreSixteenUpperCaseHexDigits) {
    char buffer[64];
    formatText(buffer, sizeof buffer, "%p", reinterpret_cast<void*>(0x12abcdefULL));
    EXPECT_STREQ(buffer, "0000000012ABCDEF");
    formatText(buffer, sizeof buffer, "%p", static_cast<void*>(nullptr));
    EXPECT_STREQ(buffer, "0000000000000000");
}

TEST(FormatText, C99TruncationReturnsTheFullLength) {
    char buffer[5];
    EXPECT_EQ(formatText(buffer, sizeof buffer, "%s", "abcdefgh"), 8);
    EXPECT_STREQ(buffer, "abcd");
    EXPECT_EQ(formatText(buffer, sizeof buffer, "%d", 12), 2);
    EXPECT_STREQ(buffer, "12");
    EXPECT_EQ(formatText(buffer, sizeof buffer, "%s", "abcd"), 4);
    EXPECT_STREQ(buffer, "abcd");
}

TEST(FormatWide, ReturnsTheLengthOrMinusOneWhenItDoesNotFit) {
    wchar_t buffer[5];
    EXPECT_EQ(formatWide(buffer, 5, L"%ls", L"abcd"), 4);
    EXPECT_STREQ(buffer, L"abcd");
    EXPECT_EQ(formatWide(buffer, 5, L"%ls", L"abcde"), -1);
    wchar_t escape[8];
    EXPECT_EQ(formatWide(escape, 8, L"\\u%04x", 0x1f), 6);
    EXPECT_STREQ(escape, L"\\u001f");
}

}  // namespace
