#include "foundation/Text.h"

#include <gtest/gtest.h>

#include <string>

namespace text = kiv::text;

TEST(Text, Utf16RoundTripsTheWholeRangeWithSurrogatePairs) {
    const std::wstring s = L"a\u00E9\u4E2D\U0001F600\U0010FFFF";
    const std::u16string u = text::ToUtf16(s);
    EXPECT_EQ(u, u"a\u00E9\u4E2D\U0001F600\U0010FFFF");
    EXPECT_EQ(u.size(), 7u);
    EXPECT_EQ(text::FromUtf16(u), s);
}

TEST(Text, Utf16LeBytesAreLittleEndianWithOptionalTerminatorAndDecodeWithinTheLength) {
    EXPECT_EQ(text::ToUtf16Le(L"A\u00A1"), std::string("A\0\xA1\0", 4));
    EXPECT_EQ(text::ToUtf16Le(L"", true), std::string("\0\0", 2));
    const std::string bytes = text::ToUtf16Le(L"x\U0001F600", true);
    EXPECT_EQ(bytes.size(), 8u);
    EXPECT_EQ(text::FromUtf16Le(bytes.data(), bytes.size()), L"x\U0001F600");
    const char hix[] = {'h', 0, 'i', 0, 0, 0, 'x', 0};
    EXPECT_EQ(text::FromUtf16Le(hix, sizeof hix), L"hi") << "decoding stops at the terminator";
    EXPECT_EQ(text::FromUtf16Le(hix, 2), L"h");
    EXPECT_EQ(text::FromUtf16Le(hix, 3), L"h\uFFFD") << "an odd last byte is replaced";
    EXPECT_EQ(text::FromUtf16Le(nullptr, 4), L"");
}

TEST(Text, InvalidUtf16AndUnencodableWideValuesAreReplacedNotDropped) {
    EXPECT_EQ(text::FromUtf16(u"\xD800"), L"\uFFFD");
    EXPECT_EQ(text::FromUtf16(u"\xD800x"), L"\uFFFDx");
    EXPECT_EQ(text::FromUtf16(u"\xDC00\xD800\xDC00"), L"\uFFFD\U00010000");
    EXPECT_EQ(text::FromUtf16(u"\xD800\xD800\xDC01"), L"\uFFFD\U00010001");
    std::wstring bad;
    bad.push_back(static_cast<wchar_t>(0xD800));
    bad.push_back(static_cast<wchar_t>(0x110000));
    bad.push_back(L'z');
    EXPECT_EQ(text::ToUtf16(bad), u"\uFFFD\uFFFDz");
    EXPECT_EQ(text::ToUtf8(bad), "\xEF\xBF\xBD\xEF\xBF\xBDz");
}

TEST(Text, Utf8RoundTripsAndRejectsMalformedSequences) {
    const std::wstring s = L"\u00A1C \u20AC \U0001F600";
    EXPECT_EQ(text::FromUtf8(text::ToUtf8(s)), s);
    EXPECT_EQ(text::ToUtf8(L"\u00A1"), "\xC2\xA1");
    // Overlong, surrogate, out of range, stray continuation, truncated.
    EXPECT_EQ(text::FromUtf8("\xC0\xAF"), L"\uFFFD\uFFFD");
    EXPECT_EQ(text::FromUtf8("\xED\xA0\x80"), L"\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(text::FromUtf8("\xF4\x90\x80\x80"), L"\uFFFD\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(text::FromUtf8("a\x80z"), L"a\uFFFDz");
    EXPECT_EQ(text::FromUtf8("\xE2\x82"), L"\uFFFD");
    EXPECT_EQ(text::FromUtf8("\xE2\x82x"), L"\uFFFDx");
}

TEST(Text, NullAndBoundedInputs) {
    EXPECT_EQ(text::ToUtf8(static_cast<const wchar_t*>(nullptr)), "");
    EXPECT_EQ(text::FromUtf8(static_cast<const char*>(nullptr)), L"");
    const wchar_t unterminated[3] = {L'a', L'b', L'c'};
    EXPECT_EQ(text::BoundedLength(unterminated, 3), 3u);
    EXPECT_EQ(text::BoundedLength(L"ab", 10), 2u);
    EXPECT_EQ(text::BoundedLength(static_cast<const wchar_t*>(nullptr), 10), 0u);
    EXPECT_EQ(text::BoundedLength(u"abc", 2), 2u);
}
