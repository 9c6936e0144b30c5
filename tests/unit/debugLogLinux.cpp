// The daily log under a clock that the test moves, and with calls that fail on demand.
#include <string>
#include <thread>
#include <vector>

#include "launcher/debugLog.h"
#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "tests/support/addressSpaceLinux.h"
#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

using debugLog::AppendDebugLogLine;
using testing::ElementsAre;
using testing::IsEmpty;

platform::SYSTEMTIME Noon(platform::WORD day) {
  return {.wYear = 2031,
          .wMonth = 3,
          .wDayOfWeek = 0,
          .wDay = day,
          .wHour = 12,
          .wMinute = 0,
          .wSecond = 5,
          .wMilliseconds = 999};
}

class DebugLogClock : public FrontEndTest {
 protected:
  ~DebugLogClock() override {
    platform::test::DisarmFaults();
    platform::test::SetLocalTime(std::nullopt);
  }
  static void FailCall(unsigned number) { platform::test::ArmFaults(number, false, platform::ERROR_ACCESS_DENIED); }
};

TEST_F(DebugLogClock, TheStampIsTheLocalTimeWithTwoDigitsEach) {
  platform::test::SetLocalTime(platform::SYSTEMTIME{.wYear = 2031,
                                                    .wMonth = 3,
                                                    .wDayOfWeek = 0,
                                                    .wDay = 4,
                                                    .wHour = 5,
                                                    .wMinute = 6,
                                                    .wSecond = 7,
                                                    .wMilliseconds = 8});
  AppendDebugLogLine(u"text\n");
  EXPECT_EQ(log.Content(), "2031-03-04  05:06:07  text\r\n");
  EXPECT_THAT(log.Files(), ElementsAre("lumenar-UrlRedirection-2031-03-04.log"));
}

TEST_F(DebugLogClock, ANewDayHasANewFileAndTheOldOneStays) {
  platform::test::SetLocalTime(Noon(30));
  AppendDebugLogLine(u"one\n");
  platform::test::SetLocalTime(Noon(31));
  AppendDebugLogLine(u"two\n");
  EXPECT_THAT(log.Files(),
              ElementsAre("lumenar-UrlRedirection-2031-03-30.log", "lumenar-UrlRedirection-2031-03-31.log"));
  EXPECT_THAT(log.Texts(), ElementsAre("one\n", "two\n"));
}

// Only the day of the month is compared.
TEST_F(DebugLogClock, TheSameDayOfAnotherMonthGoesToTheOldFile) {
  platform::test::SetLocalTime(Noon(30));
  AppendDebugLogLine(u"one\n");
  platform::SYSTEMTIME later = Noon(30);
  later.wMonth = 4;
  platform::test::SetLocalTime(later);
  AppendDebugLogLine(u"two\n");
  EXPECT_THAT(log.Files(), ElementsAre("lumenar-UrlRedirection-2031-03-30.log"));
}

TEST_F(DebugLogClock, AFailureToNameTheNewDaysFileLeavesTheOldOneInUseAndIsTriedAgain) {
  platform::test::SetLocalTime(Noon(1));
  AppendDebugLogLine(u"one\n");
  platform::test::SetLocalTime(Noon(2));
  FailCall(1);
  AppendDebugLogLine(u"no folder\n");
  EXPECT_EQ(platform::test::CountedCalls().front(), "!GetTempPathW");
  FailCall(2);
  AppendDebugLogLine(u"no user\n");
  EXPECT_EQ(platform::test::CountedCalls().at(1), "!GetUserNameW");
  platform::test::DisarmFaults();
  EXPECT_THAT(log.Files(), ElementsAre("lumenar-UrlRedirection-2031-03-01.log"));
  AppendDebugLogLine(u"two\n");
  EXPECT_THAT(log.Files(),
              ElementsAre("lumenar-UrlRedirection-2031-03-01.log", "lumenar-UrlRedirection-2031-03-02.log"));
  EXPECT_THAT(log.Texts(), ElementsAre("one\n", "no folder\n", "no user\n", "two\n"));
}

TEST_F(DebugLogClock, WithoutAnyNameTheTextIsLost) {
  FailCall(1);
  AppendDebugLogLine(u"lost\n");
  EXPECT_THAT(log.Files(), IsEmpty());
}

TEST_F(DebugLogClock, EveryFailureDropsTheTextAlone) {
  for (unsigned call = 1; call <= 5; ++call) {
    ForgetLogState();
    FailCall(call);
    AppendDebugLogLine(u"lost\n");
    EXPECT_EQ(platform::test::CountedCalls().at(call - 1)[0], '!') << call;
    platform::test::DisarmFaults();
  }
  EXPECT_THAT(log.Texts(), IsEmpty());
  AppendDebugLogLine(u"kept\n");
  EXPECT_THAT(log.Texts(), ElementsAre("kept\n"));
}

TEST_F(DebugLogClock, ATraceWhoseHelperIsNotFoundOrDoesNotAnswerIsDropped) {
  FakeHelper helper;
  SetLogging(true);
  for (unsigned call = 1; call <= 2; ++call) {
    FailCall(call);
    debugLog::TraceViaHelper(u"lost\n");
  }
  platform::test::DisarmFaults();
  EXPECT_THAT(helper.HandOffs(), IsEmpty());
  debugLog::TraceViaHelper(u"kept\n");
  EXPECT_THAT(helper.Traces(), ElementsAre("kept\n"));
}

TEST_F(DebugLogClock, TextsOfSeveralThreadsAreKeptWhole) {
  platform::test::SetLocalTime(Noon(1));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int j = 0; j < 50; ++j) debugLog::LogDirect("%s\n", "text");
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(log.Texts(), testing::AllOf(testing::SizeIs(200), testing::Each("text\n")));
}

TEST_F(DebugLogClock, ATextThatThereIsNoMemoryForIsLostAndItsWriterGoesOn) {
  if (!support::kAddressSpaceCanBeBounded) GTEST_SKIP() << "a sanitizer's allocator ends the process itself";
  support::SetNumber(Hive::Machine, kRoot, u"DebugLog", 1);
  const std::string narrow(std::size_t{64} << 20, 'x');
  const std::u16string wide(std::size_t{64} << 20, u'x');
  {
    const support::BoundedAddressSpace bound(rlim_t{8} << 20);
    AppendDebugLogLine(wide);
    debugLog::LogDirect("%s", narrow);
    debugLog::TraceViaHelper(u"%s", wide);
  }
  debugLog::LogDirect("%s\n", "behind them");
  EXPECT_THAT(log.Texts(), ElementsAre("behind them\n"));
}

}  // namespace
}  // namespace unit
