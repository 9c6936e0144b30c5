// What a poll thread does when the system refuses, and as which user it runs its items: Wine gives nobody's token.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/linux/testHooks.h"
#include "runtime/pollThread.h"
#include "runtime/processUtils.h"
#include "tests/runtime/logLines.h"
#include "tests/support/machine.h"

namespace {

using runtime::RCPtr;
using runtime::TxEvent;
using runtime::TxPollItem;
using runtime::TxPollThread;
using runtimeTests::LogLines;
using testing::ElementsAre;

class PollThreadFaults : public testing::Test {
 protected:
  ~PollThreadFaults() override {
    platform::test::DisarmFaults();
    EXPECT_TRUE(thread->Thread().Stop(TxEvent::kNoLimit));
  }

  const support::Machine machine;
  const LogLines lines;
  const RCPtr<TxPollThread> thread{new TxPollThread("test")};
};

struct ItemWithoutAJob : TxPollItem {
  ItemWithoutAJob() : TxPollItem("item") {}
  bool Run(bool) override { return true; }
};

TEST_F(PollThreadFaults, WithoutAThreadToStartIsNotStarted) {
  platform::test::ArmFaultsOf("CreateThread", 8);
  EXPECT_FALSE(thread->StartScheduler());
  EXPECT_THAT(lines.All(), ElementsAre("E TxPollThread::StartScheduler(): test: Failed to start scheduler thread"));
  platform::test::DisarmFaults();
  EXPECT_TRUE(thread->StartScheduler());
}

TEST_F(PollThreadFaults, ThatShouldStartAtItsFirstItemTakesNoneWhenItCannot) {
  thread->SetAutoStart(true);
  const RCPtr<TxPollItem> item(new ItemWithoutAJob);
  platform::test::ArmFaultsOf("CreateThread", 8);
  EXPECT_FALSE(thread->AddItem(item));
  EXPECT_THAT(lines.All(), ElementsAre("E TxPollThread::StartScheduler(): test: Failed to start scheduler thread",
                                       "D TxPollThread::AddItem(): test: Item item not added"));
  EXPECT_FALSE(item->GetPollThread());
}

class PollThreadOfASession : public PollThreadFaults {
 protected:
  void Start() {
    runtime::gLogLevel = 7;
    thread->SetSessionId(own);
    ASSERT_TRUE(thread->StartScheduler());
    lines.Await(Line("N", "Started"));
    EXPECT_EQ(thread->SessionId(), own);
  }
  [[nodiscard]] std::string Line(const std::string& level, const std::string& what) const {
    return level + " TxPollThread::Scheduler(): test: " + what + " impersonating session " + std::to_string(own);
  }

  const std::int32_t own = static_cast<std::int32_t>(runtime::ProcessUtils::GetSessionID(false, 0xFFFFFFFF));
};

TEST_F(PollThreadOfASession, RunsItsItemsAsItsUserUntilItIsToldToStop) {
  Start();
  thread->SetSessionId(TxPollThread::kNoSession);
  lines.Await(Line("N", "Stopped"));
}

TEST_F(PollThreadOfASession, SaysWhenItCannotGoBackToItsOwnUser) {
  Start();
  platform::test::ArmFaultsOf("RevertToSelf", 5);
  thread->SetSessionId(TxPollThread::kNoSession);
  lines.Await(Line("E", "Failed to stop"));
}

}  // namespace
