#include "launcher/urlTextCodec.h"

#include <string>

#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

using launcher::GetDecodedUrl;
using launcher::GetEncodedUrl;
using support::Narrow;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(EncodedUrl, OfAnEmptyTextIsEmpty) { EXPECT_EQ(GetEncodedUrl(u""), u""); }

TEST(EncodedUrl, EscapesTheThirteenReservedCharacters) {
  EXPECT_EQ(Narrow(GetEncodedUrl(u" \"%+?&:/\\,[]#")), "%20%22%25%2B%3F%26%3A%2F%5C%2C%5B%5D%23");
}

TEST(EncodedUrl, LeavesEveryOtherUnitAlone) {
  const std::u16string reserved = u" \"%+?&:/\\,[]#";
  for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
    const std::u16string text(1, static_cast<char16_t>(unit));
    if (reserved.find(text) != reserved.npos) continue;
    ASSERT_EQ(GetEncodedUrl(text), text) << "unit " << unit;
  }
}

TEST(EncodedUrl, EscapesAtBothEndsAndInTheMiddle) {
  EXPECT_EQ(Narrow(GetEncodedUrl(u"a b")), "a%20b");
  EXPECT_EQ(Narrow(GetEncodedUrl(u"100%")), "100%25");
  EXPECT_EQ(Narrow(GetEncodedUrl(u"/x//y/")), "%2Fx%2F%2Fy%2F");
  EXPECT_EQ(Narrow(GetEncodedUrl(u"x=1")), "x=1");
}

TEST(EncodedUrl, TwoPassesEscapeTwice) {
  EXPECT_EQ(Narrow(GetEncodedUrl(u"/")), "%2F");
  EXPECT_EQ(Narrow(GetEncodedUrl(GetEncodedUrl(u"/"))), "%252F");
}

TEST(EncodedUrl, CarriesTextBeyondAsciiAndLoneSurrogates) {
  const std::u16string text = u"\u00E4\u4E2D\U0001F600" + std::u16string(1, char16_t{0xD800});
  EXPECT_EQ(GetEncodedUrl(text + u"/" + text), text + u"%2F" + text);
}

TEST(EncodedUrl, CarriesNulUnits) {
  using namespace std::string_literals;
  EXPECT_EQ(GetEncodedUrl(u"a\0/\0b"s), u"a\0%2F\0b"s);
}

TEST(EncodedUrl, TakesTheLongestCommandLine) {
  const std::u16string encoded = GetEncodedUrl(std::u16string(32767, u'/'));
  EXPECT_EQ(encoded.size(), 3u * 32767u);
  EXPECT_TRUE(encoded.ends_with(u"%2F%2F"));
}

TEST(DecodedUrl, HasItsSchemeSeparatorRepaired) { EXPECT_EQ(Narrow(GetDecodedUrl(u"https%3A//x")), "https://x"); }

TEST(DecodedUrl, KeepsEveryOtherEscape) {
  EXPECT_EQ(Narrow(GetDecodedUrl(u"http%3a%2F%2Fx")), "http:%2F%2Fx");
  EXPECT_EQ(Narrow(GetDecodedUrl(u"http%3A//x%3A80")), "http://x%3A80");
  EXPECT_EQ(Narrow(GetDecodedUrl(u"a%3a%3ab")), "a:%3ab");
}

TEST(DecodedUrl, WithoutAnEscapedSeparatorIsTheUrl) {
  EXPECT_EQ(Narrow(GetDecodedUrl(u"https://x%20y")), "https://x%20y");
  EXPECT_EQ(Narrow(GetDecodedUrl(u"%3")), "%3");
}

TEST(DecodedUrl, IsRepairedAtIndexNineAndNotAtTen) {
  EXPECT_EQ(Narrow(GetDecodedUrl(u"123456789%3Ax")), "123456789:x");
  EXPECT_EQ(Narrow(GetDecodedUrl(u"1234567890%3Ax")), "1234567890%3Ax");
  EXPECT_EQ(Narrow(GetDecodedUrl(u"123456789%3ax")), "123456789:x");
  EXPECT_EQ(Narrow(GetDecodedUrl(u"1234567890%3ax")), "1234567890%3ax");
}

TEST(DecodedUrl, AtTheVeryStartAndTheVeryEnd) {
  EXPECT_EQ(Narrow(GetDecodedUrl(u"%3A")), ":");
  EXPECT_EQ(Narrow(GetDecodedUrl(u"abc%3A")), "abc:");
}

TEST(DecodedUrl, FindsTheUpperCaseEscapeAheadOfAnEarlierLowerCaseOne) {
  EXPECT_EQ(Narrow(GetDecodedUrl(u"abc%3a%3A")), "abc%3a:");
}

TEST(DecodedUrl, AFarOffUpperCaseEscapeHidesAnEarlyLowerCaseOne) {
  EXPECT_EQ(Narrow(GetDecodedUrl(u"http%3a//x/y%3A")), "http%3a//x/y%3A");
}

class DecodedUrlLog : public FrontEndTest {};

TEST_F(DecodedUrlLog, OfTheLongestUrlIsEmptyAndTheUrlIsRepaired) {
  const std::u16string rest(2084 - 7, u'x');
  EXPECT_EQ(GetDecodedUrl(u"http%3A" + rest), u"http:" + rest);
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(DecodedUrlLog, NamesAUrlOfOneUnitMoreWhichIsRefused) {
  const std::u16string url = u"http%3A" + std::u16string(2085 - 7, u'x');
  EXPECT_EQ(GetDecodedUrl(url), url);
  EXPECT_THAT(log.Texts(), ElementsAre("GetDecodedUrl: Failed to decode the url '" + Narrow(url) + "' \n"));
}

TEST_F(DecodedUrlLog, NamesAnEmptyUrl) {
  EXPECT_EQ(GetDecodedUrl(u""), u"");
  EXPECT_THAT(log.Texts(), ElementsAre("GetDecodedUrl: Failed to decode the url '' \n"));
}

TEST_F(DecodedUrlLog, IsEmptyForARefusedUrlThatHasNoNarrowForm) {
  const std::u16string url(2085, u'\u4E2D');
  EXPECT_EQ(GetDecodedUrl(url), url);
  EXPECT_THAT(log.Texts(), IsEmpty());
}

}  // namespace
}  // namespace unit
