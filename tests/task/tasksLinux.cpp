#include <gtest/gtest.h>

#include "platform/linux/testHooks.h"
#include "tests/task/taskSupport.h"

namespace {

using namespace task;
using namespace std::chrono_literals;

TEST(TaskOnLinux, ForWhichThePoolMadeNoObjectNeverFires) {
  Executor executor;
  std::atomic<int> functionsEnded{0};
  std::atomic<int> released{0};
  Signal signal;
  signal.Set();
  test::ArmFaults(1, true, 1450);
  auto timer = executor->create([life = Life(functionsEnded)] { ADD_FAILURE(); });
  auto wait = executor->create(signal.Handle(), [life = Life(functionsEnded)] { ADD_FAILURE(); });
  auto work = executor->create([life = Life(functionsEnded)](void*, void*) { ADD_FAILURE(); });
  test::DisarmFaults();
  ASSERT_TRUE(timer && wait && work);
  executor->setRelative(timer, 0ns, 0ns);
  executor->setAbsolute(timer, {});
  executor->start(wait);
  executor->submit(work, {}, Counting(released));
  EXPECT_EQ(released, 1);
  executor->waitForCallbacks(timer);
  executor->waitForCallbacks(wait);
  executor->waitForCallbacks(work);
  executor->cancel(timer);
  executor->stop(wait);
  executor->close(std::move(timer));
  executor->close(std::move(wait));
  work.reset();
  EXPECT_EQ(functionsEnded, 2);
  executor.Destroy();
  EXPECT_EQ(functionsEnded, 3);
}

}  // namespace
