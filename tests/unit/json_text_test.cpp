#include "page/json_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::wstring units(std::initializer_list<wchar_t> list) {
    return std::wstring(list);
}

// ---- jsonEscape ----

TEST(JsonEscape, QuotationMarkGetsABackslash) {
    EXPECT_EQ(jsonEscape(L"a\"b"), LR"(a\"b)");
}

TEST(JsonEscape, ShortFormsForTabLineFeedCarriageReturn) {
    EXPECT_EQ(jsonEscape(L"\t"), LR"(\t)");
    EXPECT_EQ(jsonEscape(L"\n"), LR"(\n)");
    EXPECT_EQ(jsonEscape(L"\r"), LR"(\r)");
    EXPECT_EQ(jsonEscape(L"a\tb\nc\rd"), LR"(a\tb\nc\rd)");
}

TEST(JsonEscape, BackslashIsDoubled) {
    EXPECT_EQ(jsonEscape(L"\\"), LR"(\\)");
    EXPECT_EQ(jsonEscape(L"C:\\games\\x"), LR"(C:\\games\\x)");
}

TEST(JsonEscape, OtherControlUnitsAsLowerCaseUnicodeEscapes) {
    EXPECT_EQ(jsonEscape(units({0x0001})), LR"(\u0001)");
    EXPECT_EQ(jsonEscape(units({0x001F})), LR"(\u001f)");
    EXPECT_EQ(jsonEscape(units({0x0008})), LR"(\u0008)");  // no \b short form
    EXPECT_EQ(jsonEscape(units({0x000C})), LR"(\u000c)");  // no \f short form
    EXPECT_EQ(jsonEscape(units({0x000B})), LR"(\u000b)");
    EXPECT_EQ(jsonEscape(units({0x001A})), LR"(\u001a)");
    EXPECT_EQ(jsonEscape(std::wstring(1, L'\0')), LR"(\u0000)");
}

TEST(JsonEscape, EveryUnitBelowSpaceIsEscaped) {
    for (wchar_t c = 0; c < 0x20; ++c) {
        std::wstring out = jsonEscape(std::wstring(1, c));
        EXPECT_EQ(out[0], L'\\') << static_cast<int>(c);
        EXPECT_GE(out.size(), 2u) << static_cast<int>(c);
    }
}

TEST(JsonEscape, FromSpaceUpEverythingPassesUnchanged) {
    EXPECT_EQ(jsonEscape(L" "), L" ");
    EXPECT_EQ(jsonEscape(L"/"), L"/");
    EXPECT_EQ(jsonEscape(units({0x007F})), units({0x007F}));
    EXPECT_EQ(jsonEscape(units({0x00E9})), units({0x00E9}));
    EXPECT_EQ(jsonEscape(units({0x2028, 0x2029})), units({0x2028, 0x2029}));
    EXPECT_EQ(jsonEscape(units({0xD800})), units({0xD800}));          // unpaired high surrogate
    EXPECT_EQ(jsonEscape(units({0xDC00, L'x'})), units({0xDC00, L'x'}));  // unpaired low surrogate
    EXPECT_EQ(jsonEscape(units({0xD83D, 0xDE00})), units({0xD83D, 0xDE00}));
    EXPECT_EQ(jsonEscape(units({0xFFFF})), units({0xFFFF}));
    EXPECT_EQ(jsonEscape(L"<script>'&'</script>"), L"<script>'&'</script>");
}

TEST(JsonEscape, EmptyStaysEmpty) {
    EXPECT_EQ(jsonEscape(L""), L"");
}

TEST(JsonEscape, AddsNoQuotes) {
    EXPECT_EQ(jsonEscape(L"plain"), L"plain");
}

// ---- jsonField: finding the value ----

TEST(JsonField, StringValue) {
    EXPECT_EQ(jsonField(LR"({"type":"show"})", L"type"), L"show");
}

TEST(JsonField, WhiteSpaceAroundTheColon) {
    EXPECT_EQ(jsonField(LR"({"type" : "show"})", L"type"), L"show");
    EXPECT_EQ(jsonField(L"{\"type\":\t\n\v\f\r \"show\"}", L"type"), L"show");
}

TEST(JsonField, OnlyWhiteSpaceIsSkippedBeforeTheValue) {
    EXPECT_EQ(jsonField(LR"({"n":x5})", L"n"), L"x5");
}

TEST(JsonField, UnquotedWordIsRawText) {
    EXPECT_EQ(jsonField(LR"({"type":show})", L"type"), L"show");
}

TEST(JsonField, ArrayIncludingItsClosingBracket) {
    EXPECT_EQ(jsonField(LR"({"rects":[{"x":1},{"x":2}],"y":3})", L"rects"), LR"([{"x":1},{"x":2}])");
}

TEST(JsonField, ObjectIncludingItsClosingBrace) {
    EXPECT_EQ(jsonField(LR"({"o":{"a":[1,2]},"b":0})", L"o"), LR"({"a":[1,2]})");
}

TEST(JsonField, NumbersAndLiterals) {
    EXPECT_EQ(jsonField(LR"({"n":12,"m":3})", L"n"), L"12");
    EXPECT_EQ(jsonField(LR"({"n":12})", L"n"), L"12");
    EXPECT_EQ(jsonField(LR"({"n":true})", L"n"), L"true");
    EXPECT_EQ(jsonField(LR"({"n":null,"m":3})", L"n"), L"null");
    EXPECT_EQ(jsonField(LR"({"n":-1.5e3})", L"n"), L"-1.5e3");
    EXPECT_EQ(jsonField(LR"({"n":12,"m":3})", L"m"), L"3");
}

TEST(JsonField, TrailingWhiteSpaceOfARawValueIsKept) {
    EXPECT_EQ(jsonField(LR"({"n": 5 })", L"n"), L"5 ");
    EXPECT_EQ(jsonField(LR"({"n":5 ,"m":1})", L"n"), L"5 ");
}

TEST(JsonField, RawValueRunsToTheEndOfAnUnclosedMessage) {
    EXPECT_EQ(jsonField(LR"({"n":12)", L"n"), L"12");
    EXPECT_EQ(jsonField(LR"({"a":[1,[2,3)", L"a"), L"[1,[2,3");
}

TEST(JsonField, RawValueAtACommaOrClosingBracketIsEmpty) {
    EXPECT_EQ(jsonField(LR"({"n":,"m":1})", L"n"), L"");
    EXPECT_EQ(jsonField(LR"({"n":})", L"n"), L"");
    EXPECT_EQ(jsonField(LR"({"n":])", L"n"), L"");
}

TEST(JsonField, BracketsInsideNestedStringsCountAsStructure) {
    // The "]" inside the string closes the array early.
    EXPECT_EQ(jsonField(LR"({"a":["x]y"],"b":1})", L"a"), LR"(["x])");
    // The "," inside the string is inside the brackets and does not end it.
    EXPECT_EQ(jsonField(LR"({"a":{"s":"p,q"},"b":1})", L"a"), LR"({"s":"p,q"})");
    // An unbalanced "[" inside a string keeps the value open to the end.
    EXPECT_EQ(jsonField(LR"({"a":["[x"],"b":1})", L"a"), LR"(["[x"],"b":1})");
}

TEST(JsonField, BracketCountGoesUpForEitherKindAndDownForEither) {
    EXPECT_EQ(jsonField(LR"({"a":[1}, 2])", L"a"), LR"([1})");
}

// ---- jsonField: string values ----

TEST(JsonField, EscapesNRT) {
    EXPECT_EQ(jsonField(LR"({"t":"a\nb\rc\td"})", L"t"), L"a\nb\rc\td");
}

TEST(JsonField, OtherEscapesGiveTheCharacterItself) {
    EXPECT_EQ(jsonField(LR"({"t":"q\"q"})", L"t"), L"q\"q");
    EXPECT_EQ(jsonField(LR"({"t":"b\\s"})", L"t"), L"b\\s");
    EXPECT_EQ(jsonField(LR"({"t":"a\/b"})", L"t"), L"a/b");
    EXPECT_EQ(jsonField(LR"({"t":"\b\f"})", L"t"), L"bf");
    EXPECT_EQ(jsonField(LR"({"t":"\x\q\N"})", L"t"), L"xqN");
}

TEST(JsonField, UnicodeEscape) {
    EXPECT_EQ(jsonField(LR"({"t":"a\u00e9b"})", L"t"), units({L'a', 0x00E9, L'b'}));
    EXPECT_EQ(jsonField(LR"({"t":"\u00E9"})", L"t"), units({0x00E9}));
    EXPECT_EQ(jsonField(LR"({"t":"\u0041\u0042"})", L"t"), L"AB");
}

TEST(JsonField, SurrogatePairArrivesAsTwoUnits) {
    EXPECT_EQ(jsonField(LR"({"t":"\ud83d\ude00"})", L"t"), units({0xD83D, 0xDE00}));
    EXPECT_EQ(jsonField(LR"({"t":"\udc00"})", L"t"), units({0xDC00}));
}

TEST(JsonField, UnicodeEscapeWithoutHexDigitsGivesUnitZero) {
    EXPECT_EQ(jsonField(LR"({"t":"\uZZZZ"})", L"t"), std::wstring(1, L'\0'));
    EXPECT_EQ(jsonField(LR"({"t":"x\uZZZZy"})", L"t"), units({L'x', 0, L'y'}));
}

TEST(JsonField, UnicodeEscapeStopsAtTheFirstNonHexButConsumesAllFour) {
    EXPECT_EQ(jsonField(LR"({"t":"\u12zzA"})", L"t"), units({0x12, L'A'}));
    EXPECT_EQ(jsonField(LR"({"t":"\u1"23"})", L"t"), units({0x1}));  // the quote is one of the four
}

TEST(JsonField, UnicodeEscapeReadsLikeTheLibraryBase16Conversion) {
    // The conversion accepts a sign and an 0x prefix; the low 16 bits count.
    EXPECT_EQ(jsonField(LR"({"t":"\u-001"})", L"t"), units({0xFFFF}));
    EXPECT_EQ(jsonField(LR"({"t":"\u0x1f"})", L"t"), units({0x1F}));
    EXPECT_EQ(jsonField(LR"({"t":"\u+00a"})", L"t"), units({0xA}));
}

TEST(JsonField, ShortUnicodeEscapeIsAPlainU) {
    EXPECT_EQ(jsonField(LR"({"t":"\u12)", L"t"), L"u12");
    EXPECT_EQ(jsonField(LR"({"t":"\u)", L"t"), L"u");
    // Exactly four characters after the "u" are enough.
    EXPECT_EQ(jsonField(LR"({"t":"\u0041)", L"t"), L"A");
    // Three are not.
    EXPECT_EQ(jsonField(LR"({"t":"\u004)", L"t"), L"u004");
}

TEST(JsonField, UnterminatedStringGivesWhatWasGathered) {
    EXPECT_EQ(jsonField(LR"({"t":"abc)", L"t"), L"abc");
    EXPECT_EQ(jsonField(LR"({"t":")", L"t"), L"");
}

TEST(JsonField, BackslashAtTheVeryEndIsKept) {
    EXPECT_EQ(jsonField(LR"({"t":"abc\)", L"t"), L"abc\\");
}

TEST(JsonField, EmptyStringValue) {
    EXPECT_EQ(jsonField(LR"({"t":"","u":"x"})", L"t"), L"");
}

TEST(JsonField, NonAsciiPassesThrough) {
    std::wstring message = L"{\"t\":\"" + units({0x00E9, 0x2028, 0xD800}) + L"\"}";
    EXPECT_EQ(jsonField(message, L"t"), units({0x00E9, 0x2028, 0xD800}));
}

// ---- jsonField: nothing found ----

TEST(JsonField, MissingKey) {
    EXPECT_EQ(jsonField(LR"({"type":"show"})", L"mode"), L"");
}

TEST(JsonField, NeedleLongerThanMessage) {
    EXPECT_EQ(jsonField(L"{}", L"type"), L"");
    EXPECT_EQ(jsonField(L"", L"t"), L"");
    EXPECT_EQ(jsonField(L"\"t", L"t"), L"");
}

TEST(JsonField, NeedleExactlyTheMessage) {
    EXPECT_EQ(jsonField(L"\"t\"", L"t"), L"");
}

TEST(JsonField, NoColonAfterTheKey) {
    EXPECT_EQ(jsonField(LR"({"type" "show"})", L"type"), L"");
    EXPECT_EQ(jsonField(LR"(x:{"type")", L"type"), L"");
}

TEST(JsonField, NothingButWhiteSpaceAfterTheColon) {
    EXPECT_EQ(jsonField(L"{\"type\":   ", L"type"), L"");
    EXPECT_EQ(jsonField(L"{\"type\":", L"type"), L"");
}

// ---- jsonField: the places where it is fooled, as they stand ----

TEST(JsonFieldFooled, NeedleFoundInsideAStringValue) {
    // A string value "type" matches the needle just like a key; the value is
    // then read behind the next colon, here the real key's.
    EXPECT_EQ(jsonField(LR"({"text":"type","type":"x"})", L"type"), L"x");
    EXPECT_EQ(jsonField(LR"({"text":"type","n":7,"type":"x"})", L"type"), L"7");
    EXPECT_EQ(jsonField(LR"({"tags":["a","type"],"n":7,"type":"x"})", L"type"), L"7");
}

TEST(JsonFieldFooled, EscapedQuotesAroundAWordDoNotFormTheNeedle) {
    // Inside a string the quotation marks carry backslashes, so the needle
    // does not occur there and the real key is found.
    EXPECT_EQ(jsonField(LR"({"text":"a \"type\" b","n":7,"type":"x"})", L"type"), L"x");
}

TEST(JsonFieldFooled, FirstOccurrenceWinsAlsoWhenNested) {
    EXPECT_EQ(jsonField(LR"({"inner":{"type":"a"},"type":"b"})", L"type"), L"a");
}

TEST(JsonFieldFooled, MissingKeyNamedByAStringValue) {
    EXPECT_EQ(jsonField(LR"({"mode":"type","x":1})", L"type"), L"1");
}

TEST(JsonFieldFooled, NothingChecksWhatLiesBetweenKeyAndColon) {
    EXPECT_EQ(jsonField(LR"({"type" junk :"show"})", L"type"), L"show");
    EXPECT_EQ(jsonField(LR"({"type","other":"v"})", L"type"), L"v");
}

TEST(JsonFieldFooled, EscapedQuoteInAKeyIsMatchedLiterally) {
    // The key as the page wrote it, with the escape, is not recognised...
    EXPECT_EQ(jsonField(LR"({"a\"b":"v"})", L"a\"b"), L"");
    // ...but the literal text with a backslash is.
    EXPECT_EQ(jsonField(LR"({"a\"b":"v"})", L"a\\\"b"), L"v");
}

TEST(JsonFieldFooled, KeySuffixOfAnotherKeyIsNotFound) {
    // The quotation marks are part of the needle.
    EXPECT_EQ(jsonField(LR"({"subtype":"a"})", L"type"), L"");
}

TEST(JsonFieldFooled, StringPostedInsteadOfAnObject) {
    // A page that posts a string: its quoted, escaped form has no "type" key.
    EXPECT_EQ(jsonField(LR"("{\"type\":\"ready\"}")", L"type"), L"");
}

// ---- the two together ----

TEST(JsonRoundTrip, EscapedValueReadsBack) {
    const std::wstring samples[] = {
        L"",
        L"plain",
        L"a\"b\\c/d",
        L"tab\tline\ncr\r",
        units({0x01, 0x08, 0x0C, 0x1F, L'z'}),
        units({0x00E9, 0x2028, 0xD83D, 0xDE00}),
        LR"({"type":"show"})",
    };
    for (const std::wstring& text : samples) {
        std::wstring message = L"{\"k\":\"" + jsonEscape(text) + L"\",\"z\":1}";
        EXPECT_EQ(jsonField(message, L"k"), text);
    }
}

}  // namespace
