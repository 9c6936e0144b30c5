#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <variant>

#include "tests/support/standInServiceCommand.h"
#include "tests/support/standInServiceText.h"

namespace standIn {
namespace {

using namespace std::string_literals;

std::string Read(const std::string& payload) {
  const auto command = DecodeCommand(payload);
  if (const auto* fault = std::get_if<std::string>(&command)) return *fault;
  return Described(std::get<Command>(command));
}

TEST(StandInCommand, IsReadFromItsBytes) {
  EXPECT_EQ(Read("\2\0\0\0\6\0\0\0a\0b\0\0\0\0\0\0\0"s), "command 2 url ab");
  EXPECT_EQ(Read("\2\0\0\0\2\0\0\0\0\0\0\0\0\0"s), "command 2 url ");
  EXPECT_EQ(Read("\x01\x02\x03\x04\2\0\0\0\0\0\0\0\0\0"s), "command 67305985 url ");
}

TEST(StandInCommand, ShowsPaddingThatIsNotZero) {
  EXPECT_EQ(Read("\2\0\0\0\2\0\0\0\0\0\xEF\xBE\xAD\xDE"s), "command 2 padding 0xdeadbeef url ");
}

TEST(StandInCommand, IsNoneWhenItsLengthsDoNotFit) {
  EXPECT_EQ(Read("\2\0\0\0\2\0\0\0\0\0\0"s), "shorter than its header");
  EXPECT_EQ(Read("\2\0\0\0\4\0\0\0\0\0\0\0\0\0"s), "wrong length");
  EXPECT_EQ(Read("\2\0\0\0\xFF\xFF\xFF\xFF\0\0\0\0\0\0"s), "wrong length");
  EXPECT_EQ(Read("\2\0\0\0\0\0\0\0\0\0\0\0"s), "no text");
  EXPECT_EQ(Read("\2\0\0\0\3\0\0\0a\0\0\0\0\0\0"s), "no text");
  EXPECT_EQ(Read("\2\0\0\0\2\0\0\0a\0\0\0\0\0"s), "text without its terminator");
}

TEST(StandInText, IsUtf8OnOneLine) {
  EXPECT_EQ(Escaped(u"https://ex\u00E4mple/\u20AC\U0001F600"), "https://ex\xC3\xA4mple/\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(Escaped(u"a\nb\u007F\u0085\u2028"), "a\\u000Ab\\u007F\\u0085\\u2028");
  EXPECT_EQ(Escaped(std::u16string(u"a\0b", 3)), "a\\u0000b");
}

TEST(StandInText, ShowsLoneSurrogatesAndTellsThemFromText) {
  EXPECT_EQ(Escaped(u"\xD800"), "\\uD800");
  EXPECT_EQ(Escaped(u"\xDC00\xD800"), "\\uDC00\\uD800");
  EXPECT_EQ(Escaped(u"\xD83D\xDE00"), "\xF0\x9F\x98\x80");
  EXPECT_EQ(Escaped(u"\\uD800"), "\\\\uD800");
}

TEST(StandInText, ShowsNumbersAndBytes) {
  EXPECT_EQ(Hex(0x5300ABCD00000007), "0x5300abcd00000007");
  EXPECT_EQ(HexBytes("hello\xFF"), "68656c6c6fff");
}

}  // namespace
}  // namespace standIn
