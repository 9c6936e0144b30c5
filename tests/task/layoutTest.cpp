#include "tests/support/layout.h"

#include <gtest/gtest.h>

#include "lib/task/windowsThreadPoolExecutor.h"

namespace support {

using namespace quill::task;

SETTLED_FIELDS(WindowsThreadPoolExecutor, &WindowsThreadPoolExecutor::callbackEnvironment,
               &WindowsThreadPoolExecutor::windowLength, &WindowsThreadPoolExecutor::mutex,
               &WindowsThreadPoolExecutor::condition, &WindowsThreadPoolExecutor::timers,
               &WindowsThreadPoolExecutor::waits, &WindowsThreadPoolExecutor::works,
               &WindowsThreadPoolExecutor::closing, &WindowsThreadPoolExecutor::closingTimers,
               &WindowsThreadPoolExecutor::closingWaits, &WindowsThreadPoolExecutor::closingWorks);
SETTLED_FIELDS(WtpTimerTaskContext, &WtpTimerTaskContext::executor, &WtpTimerTaskContext::poolObject,
               &WtpTimerTaskContext::context, &WtpTimerTaskContext::executorClosing);
SETTLED_FIELDS(WtpWaitTaskContext, &WtpWaitTaskContext::executor, &WtpWaitTaskContext::poolObject,
               &WtpWaitTaskContext::context, &WtpWaitTaskContext::executorClosing);
SETTLED_FIELDS(WtpWorkTaskContext, &WtpWorkTaskContext::executor, &WtpWorkTaskContext::poolObject,
               &WtpWorkTaskContext::context, &WtpWorkTaskContext::executorClosing);

}  // namespace support

namespace {

using namespace quill::task;
using support::ExpectInOrder;
using support::FieldsOf;
using support::kBehindDestructor;
using support::PlaceOf;

TEST(FieldOrder, OfTheExecutorAndItsTasks) {
  WindowsThreadPoolExecutor executor(nullptr, 0);
  ExpectInOrder(FieldsOf(executor));
  ExpectInOrder(FieldsOf(*executor.create([] {})));
  ExpectInOrder(FieldsOf(*executor.create({}, [] {})));
  ExpectInOrder(FieldsOf(*executor.create([](void*, void*) {})));
}

TEST(VirtualOrder, OfTimerTasks) {
  EXPECT_EQ(PlaceOf(&TimerTaskExecutor::create), kBehindDestructor);
  EXPECT_EQ(PlaceOf(&TimerTaskExecutor::setRelative), kBehindDestructor + 1);
  EXPECT_EQ(PlaceOf(&TimerTaskExecutor::setAbsolute), kBehindDestructor + 2);
  EXPECT_EQ(PlaceOf(&TimerTaskExecutor::cancel), kBehindDestructor + 3);
  EXPECT_EQ(PlaceOf(&TimerTaskExecutor::waitForCallbacks), kBehindDestructor + 4);
  EXPECT_EQ(PlaceOf(&TimerTaskExecutor::close), kBehindDestructor + 5);
}

TEST(VirtualOrder, OfWaitTasks) {
  EXPECT_EQ(PlaceOf(&WaitTaskExecutor::create), kBehindDestructor);
  EXPECT_EQ(PlaceOf(&WaitTaskExecutor::start), kBehindDestructor + 1);
  EXPECT_EQ(PlaceOf(&WaitTaskExecutor::stop), kBehindDestructor + 2);
  EXPECT_EQ(PlaceOf(&WaitTaskExecutor::waitForCallbacks), kBehindDestructor + 3);
  EXPECT_EQ(PlaceOf(&WaitTaskExecutor::close), kBehindDestructor + 4);
}

TEST(VirtualOrder, OfWorkTasks) {
  EXPECT_EQ(PlaceOf(&WorkTaskExecutor::create), kBehindDestructor);
  EXPECT_EQ(PlaceOf(&WorkTaskExecutor::submit), kBehindDestructor + 1);
  EXPECT_EQ(PlaceOf(&WorkTaskExecutor::waitForCallbacks), kBehindDestructor + 2);
  EXPECT_EQ(PlaceOf(&WorkTaskExecutor::close), kBehindDestructor + 3);
}

TEST(RoleOrder, OfTheExecutorIsTimersWaitsWorks) {
  WindowsThreadPoolExecutor executor(nullptr, 0);
  const auto* const all = reinterpret_cast<const std::byte*>(static_cast<TaskExecutor*>(&executor));
  const auto offsetOf = [all](const auto* role) { return reinterpret_cast<const std::byte*>(role) - all; };
  EXPECT_EQ(offsetOf(static_cast<TimerTaskExecutor*>(&executor)), 0);
  EXPECT_EQ(offsetOf(static_cast<WaitTaskExecutor*>(&executor)), std::ptrdiff_t{sizeof(void*)});
  EXPECT_EQ(offsetOf(static_cast<WorkTaskExecutor*>(&executor)), std::ptrdiff_t{2 * sizeof(void*)});
}

}  // namespace
