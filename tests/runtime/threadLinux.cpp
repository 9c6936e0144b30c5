// What happens to threads when the system refuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "platform/linux/testHooks.h"
#include "runtime/processUtils.h"
#include "runtime/thread.h"
#include "tests/runtime/logLines.h"
#include "tests/support/process.h"
#include "tests/support/threads.h"

namespace {

using runtime::TxThread;
using runtimeTests::LogLines;
using testing::ElementsAre;

bool Nothing(void*) { return false; }

class ThreadFaults : public testing::Test {
 protected:
  ~ThreadFaults() override { platform::test::DisarmFaults(); }
};

TEST_F(ThreadFaults, StartThrowsWhenThereIsNoThreadLeftAndMayBeTriedAgain) {
  TxThread thread("Worker");
  platform::test::ArmFaultsOf("CreateThread", 8);
  try {
    thread.Start(&Nothing, nullptr, 0, false);
    ADD_FAILURE() << "started";
  } catch (const std::system_error& thrown) {
    EXPECT_EQ(thrown.code(), std::errc::resource_unavailable_try_again);
  }
  platform::test::DisarmFaults();
  EXPECT_TRUE(thread.IsStopped());
  EXPECT_TRUE(thread.Start(&Nothing, nullptr, 0, false));
  EXPECT_TRUE(thread.WaitForStop(TxThread::kNoLimit));
}

TEST_F(ThreadFaults, StartIsFalseWhenAnEventCannotBeReset) {
  TxThread thread("Worker");
  platform::test::ArmFaultsOf("ResetEvent", 8);
  EXPECT_FALSE(thread.Start(&Nothing, nullptr, 0, false));
  platform::test::DisarmFaults();
  EXPECT_TRUE(thread.IsStopped());
}

TEST_F(ThreadFaults, AWorkerWithoutASecondHandleIsStoppedAllTheSame) {
  TxThread thread("Worker");
  platform::test::ArmFaultsOf("DuplicateHandle", 8);
  EXPECT_TRUE(thread.Start(&Nothing, nullptr, 0, false));
  platform::test::DisarmFaults();
  EXPECT_FALSE(thread.GetThreadEvent().IsValid());
  EXPECT_TRUE(thread.WaitForStop(TxThread::kNoLimit));
}

CHILD_BODY(NamesItsThreadWhereItIsNotSupported) {
  const LogLines lines;
  runtime::ProcessUtils::SetThreadName(runtime::ProcessUtils::kCallersThread, "older way");
  for (const std::string& line : lines.All()) support::Say(line);
  support::Say(support::NameOfThisThread());
  return 0;
}

TEST(SetThreadNameOnLinux, GoesTheOlderWayWhereTheSystemKnowsNoOther) {
  support::Process child = support::StartChild("NamesItsThreadWhereItIsNotSupported", {}, {{"LUMENAR_FAIL_AT", "1"}});
  EXPECT_EQ(child.Hear(), "I ProcessUtils::SetThreadName(): SetThreadDescription() is not supported");
  EXPECT_EQ(child.Hear(), "older way");
  EXPECT_EQ(child.Wait(), 0);
}

TEST_F(ThreadFaults, ANameThatIsRefusedIsLoggedAndRaised) {
  runtime::ProcessUtils::SetThreadName(runtime::ProcessUtils::kCallersThread, "before");  // Looks the call up.
  const LogLines lines;
  std::thread([] {
    platform::test::ArmFaultsOf("SetThreadDescription", 8);
    runtime::ProcessUtils::SetThreadName(runtime::ProcessUtils::kCallersThread, "raised");
    platform::test::DisarmFaults();
    EXPECT_EQ(support::NameOfThisThread(), "raised");
  }).join();
  EXPECT_THAT(lines.All(), ElementsAre("D ProcessUtils::SetThreadName(): SetThreadDescription(0xFFFFFFFF, \"raised\") "
                                       "failed (err=0x8007000e)"));
}

}  // namespace
