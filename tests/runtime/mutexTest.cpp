#include "runtime/mutex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "platform/error.h"
#include "platform/format.h"
#include "platform/movedClock.h"
#include "tests/runtime/logLines.h"
#include "tests/support/machine.h"
#include "tests/support/meeting.h"

namespace {

using namespace std::chrono_literals;
using runtime::TxMutex;
using runtimeTests::LogLines;
using testing::ElementsAre;
using testing::IsEmpty;

bool OnAnotherThread(const std::function<bool()>& what) {
  bool result = false;
  std::thread([&] { result = what(); }).join();
  return result;
}

// A thread that owns the mutex while this object exists.
class Owner {
 public:
  explicit Owner(const TxMutex& mutex)
      : thread_([this, &mutex] {
          id_ = platform::GetCurrentThreadId();
          EXPECT_TRUE(mutex.Acquire());
          owns_.Give();
          release_.Await();
          EXPECT_TRUE(mutex.Release());
        }) {
    owns_.Await();
  }
  ~Owner() {
    if (thread_.joinable()) Release();
  }
  Owner(const Owner&) = delete;
  Owner& operator=(const Owner&) = delete;
  void Release() {
    release_.Give();
    thread_.join();
  }
  [[nodiscard]] platform::DWORD Id() const { return id_; }

 private:
  support::Signal owns_;
  support::Signal release_;
  platform::DWORD id_ = 0;
  std::thread thread_;
};

TEST(TxMutex, IsAcquiredByOneThreadAtATime) {
  const TxMutex mutex;
  ASSERT_TRUE(mutex.Acquire(0));
  EXPECT_FALSE(OnAnotherThread([&] { return mutex.Acquire(0); }));
  EXPECT_TRUE(mutex.Release());
  EXPECT_TRUE(OnAnotherThread([&] { return mutex.Acquire(0) && mutex.Release(); }));
}

TEST(TxMutex, CountsHowOftenItsOwnerAcquiredIt) {
  const TxMutex mutex(true);
  EXPECT_EQ(mutex.Data()->recursionCount, 1);
  EXPECT_TRUE(mutex.Acquire());
  EXPECT_EQ(mutex.Data()->recursionCount, 2);
  EXPECT_TRUE(mutex.Release());
  EXPECT_EQ(mutex.Data()->recursionCount, 1);
  EXPECT_FALSE(OnAnotherThread([&] { return mutex.Acquire(0); }));
  EXPECT_TRUE(mutex.Release());
  EXPECT_EQ(mutex.Data()->recursionCount, 0);
  EXPECT_FALSE(mutex.Release());
}

TEST(TxMutex, KeepsItsLastOwnerAsAHint) {
  const TxMutex mutex;
  EXPECT_EQ(mutex.Data()->ownerThreadId, 0u);
  ASSERT_TRUE(mutex.Acquire());
  ASSERT_TRUE(mutex.Release());
  EXPECT_EQ(mutex.Data()->ownerThreadId, platform::GetCurrentThreadId());
}

TEST(TxMutex, IsNotReleasedByAnotherThread) {
  const TxMutex mutex(true);
  EXPECT_FALSE(OnAnotherThread([&] { return mutex.Release(); }));
  EXPECT_EQ(mutex.Data()->recursionCount, 1);
}

TEST(TxMutex, SharesItsMutexWithItsCopies) {
  const TxMutex mutex(true);
  const TxMutex copy(mutex);
  TxMutex assigned;
  assigned = mutex;
  EXPECT_EQ(copy.Data(), mutex.Data());
  EXPECT_FALSE(OnAnotherThread([&] { return copy.Acquire(0) || assigned.Acquire(0); }));
  EXPECT_TRUE(assigned.Release());
}

TEST(TxMutex, OfANameIsOneMutexForAll) {
  const support::Machine machine;
  const TxMutex first(true, "Lumenar Test Runtime");
  const TxMutex second(false, "Lumenar Test Runtime");
  EXPECT_FALSE(OnAnotherThread([&] { return second.Acquire(0); }));
}

TEST(TxMutex, OfAnEmptyNameIsOneOfItsOwn) {
  const TxMutex first(true, "");
  const TxMutex second(false, "");
  EXPECT_TRUE(OnAnotherThread([&] { return second.Acquire(0); }));
}

TEST(TxMutex, ThatCouldNotBeMadeIsNotAcquired) {
  const support::Machine machine;
  const TxMutex mutex(true, "no folder\\of that name");
  const LogLines lines;
  EXPECT_FALSE(mutex.Acquire());
  EXPECT_FALSE(mutex.Acquire(0));
  EXPECT_FALSE(mutex.Release());
  EXPECT_THAT(lines.All(), IsEmpty());
}

TEST(TxMutex, AcquireWithoutTimeOnAHeldLockFailsSilently) {
  const TxMutex mutex;
  const Owner owner(mutex);
  const LogLines lines;
  EXPECT_FALSE(mutex.Acquire(0));
  EXPECT_FALSE(mutex.Acquire(1));
  EXPECT_THAT(lines.All(), IsEmpty());
}

TEST(TxMutex, HeldForThirtySecondsIsReportedOnceAndAcquiredWhenItComesFree) {
  platform::test::MovableClock clock;
  const TxMutex mutex;
  Owner owner(mutex);
  const LogLines lines;
  bool acquired = false;
  std::thread waiter([&] { acquired = mutex.Acquire() && mutex.Release(); });
  clock.AwaitWait(30'000);
  clock.Move(29'999ms);
  EXPECT_THAT(lines.All(), IsEmpty());
  clock.Move(30s);
  const std::string report = lines.Await("W TxMutex::Acquire(): Possible deadlock");
  clock.Move(1h);
  owner.Release();
  waiter.join();
  EXPECT_TRUE(acquired);
  EXPECT_THAT(lines.All(), ElementsAre(report));
  EXPECT_EQ(report,
            *platform::FormatNarrow("W TxMutex::Acquire(): Possible deadlock trying to acquire lock 0x%p held by "
                                    "thread 0x%04x",
                                    &mutex, owner.Id()));
}

TEST(TxMutex, WithALimitReportsNothingHoweverLongItWaits) {
  platform::test::MovableClock clock;
  const TxMutex mutex;
  const Owner owner(mutex);
  const LogLines lines;
  bool acquired = true;
  std::thread waiter([&] { acquired = mutex.Acquire(60'000); });
  clock.AwaitWait(60'000);
  clock.Move(60s);
  waiter.join();
  EXPECT_FALSE(acquired);
  EXPECT_THAT(lines.All(), IsEmpty());
}

TEST(TxMutex, OfAThreadThatDiedIsReportedAsAbandonedAndCountsOne) {
  const TxMutex mutex;
  platform::DWORD dead = 0;
  std::thread([&] {
    dead = platform::GetCurrentThreadId();
    EXPECT_TRUE(mutex.Acquire());
    EXPECT_TRUE(mutex.Acquire());
  }).join();
  const LogLines lines;
  EXPECT_TRUE(mutex.Acquire());
  EXPECT_EQ(mutex.Data()->recursionCount, 1);
  EXPECT_EQ(mutex.Data()->ownerThreadId, platform::GetCurrentThreadId());
  EXPECT_THAT(lines.All(), ElementsAre(*platform::FormatNarrow(
                               "W TxMutex::Acquire(): Acquired abandoned lock 0x%p previously held by thread 0x%04x",
                               &mutex, dead)));
}

TEST(TxMutex, WhoseWaitFailsIsReportedWithTheWaitsResult) {
  const TxMutex mutex;
  // Closed behind its back, so that the wait finds no mutex.
  const platform::MutexHandle handle = mutex.Data()->handle.get();
  ASSERT_TRUE(platform::CloseHandle(handle));  // closes by hand: the mutex finds its handle gone
  const LogLines lines;
  EXPECT_FALSE(mutex.Acquire());
  EXPECT_THAT(lines.All(),
              ElementsAre(*platform::FormatNarrow(
                  "W TxMutex::Acquire(): Error -1 trying to acquire lock 0x%p held by thread 0x0000", &mutex)));
}

TEST(TxMutex, WorksWithTheLibrarysGuards) {
  const TxMutex mutex;
  {
    const std::lock_guard guard(mutex);
    EXPECT_FALSE(OnAnotherThread([&] { return mutex.Acquire(0); }));
  }
  EXPECT_TRUE(OnAnotherThread([&] { return mutex.Acquire(0) && mutex.Release(); }));
}

}  // namespace
