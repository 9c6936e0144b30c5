#include "launcher/debugLog.h"

#include <algorithm>
#include <regex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/registry.h"
#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

using debugLog::AppendDebugLogLine;
using debugLog::IsDebugLogEnabled;
using debugLog::LogDirect;
using debugLog::TraceViaHelper;
using support::SetNumber;
using testing::ElementsAre;
using testing::IsEmpty;

class DebugLog : public FrontEndTest {};

// ---- The file. ----

TEST_F(DebugLog, IsOneFileADayInTheUsersFolder) {
  AppendDebugLogLine(u"text\n");
  const auto files = log.Files();
  ASSERT_EQ(files.size(), 1u);
  EXPECT_TRUE(std::regex_match(files[0], std::regex(R"(lumenar-UrlRedirection-\d{4}-\d\d-\d\d\.log)"))) << files[0];
}

TEST_F(DebugLog, StampsEachTextWithTwoBlanksAtBothSeams) {
  AppendDebugLogLine(u"text\n");
  EXPECT_TRUE(std::regex_match(log.Content(), std::regex(R"(\d{4}-\d\d-\d\d  \d\d:\d\d:\d\d  text\r\n)")))
      << log.Content();
}

TEST_F(DebugLog, AppendsToWhatIsThere) {
  for (const char16_t* text : {u"one\n", u"two\n", u"three\n"}) AppendDebugLogLine(text);
  EXPECT_THAT(log.Texts(), ElementsAre("one\n", "two\n", "three\n"));
}

TEST_F(DebugLog, ATextWithoutALineEndMakesTheNextStampFollowOnItsLine) {
  AppendDebugLogLine(u"one");
  AppendDebugLogLine(u"two\n");
  EXPECT_TRUE(std::regex_match(log.Content(), std::regex(R"(\S+  \S+  one\S+  \S+  two\r\n)"))) << log.Content();
}

TEST_F(DebugLog, AnEmptyTextIsAStamp) {
  AppendDebugLogLine(u"");
  EXPECT_THAT(log.Texts(), ElementsAre(""));
}

TEST_F(DebugLog, ATextEndsAtItsNul) {
  using namespace std::string_view_literals;
  AppendDebugLogLine(u"one\0two"sv);
  EXPECT_THAT(log.Texts(), ElementsAre("one"));
}

TEST_F(DebugLog, APercentSignIsText) {
  AppendDebugLogLine(u"%s %d %n 100%\n");
  EXPECT_THAT(log.Texts(), ElementsAre("%s %d %n 100%\n"));
}

TEST_F(DebugLog, AUnitOfOneByteIsWrittenAsThatByte) {
  AppendDebugLogLine(u"a\u00E4\u00FF\n");
  EXPECT_THAT(log.Texts(), ElementsAre("a\xE4\xFF\n"));
}

TEST_F(DebugLog, ATextIsCutInFrontOfAUnitThatIsNoByte) {
  AppendDebugLogLine(u"abc\u0100def\n");
  AppendDebugLogLine(u"\u4E2D\n");
  AppendDebugLogLine(u"x\U0001F600\n");
  EXPECT_THAT(log.Texts(), ElementsAre("abc", "", "x"));
}

TEST_F(DebugLog, ALongTextIsWrittenWhole) {
  const std::u16string text(100000, u'x');
  AppendDebugLogLine(text);
  EXPECT_THAT(log.Texts(), ElementsAre(support::Narrow(text)));
}

TEST_F(DebugLog, IsLostWithoutItsFolder) {
  log.RemoveFolder();
  AppendDebugLogLine(u"lost\n");
  LogDirect("lost\n");
  EXPECT_FALSE(std::filesystem::exists(log.Folder()));
}

TEST_F(DebugLog, IsWrittenAgainOnceItsFolderIsThere) {
  log.RemoveFolder();
  AppendDebugLogLine(u"lost\n");
  std::filesystem::create_directories(log.Folder());
  AppendDebugLogLine(u"kept\n");
  EXPECT_THAT(log.Texts(), ElementsAre("kept\n"));
}

TEST_F(DebugLog, APathAsLongAsItsBufferLosesTheText) {
  platform::SYSTEMTIME now{};
  platform::GetLocalTime(&now);
  std::u16string path = u"C:\\";
  while (path.size() < debugLog::state.path.size() - 1) path += u'x';
  std::ranges::copy(path, debugLog::state.path.begin());
  debugLog::state.day = now.wDay;
  AppendDebugLogLine(u"lost\n");
  EXPECT_THAT(log.Files(), IsEmpty());
}

TEST_F(DebugLog, TakesTextsOfSeveralThreads) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int j = 0; j < 25; ++j) LogDirect("%s\n", "text");
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(log.Texts(), testing::Contains("text\n"));
}

// ---- LogDirect. ----

TEST_F(DebugLog, ADirectTextIsWrittenWithLoggingOff) {
  SetLogging(false);
  LogDirect("%s: err=0x%08x\n", "Operation", 5u);
  EXPECT_THAT(log.Texts(), ElementsAre("Operation: err=0x00000005\n"));
}

// A byte above 0x7F becomes a unit above 0xFF, which has no byte in the file.
TEST_F(DebugLog, ADirectTextIsWidenedWithItsSign) {
  LogDirect("plain %s\n", "a\xC3\xA4z");
  EXPECT_THAT(log.Texts(), ElementsAre("plain a"));
}

TEST_F(DebugLog, ADirectTextThatCannotBeFormattedIsLost) {
  LogDirect("%S\n", u"\u4E2D");
  EXPECT_THAT(log.Files(), IsEmpty());
}

TEST_F(DebugLog, AnEmptyDirectTextIsAStamp) {
  LogDirect("%s", "");
  EXPECT_THAT(log.Texts(), ElementsAre(""));
}

// ---- TraceViaHelper. ----

// A text that knows how often it was looked at.
struct CountedText {
  operator std::u16string_view() const {
    ++looks;
    return u"text";
  }
  mutable int looks = 0;
};

TEST_F(DebugLog, ATraceWithLoggingOffIsNeitherFormattedNorSent) {
  FakeHelper helper;
  SetLogging(false);
  const CountedText text;
  TraceViaHelper(u"%s\n", text);
  EXPECT_EQ(text.looks, 0);
  EXPECT_THAT(helper.HandOffs(), IsEmpty());
  SetLogging(true);
  TraceViaHelper(u"%s\n", text);
  EXPECT_EQ(text.looks, 1);
  EXPECT_THAT(helper.Traces(), ElementsAre("text\n"));
}

TEST_F(DebugLog, ATraceIsSentWithItsNulAndOneUnitMore) {
  FakeHelper helper;
  SetLogging(true);
  TraceViaHelper(u"%S=%d\n", "number", -7);
  ASSERT_EQ(helper.HandOffs().size(), 1u);
  const HandOff& handOff = helper.HandOffs()[0];
  EXPECT_EQ(handOff.tag, 502u);
  EXPECT_EQ(handOff.sender, 0u);
  EXPECT_EQ(handOff.size, (10 + 2) * 2u);
  EXPECT_EQ(handOff.units.substr(0, 11), std::u16string(u"number=-7\n") + u'\0');
}

TEST_F(DebugLog, ATraceIsNotWrittenByItsSender) {
  FakeHelper helper;
  SetLogging(true);
  TraceViaHelper(u"text\n");
  EXPECT_THAT(log.Files(), IsEmpty());
}

TEST_F(DebugLog, ATraceWithoutAHelperIsLost) {
  SetLogging(true);
  TraceViaHelper(u"lost\n");
  EXPECT_THAT(log.Files(), IsEmpty());
}

TEST_F(DebugLog, ATraceCarriesEveryUnit) {
  FakeHelper helper;
  SetLogging(true);
  const std::u16string text = u"\u4E2D\U0001F600" + std::u16string(1, char16_t{0xD800});
  TraceViaHelper(u"%s", text);
  ASSERT_EQ(helper.HandOffs().size(), 1u);
  EXPECT_EQ(helper.HandOffs()[0].units.substr(0, text.size()), text);
}

TEST_F(DebugLog, ATraceOfTheLongestCommandLineIsSentWhole) {
  FakeHelper helper;
  SetLogging(true);
  TraceViaHelper(u"%s", std::u16string(32767, u'x'));
  ASSERT_EQ(helper.HandOffs().size(), 1u);
  EXPECT_EQ(helper.HandOffs()[0].size, (32767 + 2) * 2u);
}

// ---- The setting. ----

TEST_F(DebugLog, IsOffWithoutARoot) { EXPECT_FALSE(IsDebugLogEnabled()); }

TEST_F(DebugLog, IsTurnedOnByTheUserOrTheMachine) {
  for (const Hive hive : {Hive::Machine, Hive::User}) {
    SetNumber(hive, kRoot, u"DebugLog", hive == Hive::User ? 0x100 : 1);
    ForgetLogState();
    EXPECT_TRUE(IsDebugLogEnabled());
  }
}

TEST_F(DebugLog, OfTheUserHidesThatOfTheMachineEvenWhenItIsMissing) {
  SetNumber(Hive::Machine, kRoot, u"DebugLog", 1);
  support::CreateKey(Hive::User, kRoot);
  EXPECT_FALSE(IsDebugLogEnabled());
}

TEST_F(DebugLog, IsNeverTheSettingOfALegacyRoot) {
  SetNumber(Hive::User, kLegacyRoot, u"DebugLog", 1);
  SetNumber(Hive::Machine, kLegacyRoot, u"DebugLog", 1);
  EXPECT_FALSE(IsDebugLogEnabled());
}

TEST_F(DebugLog, IsOffByAValueThatIsNoNumber) {
  support::SetBytes(Hive::Machine, kRoot, u"DebugLog", platform::REG_QWORD, std::vector<std::uint8_t>(8, 1));
  EXPECT_FALSE(IsDebugLogEnabled());
}

TEST_F(DebugLog, SettingIsReadOnceInTheLifeOfAProcess) {
  EXPECT_FALSE(IsDebugLogEnabled());
  SetNumber(Hive::Machine, kRoot, u"DebugLog", 1);
  EXPECT_FALSE(IsDebugLogEnabled());
  ForgetLogState();
  EXPECT_TRUE(IsDebugLogEnabled());
  SetNumber(Hive::Machine, kRoot, u"DebugLog", 0);
  EXPECT_TRUE(IsDebugLogEnabled());
}

TEST_F(DebugLog, SettingMayBeReadBySeveralThreadsAtOnce) {
  SetNumber(Hive::Machine, kRoot, u"DebugLog", 1);
  std::vector<std::thread> threads;
  std::vector<char> answers(4);
  for (char& answer : answers) {
    threads.emplace_back([&answer] { answer = IsDebugLogEnabled() ? 'y' : 'n'; });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(answers, testing::Each('y'));
}

}  // namespace
}  // namespace unit
