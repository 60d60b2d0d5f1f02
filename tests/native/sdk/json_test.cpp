// The JSON string maker for notes and the JSON checker for "note" and
// "page" arguments.
#include "gra_link.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string jsonString(const std::string& text) {
    size_t need = gra_link_json_string(text.data(), text.size(), nullptr, 0);
    std::string out(need + 1, '\0');
    EXPECT_EQ(gra_link_json_string(text.data(), text.size(), &out[0], out.size()), need);
    out.resize(need);
    return out;
}

bool valid(const std::string& text) { return gra_link_json_valid(text.data(), text.size()) == 1; }

TEST(JsonString, PlainTextIsQuoted) {
    EXPECT_EQ(jsonString(""), "\"\"");
    EXPECT_EQ(jsonString("hello world"), "\"hello world\"");
}

TEST(JsonString, QuotesAndBackslashesAreEscaped) {
    EXPECT_EQ(jsonString("a\"b\\c"), "\"a\\\"b\\\\c\"");
}

TEST(JsonString, ControlCharactersUseShortFormsOrUnicodeEscapes) {
    EXPECT_EQ(jsonString("\b\f\n\r\t"), "\"\\b\\f\\n\\r\\t\"");
    EXPECT_EQ(jsonString(std::string("\x01\x1f\x0b", 3)), "\"\\u0001\\u001f\\u000b\"");
    EXPECT_EQ(jsonString(std::string("a\0b", 3)), "\"a\\u0000b\"");
}

TEST(JsonString, OtherBytesPassUnchanged) {
    EXPECT_EQ(jsonString("/ \x7f \xC3\xA9 \xF0\x9F\x8E\xAE"), "\"/ \x7f \xC3\xA9 \xF0\x9F\x8E\xAE\"");
}

TEST(JsonString, ASmallBufferGetsATerminatedPrefixAndTheFullLength) {
    char out[5] = {'x', 'x', 'x', 'x', 'x'};
    EXPECT_EQ(gra_link_json_string("a\nbc", 4, out, sizeof out), 7u); // "a\nbc" quoted
    EXPECT_STREQ(out, "\"a\\n");
    char one[1] = {'x'};
    EXPECT_EQ(gra_link_json_string("ab", 2, one, 1), 4u);
    EXPECT_EQ(one[0], '\0');
    char untouched[1] = {'x'};
    EXPECT_EQ(gra_link_json_string("ab", 2, untouched, 0), 4u);
    EXPECT_EQ(untouched[0], 'x');
    EXPECT_EQ(gra_link_json_string(nullptr, 5, nullptr, 0), 2u);
}

TEST(JsonString, TheResultIsValidJson) {
    std::string all;
    for (int c = 1; c < 256; c++) all += static_cast<char>(c);
    EXPECT_TRUE(valid(jsonString(all)));
}

TEST(JsonValid, AcceptsEveryKindOfValue) {
    for (const char* text :
         {"0", "-0", "42", "-3.25", "1e5", "1E+5", "2.5e-3", "true", "false", "null", "\"\"",
          "\"a \\\" \\\\ \\/ \\b \\f \\n \\r \\t \\u00e9 \\uD83C\\uDFAE\"", "[]", "{}", "[1,[2,[3]]]",
          "{\"a\":{\"b\":[true,null]},\"c\":\"d\"}", " \t\r\n{ \"a\" : 1 , \"b\" : [ ] }\n ",
          "\"\xC3\xA9\""}) {
        EXPECT_TRUE(valid(text)) << text;
    }
}

TEST(JsonValid, RefusesWhatIsNotOneJsonText) {
    for (const char* text :
         {"", " ", "hello", "'a'", "01", "1.", ".5", "+1", "1e", "--1", "0x10", "tru", "True",
          "nul", "\"open", "\"bad \\x escape\"", "\"\\u12\"", "\"\\u12g4\"", "[1,]", "[,1]", "{,}",
          "{\"a\"}", "{\"a\":}", "{\"a\":1,}", "{a:1}", "[1 2]", "{} {}", "1 2", "[", "]",
          "\"tab\there\"", "\"line\nbreak\""}) {
        EXPECT_FALSE(valid(text)) << text;
    }
    EXPECT_FALSE(valid(std::string("\"a\0b\"", 5)));
    EXPECT_FALSE(valid(std::string("1\0", 2)));
    EXPECT_EQ(gra_link_json_valid(nullptr, 0), 0);
}

TEST(JsonValid, NestingIsLimitedTo256Levels) {
    std::string deepest = std::string(256, '[') + std::string(256, ']');
    std::string tooDeep = std::string(257, '[') + std::string(257, ']');
    EXPECT_TRUE(valid(deepest));
    EXPECT_FALSE(valid(tooDeep));
    EXPECT_FALSE(valid(std::string(100000, '['))); // no stack exhaustion
}

} // namespace
