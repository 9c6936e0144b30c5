#include "platform/text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error.h"

namespace {

using namespace platform;

std::u16string Decoded(std::string_view text) {
  char16_t wide[64];
  const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide, 64);
  return {wide, static_cast<std::size_t>(length)};
}

std::string Encoded(std::u16string_view wide) {
  char text[64];
  const int length =
      WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), text, 64, nullptr, nullptr);
  return {text, static_cast<std::size_t>(length)};
}

TEST(Utf8, OfEachLengthIsDecodedAndEncoded) {
  constexpr std::string_view kText{"a\0\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
                                   21};
  constexpr std::u16string_view kWide{u"a\0\x7F\x80\x7FF\x800\xFFFF\xD800\xDC00\xDBFF\xDFFF", 11};
  EXPECT_EQ(Decoded(kText), kWide.substr(0, 11));
  EXPECT_EQ(Encoded(kWide.substr(0, 11)), kText);
}

struct Malformed {
  std::string_view text;
  std::u16string_view wide;
};

TEST(Utf8, MalformedBytesBecomeReplacements) {
  for (const auto& [text, wide] : std::vector<Malformed>{
           {"\x80", u"\uFFFD"},              // a continuation on its own
           {"a\xBFz", u"a\uFFFDz"},          //
           {"\xC2", u"\uFFFD"},              // cut off
           {"\xC2z", u"\uFFFDz"},            //
           {"\xE2\x82zz", u"\uFFFDzz"},      //
           {"\xF0\x9F\x98zz", u"\uFFFDzz"},  //
           {"\xE0\x80z", u"\uFFFDz"},
           {"\xED\xA0\x80z", u"\uFFFD\uFFFDz"},            // a surrogate
           {"\xF4\x90\x80\x80z", u"\uFFFD\uFFFD\uFFFDz"},  // above U+10FFFF
           {"\xC0\x80", u"\uFFFD\uFFFD"},                  // overlong
           {"\xF5\x80", u"\uFFFD\uFFFD"},                  // never a lead
           {"\xFF\xFE", u"\uFFFD\uFFFD"},                  //
       }) {
    EXPECT_EQ(Decoded(text), wide) << testing::PrintToString(std::string(text));
  }
}

// Every text of up to four bytes from this list, which has a byte from each side of each border in the format. More
// text follows, since Wine swallows the rest of a text whose last lead asks for more bytes than there are; Windows does
// not.
TEST(Utf8, DecodesEveryShortTextTheSameOnBothTargets) {
  constexpr unsigned char kBytes[] = {0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF, 0xE0,
                                      0xE1, 0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xF7, 0xF8, 0xFF};
  std::uint64_t digest = 14695981039346656037u;
  const auto add = [&](std::uint64_t value) { digest = (digest ^ value) * 1099511628211u; };
  for (std::size_t length = 1; length <= 4; ++length) {
    std::vector<std::size_t> digits(length, 0);
    for (bool more = true; more;) {
      std::string text;
      for (const std::size_t digit : digits) text += static_cast<char>(kBytes[digit]);
      text += "zzz";
      for (const char16_t unit : Decoded(text)) add(unit);
      add(0x10000);
      std::size_t at = 0;
      while (at < length && ++digits[at] == std::size(kBytes)) digits[at++] = 0;
      more = at < length;
    }
  }
  EXPECT_EQ(digest, 11215782329990986151u);
}

TEST(Utf8, LoneSurrogatesAreEncodedAsReplacements) {
  EXPECT_EQ(Encoded(u"\xD800"), "\xEF\xBF\xBD");
  EXPECT_EQ(Encoded(u"\xDFFFz"), "\xEF\xBF\xBDz");
  EXPECT_EQ(Encoded(u"\xDC00\xD800"), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(Encoded(u"\xD83D\xD83D\xDE00"), "\xEF\xBF\xBD\xF0\x9F\x98\x80");
}

TEST(Utf8, AUnitOutsideAsciiIsFoundAnywhere) {
  for (std::size_t length = 1; length <= 12; ++length) {
    for (std::size_t at = 0; at < length; ++at) {
      std::u16string wide(length, u'\x7F');
      wide[at] = u'\x80';
      std::string expected(length + 1, '\x7F');
      expected.replace(at, 2, "\xC2\x80");
      EXPECT_EQ(Encoded(wide), expected);
    }
  }
}

TEST(Utf8, SizeIsToldWhenThereIsNoBuffer) {
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xF0\x9F\x98\x80z", 5, nullptr, 0), 3);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"\u20ACz", 2, nullptr, 0, nullptr, nullptr), 4);
}

TEST(Utf8, BufferThatIsTooSmallFails) {
  char16_t wide[2];
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", 3, wide, 2), 0);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  char text[3];
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"\u20ACz", 2, text, 3, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST(Utf8, BufferThatIsJustLargeEnoughGetsNoNul) {
  char16_t wide[4] = {u'x', u'x', u'x', u'x'};
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", 3, wide, 3), 3);
  EXPECT_EQ(std::u16string(wide, 4), u"abcx");
}

TEST(Utf8, EmptyInputIsAnError) {
  char16_t wide[4];
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "", 0, wide, 4), 0);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  char text[4];
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"", 0, text, 4, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(Utf8, NegativeLengthMeansUpToTheNulAndWithIt) {
  char16_t wide[8];
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide, 8), 4);
  EXPECT_EQ(std::u16string(wide, 4), std::u16string(u"abc\0", 4));
  char text[8];
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"abc", -1, text, 8, nullptr, nullptr), 4);
  EXPECT_EQ(std::string(text, 4), std::string("abc\0", 4));
}

std::vector<std::u16string> Tokens(std::u16string text, const char16_t* delimiters) {
  std::vector<std::u16string> tokens;
  char16_t* context = nullptr;
  for (char16_t* token = wcstok_s(text.data(), delimiters, &context); token != nullptr;
       token = wcstok_s(nullptr, delimiters, &context)) {
    tokens.emplace_back(token);
  }
  EXPECT_EQ(wcstok_s(nullptr, delimiters, &context), nullptr);
  return tokens;
}

TEST(Token, IsWhatStandsBetweenDelimiters) {
  using Texts = std::vector<std::u16string>;
  EXPECT_EQ(Tokens(u"a,bc;d", u",;"), (Texts{u"a", u"bc", u"d"}));
  EXPECT_EQ(Tokens(u",,a,,b,", u","), (Texts{u"a", u"b"}));
  EXPECT_EQ(Tokens(u"a b", u","), (Texts{u"a b"}));
  EXPECT_EQ(Tokens(u"a", u""), (Texts{u"a"}));
  EXPECT_EQ(Tokens(u",,,", u","), Texts{});
  EXPECT_EQ(Tokens(u"", u","), Texts{});
}

TEST(Token, DelimitersMayChangeOnTheWay) {
  std::u16string text = u"name=value;rest";
  char16_t* context = nullptr;
  EXPECT_EQ(std::u16string(wcstok_s(text.data(), u"=", &context)), u"name");
  EXPECT_EQ(std::u16string(wcstok_s(nullptr, u";", &context)), u"value");
  EXPECT_EQ(std::u16string(wcstok_s(nullptr, u"", &context)), u"rest");
}

}  // namespace
