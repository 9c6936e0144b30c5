#include "platform/movedClock.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/clock.h"
#include "platform/handles.h"
#include "platform/raii.h"

namespace {

using namespace platform;
using namespace std::chrono_literals;

constexpr DWORD kHour = 3'600'000;

TEST(MovedClock, TakesThePerformanceCounterAlong) {
  test::MovableClock clock;
  std::int64_t frequency = 0;
  std::int64_t before = 0;
  std::int64_t after = 0;
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&before);
  clock.Move(1h);
  QueryPerformanceCounter(&after);
  EXPECT_GE(after - before, frequency * 3600);
}

TEST(MovedClock, EndsAWaitForHandles) {
  test::MovableClock clock;
  const UniqueEvent never(CreateEventW(nullptr, true, false, nullptr));
  DWORD result = WAIT_FAILED;
  std::thread waiter([&] { result = WaitForSingleObject(never.get(), kHour); });
  clock.AwaitWait(kHour);
  clock.Move(1h);
  waiter.join();
  EXPECT_EQ(result, WAIT_TIMEOUT);
}

TEST(MovedClock, EndsAWaitForAMutex) {
  test::MovableClock clock;
  const UniqueMutex mutex(CreateMutexW(nullptr, true, nullptr));
  DWORD result = WAIT_FAILED;
  std::thread waiter([&] { result = WaitForSingleObject(mutex.get(), kHour); });
  clock.AwaitWait(kHour);
  clock.Move(1h);
  waiter.join();
  EXPECT_EQ(result, WAIT_TIMEOUT);
}

TEST(MovedClock, LeavesTheRestOfAWait) {
  test::MovableClock clock;
  const UniqueEvent event(CreateEventW(nullptr, true, false, nullptr));
  DWORD result = WAIT_FAILED;
  std::thread waiter([&] { result = WaitForSingleObject(event.get(), kHour); });
  clock.AwaitWait(kHour);
  clock.Move(30min);
  SetEvent(event.get());
  waiter.join();
  EXPECT_EQ(result, WAIT_OBJECT_0);
}

}  // namespace
