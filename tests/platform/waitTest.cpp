#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/error.h"
#include "platform/handles.h"
#include "platform/raii.h"
#include "tests/platform/handleSupport.h"
#include "tests/platform/windowSupport.h"
#include "tests/support/machine.h"
#include "tests/support/meeting.h"

namespace {

using namespace platform;
using handles::NewEvent;

TEST(WaitForAny, TakesTheLowestSignalledIndex) {
  const UniqueEvent first = NewEvent(false, false);
  const UniqueEvent second = NewEvent(false, true);
  const UniqueEvent third = NewEvent(false, true);
  const WaitableHandle handles[] = {first.get(), second.get(), third.get()};
  EXPECT_EQ(WaitForMultipleObjectsEx(3, handles, false, INFINITE, false), WAIT_OBJECT_0 + 1);
  EXPECT_EQ(WaitForMultipleObjectsEx(3, handles, false, INFINITE, false), WAIT_OBJECT_0 + 2);
  EXPECT_EQ(WaitForMultipleObjectsEx(3, handles, false, 0, false), WAIT_TIMEOUT);
  EXPECT_EQ(WaitForMultipleObjectsEx(3, handles, false, 5, false), WAIT_TIMEOUT);
}

TEST(WaitForAny, WithANullHandleFails) {
  const UniqueEvent event = NewEvent(true, true);
  const WaitableHandle handles[] = {event.get(), WaitableHandle()};
  EXPECT_EQ(WaitForMultipleObjectsEx(2, handles, false, 0, false), WAIT_FAILED);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(WaitForAny, TakesSixtyFourHandlesAndNoMore) {
  std::vector<UniqueEvent> events;
  std::vector<WaitableHandle> handles;
  for (int i = 0; i < 65; ++i) handles.emplace_back(events.emplace_back(NewEvent(false, i == 63)).get());
  EXPECT_EQ(WaitForMultipleObjectsEx(64, handles.data(), false, 1000, false), WAIT_OBJECT_0 + 63);
  EXPECT_EQ(WaitForMultipleObjectsEx(65, handles.data(), false, 0, false), WAIT_FAILED);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(WaitForAll, TakesAllAtOnceOrNone) {
  const UniqueEvent first = NewEvent(false, true);
  const UniqueEvent second = NewEvent(false, false);
  const WaitableHandle handles[] = {first.get(), second.get()};
  EXPECT_EQ(WaitForMultipleObjectsEx(2, handles, true, 0, false), WAIT_TIMEOUT);
  EXPECT_EQ(WaitForMultipleObjectsEx(2, handles, true, 5, false), WAIT_TIMEOUT);
  SetEvent(second.get());
  EXPECT_EQ(WaitForMultipleObjectsEx(2, handles, true, INFINITE, false), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(first.get(), 0), WAIT_TIMEOUT);
  EXPECT_EQ(WaitForSingleObject(second.get(), 0), WAIT_TIMEOUT);
}

TEST(WaitForAll, SleepsUntilTheLastOneComes) {
  const UniqueEvent first = NewEvent(true, false);
  const UniqueEvent second = NewEvent(true, false);
  support::Signal waiting;
  DWORD result = WAIT_FAILED;
  std::thread waiter([&] {
    const WaitableHandle handles[] = {first.get(), second.get()};
    waiting.Give();
    result = WaitForMultipleObjectsEx(2, handles, true, INFINITE, false);
  });
  waiting.Await();
  SetEvent(second.get());
  SetEvent(first.get());
  waiter.join();
  EXPECT_EQ(result, WAIT_OBJECT_0);
}

TEST(WaitForAll, OfSeveralThreadsTakesEachSignalOnce) {
  constexpr int kRounds = 100;
  const UniqueEvent first = NewEvent(false, false);
  const UniqueEvent second = NewEvent(false, false);
  const UniqueEvent taken = NewEvent(false, false);
  const UniqueEvent stop = NewEvent(true, false);
  std::atomic<int> takers{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      const WaitableHandle both[] = {first.get(), second.get()};
      while (WaitForSingleObject(stop.get(), 0) == WAIT_TIMEOUT) {
        if (WaitForMultipleObjectsEx(2, both, true, 2, false) != WAIT_OBJECT_0) continue;
        ++takers;
        SetEvent(taken.get());
      }
    });
  }
  for (int round = 0; round < kRounds; ++round) {
    SetEvent(first.get());
    SetEvent(second.get());
    EXPECT_EQ(WaitForSingleObject(taken.get(), INFINITE), WAIT_OBJECT_0);
  }
  SetEvent(stop.get());
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(takers, kRounds);
}

void CountCall(std::uintptr_t counter) { ++*reinterpret_cast<int*>(counter); }

bool QueueToThisThread(int& counter) {
  return QueueUserAPC(&CountCall, GetCurrentThread(), reinterpret_cast<std::uintptr_t>(&counter));
}

TEST(AlertableWait, EndsWhenAllQueuedCallsHaveBeenMade) {
  const UniqueEvent never = NewEvent(true, false);
  const WaitableHandle handle = never.get();
  int calls = 0;
  ASSERT_TRUE(QueueToThisThread(calls));
  ASSERT_TRUE(QueueToThisThread(calls));
  EXPECT_EQ(WaitForMultipleObjectsEx(1, &handle, false, INFINITE, true), WAIT_IO_COMPLETION);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(WaitForMultipleObjectsEx(1, &handle, false, 0, true), WAIT_TIMEOUT);
}

TEST(AlertableWait, IsAlertedWithoutTimeToo) {
  const UniqueEvent never = NewEvent(true, false);
  const WaitableHandle handle = never.get();
  int calls = 0;
  ASSERT_TRUE(QueueToThisThread(calls));
  EXPECT_EQ(WaitForMultipleObjectsEx(1, &handle, false, 0, true), WAIT_IO_COMPLETION);
  EXPECT_EQ(calls, 1);
}

TEST(AlertableWait, PrefersAHandleThatIsSignalled) {
  const UniqueEvent signalled = NewEvent(true, true);
  const WaitableHandle handle = signalled.get();
  int calls = 0;
  ASSERT_TRUE(QueueToThisThread(calls));
  EXPECT_EQ(WaitForMultipleObjectsEx(1, &handle, false, INFINITE, true), WAIT_OBJECT_0);
  ResetEvent(signalled.get());
  EXPECT_EQ(WaitForMultipleObjectsEx(1, &handle, false, INFINITE, true), WAIT_IO_COMPLETION);
  EXPECT_EQ(calls, 1);
}

TEST(AlertableWait, LeavesQueuedCallsToTheNextOneWhenAWaitIsNot) {
  const UniqueEvent never = NewEvent(true, false);
  const WaitableHandle handle = never.get();
  int calls = 0;
  ASSERT_TRUE(QueueToThisThread(calls));
  EXPECT_EQ(WaitForMultipleObjectsEx(1, &handle, false, 0, false), WAIT_TIMEOUT);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(WaitForMultipleObjectsEx(1, &handle, false, 0, true), WAIT_IO_COMPLETION);
}

struct Sleeper {
  UniqueEvent never = NewEvent(true, false);
  UniqueEvent ready = NewEvent(true, false);
  DWORD result = WAIT_FAILED;
};

TEST(AlertableWait, IsWokenByACallFromAnotherThread) {
  Sleeper sleeper;
  const UniqueThread thread(CreateThread(
      nullptr, 0,
      [](void* parameter) -> DWORD {
        auto& own = *static_cast<Sleeper*>(parameter);
        const WaitableHandle handle = own.never.get();
        SetEvent(own.ready.get());
        own.result = WaitForMultipleObjectsEx(1, &handle, false, INFINITE, true);
        return 0;
      },
      &sleeper, 0, nullptr));
  ASSERT_TRUE(thread);
  ASSERT_EQ(WaitForSingleObject(sleeper.ready.get(), INFINITE), WAIT_OBJECT_0);
  int calls = 0;
  ASSERT_TRUE(QueueUserAPC(&CountCall, thread.get(), reinterpret_cast<std::uintptr_t>(&calls)));
  ASSERT_EQ(WaitForSingleObject(thread.get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(sleeper.result, WAIT_IO_COMPLETION);
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(QueueUserAPC(&CountCall, thread.get(), reinterpret_cast<std::uintptr_t>(&calls)));
}

DWORD MessageWait(DWORD count, const WaitableHandle* handles, DWORD milliseconds, bool waitAll = false) {
  return MsgWaitForMultipleObjects(count, handles, waitAll, milliseconds, QS_ALLINPUT);
}

void TakeMessage() {
  MSG message{};
  EXPECT_GT(GetMessageW(&message, nullptr, 0, 0), 0);
}

TEST(MessageWait, AnswersWithTheIndexBehindTheHandlesForAPostedMessage) {
  const support::Machine machine;
  const windowTests::TestWindow window(u"LumenarTest_Window");
  const UniqueEvent event = NewEvent(false, false);
  const WaitableHandle handles[] = {event.get(), event.get()};
  EXPECT_EQ(MessageWait(2, handles, 0), WAIT_TIMEOUT);
  ASSERT_TRUE(PostMessageW(window.get(), WM_USER, 0, 0));
  EXPECT_EQ(MessageWait(2, handles, INFINITE), WAIT_OBJECT_0 + 2);
  TakeMessage();
  EXPECT_EQ(MessageWait(2, handles, 0), WAIT_TIMEOUT);
}

TEST(MessageWait, PrefersAHandleThatIsSignalled) {
  const support::Machine machine;
  const windowTests::TestWindow window(u"LumenarTest_Window");
  const UniqueEvent event = NewEvent(false, true);
  const WaitableHandle handle = event.get();
  ASSERT_TRUE(PostMessageW(window.get(), WM_USER, 0, 0));
  EXPECT_EQ(MessageWait(1, &handle, INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(MessageWait(1, &handle, INFINITE), WAIT_OBJECT_0 + 1);
  TakeMessage();
}

TEST(MessageWait, WakesForTheEndOfTheMessageLoop) {
  const support::Machine machine;
  const windowTests::TestWindow window(u"LumenarTest_Window");
  PostQuitMessage(3);
  EXPECT_EQ(MessageWait(0, nullptr, INFINITE), WAIT_OBJECT_0);
  MSG message{};
  EXPECT_EQ(GetMessageW(&message, nullptr, 0, 0), 0);
}

TEST(MessageWait, IsWokenByAMessageThatIsSent) {
  const support::Machine machine;
  const windowTests::TestWindow window(u"LumenarTest_Window",
                                       [](UINT message, WPARAM, LPARAM) -> std::optional<LRESULT> {
                                         if (message == WM_USER) return 17;
                                         return std::nullopt;
                                       });
  std::uintptr_t answer = 0;
  std::thread sender([&] {
    SendMessageTimeoutW(window.get(), WM_USER, 0, 0, 0, 60'000, &answer);
    PostMessageW(window.get(), WM_USER + 1, 0, 0);
  });
  EXPECT_EQ(MessageWait(0, nullptr, INFINITE), WAIT_OBJECT_0);
  TakeMessage();
  sender.join();
  EXPECT_EQ(answer, 17u);
}

TEST(MessageWait, IsWokenByAHandle) {
  const support::Machine machine;
  const windowTests::TestWindow window(u"LumenarTest_Window");
  const UniqueEvent event = NewEvent(false, false);
  const WaitableHandle handle = event.get();
  std::thread setter([&] { SetEvent(event.get()); });
  EXPECT_EQ(MessageWait(1, &handle, INFINITE), WAIT_OBJECT_0);
  setter.join();
}

TEST(MessageWait, ForAllNeedsAMessageToo) {
  const support::Machine machine;
  const windowTests::TestWindow window(u"LumenarTest_Window");
  const UniqueEvent event = NewEvent(true, true);
  const WaitableHandle handle = event.get();
  EXPECT_EQ(MessageWait(1, &handle, 0, true), WAIT_TIMEOUT);
  ASSERT_TRUE(PostMessageW(window.get(), WM_USER, 0, 0));
  EXPECT_EQ(MessageWait(1, &handle, 1000, true), WAIT_OBJECT_0);
  TakeMessage();
}

TEST(MessageWait, TakesSixtyThreeHandlesAndNoMore) {
  const support::Machine machine;
  std::vector<UniqueEvent> events;
  std::vector<WaitableHandle> handles;
  for (int i = 0; i < 64; ++i) handles.emplace_back(events.emplace_back(NewEvent(false, i == 62)).get());
  EXPECT_EQ(MessageWait(63, handles.data(), 1000), WAIT_OBJECT_0 + 62);
  EXPECT_EQ(MessageWait(64, handles.data(), 0), WAIT_FAILED);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

}  // namespace
