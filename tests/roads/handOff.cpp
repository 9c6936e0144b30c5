// What another process may send to the resident helper's window, whatever it is.
#include <gmock/gmock.h>

#include "tests/roads/roadMachine.h"

namespace roads {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uintptr_t kLogText = 502;
constexpr std::uintptr_t kRefresh = 503;
constexpr std::size_t kMebibyte = std::size_t{1} << 20;

class HandOff : public testing::Test {
 protected:
  HandOff() {
    machine_.SetUp(u"Client");
    machine_.StartResident();
    static_cast<void>(machine_.NewLog());
  }
  ~HandOff() override {
    // Whatever was sent: it serves on, and ends as it should.
    EXPECT_EQ(machine_.Send(kLogText, u"still here\n"), 0u);
    EXPECT_THAT(machine_.NewLog(), testing::Contains("still here\n"));
    EXPECT_TRUE(machine_.NoOtherClient());
    EXPECT_EQ(machine_.EndResident(), 0);
  }

  RoadMachine machine_;
};

TEST_F(HandOff, OfAnUnknownTagIsAnsweredWithZeroAndHasNoEffect) {
  const std::u16string text = machine_.Client() + u" unknown";
  for (const std::uintptr_t tag : {std::uintptr_t{0}, std::uintptr_t{500}, std::uintptr_t{504}, ~std::uintptr_t{0}}) {
    EXPECT_EQ(machine_.Send(tag, text), 0u) << tag;
    EXPECT_EQ(machine_.Send(tag, nullptr, 0), 0u) << tag;
  }
  EXPECT_THAT(machine_.NewLog(), IsEmpty());
}

TEST_F(HandOff, WithoutDataIsAnsweredWithZeroAndHasNoEffect) {
  for (const std::uintptr_t tag : {kLaunchOrPost, kLogText, kRefresh}) {
    EXPECT_EQ(machine_.Send(tag, nullptr, 0), 0u) << tag;
    EXPECT_EQ(machine_.Send(tag, u"", 0), 0u) << tag;
  }
  machine_.Settle();
  machine_.SetOrigin(u"Agent");
  EXPECT_EQ(machine_.Send(kLaunchOrPost, nullptr, 0), 0u);
}

// The sender's system may refuse the message; what counts is that the resident comes to no harm.
TEST_F(HandOff, OfASizeWithoutDataDoesNoHarm) {
  for (const std::uintptr_t tag : {kLaunchOrPost, kLogText, kRefresh, std::uintptr_t{504}}) {
    const auto result = machine_.Send(tag, nullptr, 100);
    EXPECT_EQ(result.value_or(0), 0u) << tag;
  }
}

TEST_F(HandOff, OfARefreshIgnoresItsData) {
  EXPECT_EQ(machine_.Send(kRefresh, u"some data"), 0u);
  EXPECT_TRUE(machine_.Settle());
}

TEST_F(HandOff, OfATextWithoutItsNulTakesAllOfIt) {
  EXPECT_EQ(machine_.Send(kLogText, u"no end\n"), 0u);
  EXPECT_THAT(machine_.NewLog(), ElementsAre("no end\n"));
  const std::u16string line = machine_.Client() + u" \"no end\"";
  EXPECT_EQ(machine_.Send(kLaunchOrPost, line), 0u);
  EXPECT_EQ(machine_.NextClient(), line);
}

TEST_F(HandOff, OfATextWithANulEndsThere) {
  EXPECT_EQ(machine_.Send(kLogText, std::u16string_view(u"ahead\n\0behind\n", 14)), 0u);
  EXPECT_THAT(machine_.NewLog(), ElementsAre("ahead\n"));
  const std::u16string line = machine_.Client() + u" ahead";
  EXPECT_EQ(machine_.Send(kLaunchOrPost, line + std::u16string(u"\0 behind", 8)), 0u);
  EXPECT_EQ(machine_.NextClient(), line);
}

TEST_F(HandOff, OfAnOddSizeLeavesTheHalfUnitOut) {
  const std::u16string text = u"odd\n?";
  EXPECT_EQ(machine_.Send(kLogText, text.data(), 9), 0u);
  EXPECT_THAT(machine_.NewLog(), ElementsAre("odd\n"));
  EXPECT_EQ(machine_.Send(kLogText, text.data(), 1), 0u);
  EXPECT_EQ(machine_.Send(kLaunchOrPost, text.data(), 1), 0u);
}

TEST_F(HandOff, OfALargeTextIsTakenWhole) {
  const std::u16string text(kMebibyte / 2, u'x');
  EXPECT_EQ(machine_.Send(kLogText, text), 0u);
  EXPECT_EQ(machine_.NewLog(), Texts{support::Narrow(text)});
  EXPECT_EQ(machine_.Send(kLaunchOrPost, text), 0u);
  EXPECT_EQ(machine_.Send(kRefresh, text), 0u);
}

TEST_F(HandOff, OfAFormatIsATextLikeAnyOther) {
  EXPECT_EQ(machine_.Send(kLogText, u"%s%n%p%99999999d\n"), 0u);
  EXPECT_THAT(machine_.NewLog(), ElementsAre("%s%n%p%99999999d\n"));
}

TEST_F(HandOff, OfNoProgramStartsNothing) {
  for (const char16_t* line :
       {u"", u" ", u"\"", u"\"\"", u"C:\\", u"C:\\no such folder\\x.exe", u"\"C:\\no such.exe\" x"}) {
    EXPECT_EQ(machine_.Send(kLaunchOrPost, line), 0u) << support::Narrow(line);
  }
}

}  // namespace
}  // namespace roads
