#include "settings/textConversion.h"

#include <string>

#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

using settings::StringToWString;
using settings::WStringToString;
using testing::ElementsAre;
using testing::IsEmpty;

class TextConversion : public TracedTest {};

TEST_F(TextConversion, GoesToUtf8AndBack) {
  const std::u16string wide = u"a\u00E4\u4E2D\U0001F600";
  const std::string narrow = "a\xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80";
  EXPECT_EQ(WStringToString(wide), narrow);
  EXPECT_EQ(StringToWString(narrow), wide);
  EXPECT_THAT(helper.Traces(), IsEmpty());
}

TEST_F(TextConversion, OfAnEmptyTextIsEmptyAndTraced) {
  EXPECT_EQ(WStringToString(u""), "");
  EXPECT_EQ(StringToWString(""), u"");
  EXPECT_THAT(helper.Traces(), ElementsAre("WStringToString: The input wstring is empty.\n",
                                           "StringToWString: The input string is empty.\n"));
}

TEST_F(TextConversion, KeepsNulUnits) {
  using namespace std::string_literals;
  EXPECT_EQ(WStringToString(u"a\0b"s), "a\0b"s);
  EXPECT_EQ(StringToWString("a\0b"s), u"a\0b"s);
}

TEST_F(TextConversion, OfALoneSurrogateIsTheReplacementCharacter) {
  EXPECT_EQ(WStringToString(u"a" + std::u16string(1, char16_t{0xD83D}) + u"b"),
            "a\xEF\xBF\xBD"
            "b");
  EXPECT_EQ(WStringToString(u"a" + std::u16string(1, char16_t{0xDE00})), "a\xEF\xBF\xBD");
  EXPECT_THAT(helper.Traces(), IsEmpty());
}

TEST_F(TextConversion, OfMalformedUtf8HoldsTheReplacementCharacter) {
  for (const char* malformed : {"a\xFFz", "a\xC3z", "a\x80z", "a\xED\xA0\x80z", "a\xC0\xAFz"}) {
    const std::u16string wide = StringToWString(malformed);
    EXPECT_EQ(wide.front(), u'a');
    EXPECT_EQ(wide.back(), u'z');
    EXPECT_NE(wide.find(u'\uFFFD'), wide.npos);
    EXPECT_EQ(wide.find_first_not_of(u"a\uFFFDz"), wide.npos) << malformed;
  }
}

TEST_F(TextConversion, OfALongTextIsWhole) {
  const std::u16string wide(100000, u'\u4E2D');
  const std::string narrow = WStringToString(wide);
  EXPECT_EQ(narrow.size(), 300000u);
  EXPECT_EQ(StringToWString(narrow), wide);
}

}  // namespace
}  // namespace unit
