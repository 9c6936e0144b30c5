#include "platform/linux/testHooks.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "platform/error.h"
#include "platform/handles.h"
#include "platform/raii.h"
#include "platform/text.h"
#include "tests/platform/handleSupport.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

using namespace platform;
using handles::NewEvent;
using Names = std::vector<std::string>;

class Faults : public testing::Test {
 protected:
  ~Faults() override { test::DisarmFaults(); }
};

TEST_F(Faults, CountCallsWithoutFailingAny) {
  test::ArmFaults(0, false, ERROR_GEN_FAILURE);
  const UniqueEvent event = NewEvent(true);
  EXPECT_TRUE(SetEvent(event.get()));
  EXPECT_EQ(test::CountedCalls(), (Names{"CreateEventW", "SetEvent"}));
}

TEST_F(Faults, FailTheCallOfThatNumberOnce) {
  test::ArmFaults(2, false, ERROR_GEN_FAILURE);
  EXPECT_TRUE(NewEvent(true));
  EXPECT_FALSE(NewEvent(true));
  EXPECT_EQ(GetLastError(), ERROR_GEN_FAILURE);
  EXPECT_TRUE(NewEvent(true));
  EXPECT_EQ(test::CountedCalls(), (Names{"CreateEventW", "!CreateEventW", "CreateEventW"}));
}

TEST_F(Faults, FailFromThatNumberOnWhenTheyPersist) {
  test::ArmFaults(2, true, ERROR_ACCESS_DENIED);
  const UniqueEvent event = NewEvent(true);
  EXPECT_FALSE(SetEvent(event.get()));
  EXPECT_EQ(WaitForSingleObject(event.get(), INFINITE), WAIT_FAILED);
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_EQ(test::CountedCalls(), (Names{"CreateEventW", "!SetEvent", "!WaitForSingleObject"}));
}

TEST_F(Faults, FailTheCallsOfOneNameAlone) {
  test::ArmFaultsOf("SetEvent", ERROR_ACCESS_DENIED);
  const UniqueEvent event = NewEvent(true);
  ASSERT_TRUE(event);
  EXPECT_FALSE(SetEvent(event.get()));
  EXPECT_FALSE(SetEvent(event.get()));
  EXPECT_TRUE(ResetEvent(event.get()));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
}

TEST_F(Faults, EndWhenDisarmedAndKeepTheirCount) {
  test::ArmFaults(1, true, ERROR_GEN_FAILURE);
  EXPECT_FALSE(NewEvent(true));
  test::DisarmFaults();
  EXPECT_TRUE(NewEvent(true));
  EXPECT_EQ(test::CountedCalls(), Names{"!CreateEventW"});
}

TEST_F(Faults, CountTheCallsOfAllThreads) {
  test::ArmFaults(0, false, ERROR_GEN_FAILURE);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int j = 0; j < 100; ++j) EXPECT_TRUE(NewEvent(true));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(test::CountedCalls().size(), 400u);
}

CHILD_BODY(MakesTwoEventsAndLeavesOne) {
  UniqueEvent closed = NewEvent(true);
  const EventHandle left = NewEvent(true).release();
  support::Say(std::string(closed ? "made" : "failed") + (left ? " made" : " failed"));
  return 0;
}

std::string Report(const support::Machine& machine, const std::string& failAt, std::string& said) {
  const std::string path = (machine.HostFolder() / "report").string();
  support::Process child = support::StartChild("MakesTwoEventsAndLeavesOne", {},
                                               {{"LUMENAR_FAIL_AT", failAt}, {"LUMENAR_FAULT_REPORT", path}});
  said = child.Hear();
  EXPECT_EQ(child.Wait(), 0);
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(FaultReport, OfAProcessListsItsCallsAndWhatItLeftOpen) {
  const support::Machine machine;
  std::string said;
  EXPECT_EQ(Report(machine, "0", said), "CreateEventW\nCreateEventW\n\nEvent\n");
  EXPECT_EQ(said, "made made");
  EXPECT_EQ(Report(machine, "1", said), "!CreateEventW\nCreateEventW\n\nEvent\n");
  EXPECT_EQ(said, "failed made");
  EXPECT_EQ(Report(machine, "1+", said), "!CreateEventW\n!CreateEventW\n\n");
  EXPECT_EQ(said, "failed failed");
}

TEST(LiveHandles, AreListedByTheirKinds) {
  const support::Machine machine;
  const Names before = test::LiveHandles();
  UniqueEvent event = NewEvent(true);
  UniqueMutex mutex(CreateMutexW(nullptr, false, u"Lumenar Test Live"));
  EXPECT_EQ(test::LiveHandles().size(), before.size() + 2);
  event.reset();
  mutex.reset();
  EXPECT_EQ(test::LiveHandles(), before);
}

TEST(TestClock, StandsWhereItWasSet) {
  test::SetLocalTime(SYSTEMTIME{.wYear = 2024,
                                .wMonth = 2,
                                .wDayOfWeek = 4,
                                .wDay = 29,
                                .wHour = 23,
                                .wMinute = 59,
                                .wSecond = 58,
                                .wMilliseconds = 999});
  SYSTEMTIME time{};
  GetLocalTime(&time);
  test::SetLocalTime(std::nullopt);
  EXPECT_EQ(time.wYear, 2024);
  EXPECT_EQ(time.wDay, 29);
  EXPECT_EQ(time.wMilliseconds, 999);
  GetLocalTime(&time);
  EXPECT_NE(time.wYear, 2024);
}

}  // namespace
