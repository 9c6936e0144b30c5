#include "platform/format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "platform/handles.h"

namespace {

using platform::Format;
using platform::FormatNarrow;

TEST(Format, PutsTextOfBothWidths) {
  EXPECT_EQ(Format(u"<%s|%S>", u"wide", "narrow"), u"<wide|narrow>");
  EXPECT_EQ(FormatNarrow("<%s|%S>", "narrow", u"wide"), "<narrow|wide>");
  EXPECT_EQ(Format(u"%s%s", std::u16string(u"a"), std::u16string_view(u"b")), u"ab");
}

TEST(Format, WithoutConversionsIsTheTextItself) {
  EXPECT_EQ(Format(u""), u"");
  EXPECT_EQ(Format(u"100%%"), u"100%");
  EXPECT_EQ(FormatNarrow("plain"), "plain");
}

TEST(Format, PutsIntegersOfEachSize) {
  EXPECT_EQ(Format(u"%d %u", -1, 4294967295u), u"-1 4294967295");
  EXPECT_EQ(Format(u"%d %u", 4294967295u, -1), u"-1 4294967295");
  EXPECT_EQ(Format(u"%ld %lu", std::int32_t{-5}, std::uint32_t{5}), u"-5 5");
  EXPECT_EQ(Format(u"%lld %llu", INT64_MIN, UINT64_MAX), u"-9223372036854775808 18446744073709551615");
  EXPECT_EQ(Format(u"%hd %hu", 0x1FFFF, 0x1FFFF), u"-1 65535");
  EXPECT_EQ(Format(u"%hhd %hhu", 0x1FF, 0x1FF), u"-1 255");
  EXPECT_EQ(Format(u"%d", INT32_MIN), u"-2147483648");
  EXPECT_EQ(Format(u"%d", std::uint16_t{65535}), u"65535");
}

TEST(Format, PutsHexadecimalInBothCases) {
  EXPECT_EQ(Format(u"%x %X", 0xBEEFu, 0xBEEFu), u"beef BEEF");
  EXPECT_EQ(Format(u"0x%08x", 0x80000005u), u"0x80000005");
  EXPECT_EQ(Format(u"%llx", 0x123456789ABCDEFull), u"123456789abcdef");
  EXPECT_EQ(Format(u"%x", -1), u"ffffffff");
}

TEST(Format, FillsUpToTheWidth) {
  EXPECT_EQ(Format(u"[%5d]", 42), u"[   42]");
  EXPECT_EQ(Format(u"[%05d][%05d]", 42, -42), u"[00042][-0042]");
  EXPECT_EQ(Format(u"[%5d]", -42), u"[  -42]");
  EXPECT_EQ(Format(u"[%2d]", 12345), u"[12345]");
  EXPECT_EQ(Format(u"[%5s][%5S]", u"ab", "cd"), u"[   ab][   cd]");
  EXPECT_EQ(Format(u"%04u-%02u-%02u", 2024u, 2u, 9u), u"2024-02-09");
}

TEST(Format, PutsAPointerWithAllItsDigits) {
  EXPECT_EQ(Format(u"%p", platform::EventHandle(0x12ABu)), u"00000000000012AB");
  EXPECT_EQ(FormatNarrow("%p", static_cast<const int*>(nullptr)), "0000000000000000");
}

TEST(Format, PutsASingleUnit) {
  EXPECT_EQ(Format(u"<%c>", u'\u20AC'), u"<\u20AC>");
  EXPECT_EQ(FormatNarrow("<%c>", 'x'), "<x>");
}

TEST(Format, EndsTextAtItsFirstNul) {
  EXPECT_EQ(Format(u"<%s>", std::u16string(u"a\0b", 3)), u"<a>");
  EXPECT_EQ(Format(u"<%S>", std::string("a\0b", 3)), u"<a>");
  EXPECT_EQ(FormatNarrow("<%S>", std::u16string(u"a\0\u20AC", 3)), "<a>");
}

TEST(Format, TurnsAByteIntoTheUnitOfTheSameValueAndBack) {
  EXPECT_EQ(Format(u"%S", "\xE4\xFF"), u"\u00E4\u00FF");
  EXPECT_EQ(FormatNarrow("%S", u"\u00E4\u00FF"), "\xE4\xFF");
}

TEST(Format, FailsInNarrowWhenAUnitHasNoByte) {
  EXPECT_EQ(FormatNarrow("ahead %S", u"\u0100"), std::nullopt);
  EXPECT_EQ(FormatNarrow("%d %S", 1, u"a\xD800"), std::nullopt);
}

}  // namespace
