// The wire's JSON lines between the runtime library and the bridge.
#include "json_line.h"

#include <gtest/gtest.h>

using chromium_runtime::JsonLine;
using chromium_runtime::readJsonLine;
using chromium_runtime::readJsonString;

TEST(JsonLine, BuildsOneObjectPerLineWithEscapedTexts) {
    EXPECT_EQ(JsonLine().text("op", "post").text("json", "{\"a\":\"b\\\\c\"}\n\t\x01").number("seq", 3).flag("on", false).line(),
              "{\"op\":\"post\",\"json\":\"{\\\"a\\\":\\\"b\\\\\\\\c\\\"}\\n\\t\\u0001\",\"seq\":3,\"on\":false}\n");
    EXPECT_EQ(JsonLine().line(), "{}\n");
    EXPECT_EQ(JsonLine().number("scale", 1.5).line(), "{\"scale\":1.5}\n");
}

TEST(JsonLine, NonAsciiTextPassesAsUtf8) {
    EXPECT_EQ(JsonLine().text("t", "caf\xc3\xa9").line(), "{\"t\":\"caf\xc3\xa9\"}\n");
}

TEST(JsonLine, ReadsWhatItWrites) {
    const auto fields = readJsonLine(JsonLine().text("op", "message").text("json", "{\"type\":\"ready\"}").number("n", 42).line());
    EXPECT_EQ(fields.at("op"), "message");
    EXPECT_EQ(fields.at("json"), "{\"type\":\"ready\"}");
    EXPECT_EQ(fields.at("n"), "42");
}

TEST(JsonLine, ReadsTheBridgesMessages) {
    const auto frame = readJsonLine(
        "{\"op\":\"frame\",\"seq\":7,\"width\":800,\"height\":500,\"top\":10,\"rows\":20,\"bytes\":64000}");
    EXPECT_EQ(frame.at("op"), "frame");
    EXPECT_EQ(frame.at("bytes"), "64000");
    const auto reply = readJsonLine("{ \"op\" : \"environment\" , \"ok\" : true , \"pid\" : 12 }");
    EXPECT_EQ(reply.at("ok"), "true");
    EXPECT_EQ(reply.at("pid"), "12");
}

TEST(JsonLine, UnescapesUnicodeAndSurrogatePairs) {
    const auto fields = readJsonLine("{\"t\":\"a\\u00e9\\ud83d\\ude00\\n\"}");
    EXPECT_EQ(fields.at("t"), "a\xc3\xa9\xf0\x9f\x98\x80\n");
}

TEST(JsonLine, RefusesWhatIsNotOneFlatObject) {
    EXPECT_TRUE(readJsonLine("").empty());
    EXPECT_TRUE(readJsonLine("[1,2]").empty());
    EXPECT_TRUE(readJsonLine("{\"a\":\"unterminated").empty());
    EXPECT_TRUE(readJsonLine("{\"a\" 1}").empty());
    EXPECT_TRUE(readJsonLine("{\"a\":1 \"b\":2}").empty());
    EXPECT_TRUE(readJsonLine("{\"a\":\"\\u12\"}").empty());
}

TEST(JsonString, OnlyOneStringLiteralHasAStringForm) {
    std::string value;
    EXPECT_TRUE(readJsonString("\"hi \\\"there\\\"\"", value));
    EXPECT_EQ(value, "hi \"there\"");
    EXPECT_TRUE(readJsonString(" \"\" ", value));
    EXPECT_EQ(value, "");
    EXPECT_FALSE(readJsonString("{\"type\":\"ready\"}", value));
    EXPECT_FALSE(readJsonString("\"a\" \"b\"", value));
    EXPECT_FALSE(readJsonString("12", value));
}
