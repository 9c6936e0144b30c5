#include "runtime/textFormat.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using runtime::BaseName;
using runtime::Format;
using runtime::FormatDuration;
using runtime::SafeFormat;

namespace {

std::string Repeated(std::size_t count) { return std::string(count, 'x'); }

}  // namespace

TEST(SafeFormat, ReturnsTheLengthOfWhatItWrote) {
  char buffer[32];
  EXPECT_EQ(SafeFormat(buffer, sizeof buffer, "%s=%d", "key", 7), 5);
  EXPECT_STREQ(buffer, "key=7");
}

TEST(SafeFormat, CutsWhatHasNoRoomAndEndsIt) {
  for (const int capacity : {1, 2, 255, 256, 1023, 1024, 10239, 10240}) {
    std::string buffer(static_cast<std::size_t>(capacity) + 1, '#');
    const std::string text = Repeated(static_cast<std::size_t>(capacity));
    EXPECT_EQ(SafeFormat(buffer.data(), capacity, "%s", text), capacity - 1);
    EXPECT_EQ(buffer, Repeated(static_cast<std::size_t>(capacity) - 1) + '\0' + '#');
  }
}

TEST(SafeFormat, FillsABufferThatFitsToTheByte) {
  char buffer[6] = "#####";
  EXPECT_EQ(SafeFormat(buffer, sizeof buffer, "%s", "12345"), 5);
  EXPECT_STREQ(buffer, "12345");
}

TEST(SafeFormat, CutsInTheMiddleOfEveryKindOfArgument) {
  char buffer[5];
  EXPECT_EQ(SafeFormat(buffer, sizeof buffer, "ab%04d", 12), 4);
  EXPECT_STREQ(buffer, "ab00");
  EXPECT_EQ(SafeFormat(buffer, sizeof buffer, "ab%x", 0xABCDE), 4);
  EXPECT_STREQ(buffer, "abab");
  EXPECT_EQ(SafeFormat(buffer, sizeof buffer, "ab%6s", "z"), 4);
  EXPECT_STREQ(buffer, "ab  ");
  EXPECT_EQ(SafeFormat(buffer, sizeof buffer, "abcd%c%%", 'e'), 4);
  EXPECT_STREQ(buffer, "abcd");
}

TEST(SafeFormat, WhatCannotBeFormattedGivesAnEmptyBuffer) {
  char buffer[8] = "before";
  EXPECT_EQ(SafeFormat(buffer, sizeof buffer, "a%S", u"\u20AC"), 0);
  EXPECT_STREQ(buffer, "");
}

TEST(SafeFormat, LeavesABufferWithoutCapacityAlone) {
  char buffer[2] = "#";
  EXPECT_EQ(SafeFormat(buffer, 0, "text"), 0);
  EXPECT_EQ(SafeFormat(buffer, -1, "text"), 0);
  EXPECT_STREQ(buffer, "#");
}

TEST(SafeFormat, TakesAMegabyte) {
  std::string buffer(1 << 20, '#');
  const std::string text = Repeated((1 << 20) - 1);
  EXPECT_EQ(SafeFormat(buffer.data(), 1 << 20, "%s", text), (1 << 20) - 1);
  EXPECT_EQ(buffer.c_str(), text);
}

TEST(Format, KeepsAtMost10239Characters) {
  EXPECT_EQ(Format("%s", Repeated(10'238)).size(), 10'238u);
  EXPECT_EQ(Format("%s", Repeated(10'239)).size(), 10'239u);
  EXPECT_EQ(Format("%s", Repeated(10'240)), Repeated(10'239));
  EXPECT_EQ(Format("%s%s", Repeated(10'000), Repeated(1 << 20)), Repeated(10'239));
  EXPECT_EQ(Format("%s", ""), "");
}

TEST(BaseName, IsThePartBehindTheLastSeparatorOrTheWhole) {
  EXPECT_EQ(BaseName("C:\\Client\\program.exe"), "program.exe");
  EXPECT_EQ(BaseName("folder/program"), "program");
  EXPECT_EQ(BaseName("a/b\\c"), "c");
  EXPECT_EQ(BaseName("a\\b/c"), "c");
  EXPECT_EQ(BaseName("program.exe"), "program.exe");
  EXPECT_EQ(BaseName("folder\\"), "");
  EXPECT_EQ(BaseName(""), "");
}

struct DurationCase {
  double seconds;
  int decimals;
  const char* text;
};

class FormatDurationTable : public testing::TestWithParam<DurationCase> {};

TEST_P(FormatDurationTable, GivesTheText) {
  EXPECT_EQ(FormatDuration(GetParam().seconds, GetParam().decimals), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Durations, FormatDurationTable,
    testing::Values(DurationCase{0.25, 3, "250ms"}, DurationCase{61, 0, "0:01:01"}, DurationCase{172'800, 0, "2 days"},
                    DurationCase{3600, 0, "1:00:00"}, DurationCase{86'400.5, 3, "1 day 0:00:00.500"},
                    DurationCase{1.5, 3, "1.500s"}, DurationCase{0, 0, "0s"}, DurationCase{0.4, 0, "0s"},
                    DurationCase{0.5, 0, "1s"}, DurationCase{59.4, 0, "59s"}, DurationCase{59.5, 0, "0:01:00"},
                    DurationCase{86'400, 0, "1 day"}, DurationCase{86'400, 3, "1 day 0:00:00.000"},
                    DurationCase{86'401, 0, "1 day 0:00:01"}, DurationCase{90'061, 0, "1 day 1:01:01"},
                    DurationCase{0.25, 6, "250000us"}, DurationCase{0.25, 9, "250000000ns"},
                    DurationCase{0.25, 2, "0.25s"}, DurationCase{0.0625, 4, "0.0625s"}, DurationCase{7.25, 1, "7.2s"},
                    DurationCase{0, 3, "0ms"}, DurationCase{60.25, 2, "0:01:00.25"},
                    DurationCase{0.5, 20, "0.50000000000000000000s"}, DurationCase{1.5, -1, "2s"},
                    DurationCase{-0.5, 3, "-500ms"}));

TEST(FormatDuration, CapsTheDecimalsAt32) {
  EXPECT_EQ(FormatDuration(1.5, 1000), FormatDuration(1.5, 32));
  EXPECT_EQ(FormatDuration(1.5, 33).size(), std::string("1.s").size() + 32);
}

TEST(FormatDuration, EndsForDurationsThatAreNone) {
  EXPECT_EQ(FormatDuration(std::nan(""), 0), "0s");
  EXPECT_EQ(FormatDuration(std::nan(""), 3), "0ms");
  EXPECT_EQ(FormatDuration(std::numeric_limits<double>::infinity(), 0), "106751991167300 days 15:30:07");
  EXPECT_EQ(FormatDuration(1e300, 3), "106751991167300 days 15:30:07.000");
}
