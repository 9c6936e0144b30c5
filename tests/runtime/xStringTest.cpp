#include "runtime/xString.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

using runtime::StringUtils::XString;

namespace {

// In memory that free takes.
char* Allocated(const char* text) {
  const std::size_t size = std::strlen(text) + 1;
  auto* const copy = static_cast<char*>(std::malloc(size));
  std::memcpy(copy, text, size);
  return copy;
}

}  // namespace

TEST(XString, IsAnEmptyTextAndNeverNullAtFirst) {
  XString text;
  ASSERT_NE(text.GetWide(), nullptr);
  EXPECT_EQ(text.GetWide(), std::u16string());
}

TEST(XString, CopiesAWideText) {
  std::u16string source = u"wide \u20AC";
  XString text;
  text.SetWide(source.c_str());
  source = u"changed";
  EXPECT_EQ(text.GetWide(), std::u16string(u"wide \u20AC"));
}

TEST(XString, ConvertsTheNarrowTextOnceWhenItIsAskedFor) {
  XString text;
  text.SetNarrow("\xE2\x82\xAC \xF0\x9F\x98\x80", false);
  const char16_t* const wide = text.GetWide();
  EXPECT_EQ(wide, std::u16string(u"\u20AC \U0001F600"));
  EXPECT_EQ(text.GetWide(), wide);
}

// The sanitizer finds a second free, and what is never freed.
TEST(XString, FreesWhatItOwnsAndNothingElse) {
  char borrowed[] = "borrowed";
  XString text;
  text.SetNarrow(Allocated("owned"), true);
  EXPECT_EQ(text.GetWide(), std::u16string(u"owned"));
  text.SetNarrow(borrowed, false);
  EXPECT_EQ(text.GetWide(), std::u16string(u"borrowed"));
  text.SetNarrow(Allocated("owned again"), true);
  text.SetWide(u"wide");
  EXPECT_EQ(text.GetWide(), std::u16string(u"wide"));
  EXPECT_STREQ(borrowed, "borrowed");
}

TEST(XString, NullMeansAnEmptyText) {
  XString text;
  text.SetNarrow("something", false);
  text.SetNarrow(nullptr, true);
  EXPECT_EQ(text.GetWide(), std::u16string());
  text.SetWide(nullptr);
  EXPECT_EQ(text.GetWide(), std::u16string());
}

TEST(XString, BytesThatAreNoTextBecomeTheReplacementCharacter) {
  XString text;
  text.SetNarrow("a\xFF", false);
  EXPECT_EQ(text.GetWide(), std::u16string(u"a\uFFFD"));
}

TEST(XString, ConvertsAMegabyte) {
  const std::string narrow(1 << 20, 'x');
  XString text;
  text.SetNarrow(narrow.c_str(), false);
  EXPECT_EQ(text.GetWide(), std::u16string(1 << 20, u'x'));
}
