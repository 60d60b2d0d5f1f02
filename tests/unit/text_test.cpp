// The two shared text conversions, and their whole forms that refuse a text
// the platform's 32-bit lengths cannot carry, tested at that boundary without
// a text of that size: a length beyond it must be refused before anything is
// read.
#include "app/text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>

namespace {

const size_t largestLength = static_cast<size_t>(INT_MAX);

TEST(PlatformLength, UpToTheLargest32BitSignedNumber) {
    EXPECT_TRUE(fitsPlatformLength(0));
    EXPECT_TRUE(fitsPlatformLength(1));
    EXPECT_TRUE(fitsPlatformLength(largestLength));
    EXPECT_FALSE(fitsPlatformLength(largestLength + 1));
    EXPECT_FALSE(fitsPlatformLength(static_cast<size_t>(UINT32_MAX)));
    EXPECT_FALSE(fitsPlatformLength(static_cast<size_t>(UINT32_MAX) + 1));
}

TEST(Utf8ToWideWhole, ConvertsTheWholeText) {
    std::wstring wide = L"earlier";
    EXPECT_TRUE(utf8ToWideWhole("a\xC3\xA9\0b", 5, wide));
    EXPECT_EQ(wide, std::wstring(L"a\u00e9\0b", 4));
}

TEST(Utf8ToWideWhole, AnEmptyTextIsConverted) {
    std::wstring wide = L"earlier";
    EXPECT_TRUE(utf8ToWideWhole("", 0, wide));
    EXPECT_EQ(wide, L"");
}

TEST(Utf8ToWideWhole, BrokenUtf8BecomesReplacementCharacters) {
    std::wstring wide;
    EXPECT_TRUE(utf8ToWideWhole("a\xFF" "b", 3, wide));
    EXPECT_EQ(wide, L"a\uFFFDb");
}

// A length of 2 GiB or more is refused; only three bytes stand behind the
// pointer, so a conversion that read them as the whole text would give "abc".
TEST(Utf8ToWideWhole, TwoGibibytesOrMoreAreRefused) {
    const char* text = "abc";
    std::wstring wide = L"earlier";
    EXPECT_FALSE(utf8ToWideWhole(text, largestLength + 1, wide));
    EXPECT_EQ(wide, L"");
    wide = L"earlier";
    EXPECT_FALSE(utf8ToWideWhole(text, (static_cast<size_t>(1) << 32) + 3, wide));
    EXPECT_EQ(wide, L"");
}

TEST(WideToUtf8Whole, ConvertsTheWholeText) {
    std::string narrow = "earlier";
    EXPECT_TRUE(wideToUtf8Whole(L"a\u00e9\0b", 4, narrow));
    EXPECT_EQ(narrow, std::string("a\xC3\xA9\0b", 5));
}

TEST(WideToUtf8Whole, TwoGibiCharactersOrMoreAreRefused) {
    const wchar_t* text = L"abc";
    std::string narrow = "earlier";
    EXPECT_FALSE(wideToUtf8Whole(text, largestLength + 1, narrow));
    EXPECT_EQ(narrow, "");
    narrow = "earlier";
    EXPECT_FALSE(wideToUtf8Whole(text, (static_cast<size_t>(1) << 32) + 3, narrow));
    EXPECT_EQ(narrow, "");
}

TEST(TextConversions, TheShortFormsConvertAsBefore) {
    EXPECT_EQ(utf8ToWide("gr\xC3\xBC\xC3\x9F"), L"gr\u00fc\u00df");
    EXPECT_EQ(wideToUtf8(L"gr\u00fc\u00df"), "gr\xC3\xBC\xC3\x9F");
    EXPECT_EQ(utf8ToWide(""), L"");
    EXPECT_EQ(wideToUtf8(L""), "");
    EXPECT_EQ(wideToUtf8(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xEF\xBF\xBD");
}

}  // namespace
