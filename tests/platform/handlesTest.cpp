#include "platform/handles.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/error.h"
#include "platform/raii.h"
#include "tests/platform/handleSupport.h"

namespace {

using namespace platform;
using handles::NewEvent;
using handles::Poll;

TEST(Event, BeginsInTheStateThatWasAskedFor) {
  EXPECT_EQ(Poll(NewEvent(true, true)), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(NewEvent(true, false)), WAIT_TIMEOUT);
  EXPECT_EQ(Poll(NewEvent(false, true)), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(NewEvent(false, false)), WAIT_TIMEOUT);
}

TEST(Event, ManualResetStaysSignalledUntilReset) {
  const UniqueEvent event = NewEvent(true, false);
  ASSERT_TRUE(SetEvent(event.get()));
  EXPECT_EQ(Poll(event), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(event), WAIT_OBJECT_0);
  ASSERT_TRUE(ResetEvent(event.get()));
  EXPECT_EQ(Poll(event), WAIT_TIMEOUT);
}

TEST(Event, AutoResetIsConsumedByOneWait) {
  const UniqueEvent event = NewEvent(false, false);
  ASSERT_TRUE(SetEvent(event.get()));
  EXPECT_EQ(Poll(event), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(event), WAIT_TIMEOUT);
}

TEST(Event, AutoResetThatIsSetTwiceIsStillOneSignal) {
  const UniqueEvent event = NewEvent(false, false);
  ASSERT_TRUE(SetEvent(event.get()));
  ASSERT_TRUE(SetEvent(event.get()));
  EXPECT_EQ(Poll(event), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(event), WAIT_TIMEOUT);
}

TEST(Event, ResetTakesBackASignalOfAnAutoResetEvent) {
  const UniqueEvent event = NewEvent(false, true);
  ASSERT_TRUE(ResetEvent(event.get()));
  EXPECT_EQ(Poll(event), WAIT_TIMEOUT);
}

TEST(Event, ResetOfAnEventThatIsNotSignalledSucceeds) {
  const UniqueEvent event = NewEvent(true, false);
  EXPECT_TRUE(ResetEvent(event.get()));
  EXPECT_EQ(Poll(event), WAIT_TIMEOUT);
}

// Several threads wait for the same event; every signal is acknowledged before the next, so each must have had exactly
// one taker.
TEST(Event, EachSignalOfAnAutoResetEventIsTakenByExactlyOneThread) {
  constexpr int kSignals = 200;
  const UniqueEvent stop = NewEvent(true, false);
  const UniqueEvent work = NewEvent(false, false);
  const UniqueEvent taken = NewEvent(false, false);
  std::atomic<int> takers{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      const WaitableHandle handles[] = {stop.get(), work.get()};
      while (WaitForMultipleObjects(2, handles, false, INFINITE) == WAIT_OBJECT_0 + 1) {
        ++takers;
        SetEvent(taken.get());
      }
    });
  }
  for (int i = 0; i < kSignals; ++i) {
    SetEvent(work.get());
    EXPECT_EQ(WaitForSingleObject(taken.get(), INFINITE), WAIT_OBJECT_0);
  }
  SetEvent(stop.get());
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(takers, kSignals);
}

TEST(Wait, WakesAWaiterThatSleeps) {
  const UniqueEvent ready = NewEvent(false, false);
  const UniqueEvent go = NewEvent(false, false);
  const UniqueEvent done = NewEvent(false, false);
  std::thread waiter([&] {
    SetEvent(ready.get());
    if (WaitForSingleObject(go.get(), INFINITE) == WAIT_OBJECT_0) SetEvent(done.get());
  });
  ASSERT_EQ(WaitForSingleObject(ready.get(), INFINITE), WAIT_OBJECT_0);
  SetEvent(go.get());
  EXPECT_EQ(WaitForSingleObject(done.get(), INFINITE), WAIT_OBJECT_0);
  waiter.join();
}

TEST(Wait, TakesTheLowestSignalledIndexAndLeavesTheOthersSignalled) {
  const UniqueEvent first = NewEvent(false, false);
  const UniqueEvent second = NewEvent(false, true);
  const UniqueEvent third = NewEvent(false, true);
  const WaitableHandle handles[] = {first.get(), second.get(), third.get()};
  EXPECT_EQ(WaitForMultipleObjects(3, handles, false, 0), WAIT_OBJECT_0 + 1);
  EXPECT_EQ(WaitForMultipleObjects(3, handles, false, 0), WAIT_OBJECT_0 + 2);
  EXPECT_EQ(WaitForMultipleObjects(3, handles, false, 0), WAIT_TIMEOUT);
}

TEST(Wait, TakesTheLowestAlsoWhenAHigherOneIsSetWhileItLooks) {
  constexpr int kRounds = 300;
  std::vector<UniqueEvent> events;
  std::vector<WaitableHandle> handles;
  for (int i = 0; i < 64; ++i) events.push_back(NewEvent(false, false));
  for (const UniqueEvent& event : events) handles.push_back(event.get());
  std::atomic round = 0;
  std::thread setter([&] {
    for (int i = 1; i <= kRounds; ++i) {
      while (round < i) std::this_thread::yield();
      SetEvent(events.front().get());
      SetEvent(events.back().get());
    }
  });
  int wrong = 0;
  for (int i = 1; i <= kRounds; ++i) {
    round = i;
    if (WaitForMultipleObjects(64, handles.data(), false, INFINITE) != WAIT_OBJECT_0) ++wrong;
    WaitForMultipleObjects(64, handles.data(), false, INFINITE);
  }
  setter.join();
  EXPECT_EQ(wrong, 0);
}

TEST(Wait, GivesUpWhenTheTimeIsOver) {
  const UniqueEvent never = NewEvent(false, false);
  const WaitableHandle handles[] = {never.get(), never.get()};
  EXPECT_EQ(WaitForSingleObject(never.get(), 1), WAIT_TIMEOUT);
  EXPECT_EQ(WaitForMultipleObjects(1, handles, false, 20), WAIT_TIMEOUT);
}

TEST(Wait, TakesSixtyFourHandlesAndNoMore) {
  std::vector<UniqueEvent> events;
  std::vector<WaitableHandle> handles;
  for (int i = 0; i < 65; ++i) handles.emplace_back(events.emplace_back(NewEvent(false, i == 63)).get());
  EXPECT_EQ(WaitForMultipleObjects(64, handles.data(), false, INFINITE), WAIT_OBJECT_0 + 63);
  EXPECT_EQ(WaitForMultipleObjects(65, handles.data(), false, 0), WAIT_FAILED);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(Wait, ForNoHandleAtAllFails) {
  const WaitableHandle handles[] = {WaitableHandle()};
  EXPECT_EQ(WaitForMultipleObjects(0, handles, false, 0), WAIT_FAILED);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(Wait, ForAHandleThatIsNotOpenFails) {
  UniqueEvent event = NewEvent(true, true);
  const EventHandle closed = event.get();
  event.reset();
  EXPECT_EQ(WaitForSingleObject(closed, 0), WAIT_FAILED);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  const WaitableHandle handles[] = {closed, EventHandle()};
  EXPECT_EQ(WaitForMultipleObjects(2, handles, false, 0), WAIT_FAILED);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(Handle, IsClosedOnce) {
  const EventHandle event = NewEvent(true, true).release();
  EXPECT_TRUE(CloseHandle(event));
  EXPECT_FALSE(CloseHandle(event));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(SetEvent(event));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(ResetEvent(event));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(Handle, NullIsNoHandle) {
  EXPECT_FALSE(CloseHandle(EventHandle()));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(SetEvent(EventHandle()));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(Handle, OfAnotherKindIsRefused) {
  const UniqueMutex mutex(CreateMutexW(nullptr, false, u"lumenar-test other kind"));
  ASSERT_TRUE(mutex);
  EXPECT_FALSE(SetEvent(EventHandle(mutex.get().value())));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  const UniqueEvent event = NewEvent(true, true);
  EXPECT_FALSE(ReleaseMutex(MutexHandle(event.get().value())));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(LastError, BelongsToTheThread) {
  SetLastError(ERROR_MORE_DATA);
  DWORD inTheOther = ERROR_MORE_DATA;
  const UniqueThread other(CreateThread(
      nullptr, 0,
      [](void* seen) -> DWORD {
        *static_cast<DWORD*>(seen) = GetLastError();
        SetLastError(ERROR_TIMEOUT);
        return 0;
      },
      &inTheOther, 0, nullptr));
  ASSERT_EQ(WaitForSingleObject(other.get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(inTheOther, ERROR_SUCCESS);
  EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
}

TEST(Owner, KeepsTheLastErrorWhenItCloses) {
  UniqueEvent event = NewEvent(true, true);
  CloseHandle(event.get());  // So the owner's own close will fail.
  SetLastError(ERROR_MORE_DATA);
  event.reset();
  EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
}

}  // namespace
