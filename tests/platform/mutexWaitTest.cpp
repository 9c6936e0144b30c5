#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/error.h"
#include "platform/handles.h"
#include "platform/raii.h"
#include "tests/support/machine.h"
#include "tests/support/meeting.h"
#include "tests/support/process.h"

namespace {

using namespace platform;

constexpr const char* kNameToWaitFor = "Lumenar Test: a mutex to wait for, \xE4";

// What holds for a mutex without a name, and for one that processes share.
class MutexWait : public testing::TestWithParam<const char*> {
 protected:
  [[nodiscard]] UniqueMutex New(bool initialOwner = false) const {
    return UniqueMutex(CreateMutexA(nullptr, initialOwner, GetParam()));
  }
  const support::Machine machine;
};

INSTANTIATE_TEST_SUITE_P(, MutexWait, testing::Values(nullptr, kNameToWaitFor),
                         [](const auto& test) { return test.param == nullptr ? "Unnamed" : "Named"; });

DWORD WaitOnAnotherThread(MutexHandle mutex, DWORD milliseconds) {
  DWORD result = WAIT_FAILED;
  std::thread([&] {
    result = WaitForSingleObject(mutex, milliseconds);
    if (result == WAIT_OBJECT_0 || result == WAIT_ABANDONED) ReleaseMutex(mutex);
  }).join();
  return result;
}

TEST_P(MutexWait, MakesTheThreadTheOwner) {
  const UniqueMutex mutex = New();
  ASSERT_EQ(WaitForSingleObject(mutex.get(), 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitOnAnotherThread(mutex.get(), 0), WAIT_TIMEOUT);
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  EXPECT_EQ(WaitOnAnotherThread(mutex.get(), 0), WAIT_OBJECT_0);
}

TEST_P(MutexWait, IsReleasedAsOftenAsItWasWaitedFor) {
  const UniqueMutex mutex = New(true);
  EXPECT_EQ(WaitForSingleObject(mutex.get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(mutex.get(), 10), WAIT_OBJECT_0);
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  EXPECT_EQ(WaitOnAnotherThread(mutex.get(), 0), WAIT_TIMEOUT);
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  EXPECT_EQ(WaitOnAnotherThread(mutex.get(), 0), WAIT_OBJECT_0);
  EXPECT_FALSE(ReleaseMutex(mutex.get()));
  EXPECT_EQ(GetLastError(), ERROR_NOT_OWNER);
}

TEST_P(MutexWait, GivesUpWhenTheTimeIsOver) {
  const UniqueMutex mutex = New(true);
  EXPECT_EQ(WaitOnAnotherThread(mutex.get(), 20), WAIT_TIMEOUT);
}

TEST_P(MutexWait, WakesWhoWaitsWhenItComesFree) {
  const UniqueMutex mutex = New(true);
  support::Signal waiting;
  DWORD result = WAIT_FAILED;
  std::thread waiter([&] {
    waiting.Give();
    result = WaitForSingleObject(mutex.get(), INFINITE);
    ReleaseMutex(mutex.get());
  });
  waiting.Await();
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  waiter.join();
  EXPECT_EQ(result, WAIT_OBJECT_0);
}

TEST_P(MutexWait, OfAThreadThatEndedAsTheOwnerIsAbandonedOnce) {
  const UniqueMutex mutex = New();
  std::thread([&] {
    WaitForSingleObject(mutex.get(), 0);
    WaitForSingleObject(mutex.get(), 0);
  }).join();
  EXPECT_EQ(WaitForSingleObject(mutex.get(), INFINITE), WAIT_ABANDONED);
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  EXPECT_FALSE(ReleaseMutex(mutex.get()));
  EXPECT_EQ(WaitForSingleObject(mutex.get(), INFINITE), WAIT_OBJECT_0);
}

TEST_P(MutexWait, SeesTheOwnersEndWhileItWaits) {
  const UniqueMutex mutex = New();
  support::Signal owned;
  support::Signal waiting;
  std::thread owner([&] {
    WaitForSingleObject(mutex.get(), 0);
    owned.Give();
    waiting.Await();
  });
  owned.Await();
  waiting.Give();
  EXPECT_EQ(WaitForSingleObject(mutex.get(), INFINITE), WAIT_ABANDONED);
  owner.join();
}

TEST_P(MutexWait, LetsOneThreadInAtATime) {
  const UniqueMutex mutex = New();
  int inside = 0;
  int rounds = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 500; ++round) {
        ASSERT_EQ(WaitForSingleObject(mutex.get(), INFINITE), WAIT_OBJECT_0);
        EXPECT_EQ(++inside, 1);
        ++rounds;
        --inside;
        ASSERT_TRUE(ReleaseMutex(mutex.get()));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(rounds, 2000);
}

TEST_P(MutexWait, OnAClosedHandleFails) {
  UniqueMutex mutex = New();
  const MutexHandle closed = mutex.get();
  mutex.reset();
  EXPECT_EQ(WaitForSingleObject(closed, 0), WAIT_FAILED);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST_P(MutexWait, OfOneThatWasClosedByAnotherThreadWhileOwnedHarmsNobody) {
  support::Signal owned;
  support::Signal closed;
  MutexHandle mutex = New().release();
  std::thread owner([&] {
    WaitForSingleObject(mutex, 0);
    owned.Give();
    closed.Await();
    const UniqueMutex other(CreateMutexA(nullptr, true, nullptr));
    EXPECT_TRUE(ReleaseMutex(other.get()));
  });
  owned.Await();
  EXPECT_TRUE(CloseHandle(mutex));
  closed.Give();
  owner.join();
}

TEST(NamedMutex, OfTheAnsiNameIsThatOfTheWideName) {
  const support::Machine machine;
  const UniqueMutex narrow(CreateMutexA(nullptr, false, kNameToWaitFor));
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  const UniqueMutex wide(CreateMutexW(nullptr, false, u"Lumenar Test: a mutex to wait for, \u00E4"));
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
}

TEST(NamedMutex, WithAnEmptyNameHasNone) {
  const UniqueMutex first(CreateMutexA(nullptr, false, ""));
  const UniqueMutex second(CreateMutexA(nullptr, false, ""));
  EXPECT_TRUE(second);
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
}

CHILD_BODY(OwnsTheMutexUntilTold) {
  const UniqueMutex mutex(CreateMutexA(nullptr, false, kNameToWaitFor));
  support::Say(std::to_string(WaitForSingleObject(mutex.get(), INFINITE)));
  static_cast<void>(support::Hear());
  ReleaseMutex(mutex.get());
  support::Say("released");
  static_cast<void>(support::Hear());
  return 0;
}

TEST(NamedMutex, KeepsOtherProcessesOut) {
  const support::Machine machine;
  support::Process child = support::StartChild("OwnsTheMutexUntilTold");
  ASSERT_EQ(child.Hear(), "0");
  const UniqueMutex mutex(CreateMutexA(nullptr, true, kNameToWaitFor));
  EXPECT_FALSE(ReleaseMutex(mutex.get()));  // It existed, so that nobody was made its owner.
  EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), WAIT_TIMEOUT);
  EXPECT_EQ(WaitForSingleObject(mutex.get(), 20), WAIT_TIMEOUT);
  child.Say("release");
  ASSERT_EQ(child.Hear(), "released");
  EXPECT_EQ(WaitForSingleObject(mutex.get(), INFINITE), WAIT_OBJECT_0);
  child.Say("end");
  EXPECT_EQ(child.Wait(), 0);
}

TEST(NamedMutex, OfAProcessThatWasKilledIsAbandoned) {
  const support::Machine machine;
  support::Process child = support::StartChild("OwnsTheMutexUntilTold");
  ASSERT_EQ(child.Hear(), "0");
  const UniqueMutex mutex(CreateMutexA(nullptr, false, kNameToWaitFor));
  child.Kill();
  EXPECT_EQ(WaitForSingleObject(mutex.get(), INFINITE), WAIT_ABANDONED);
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
}

}  // namespace
