#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <iterator>
#include <thread>

#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "tests/platform/poolSupport.h"
#include "tests/support/descriptorsLinux.h"

namespace {

using namespace pool;

// The error that a call left which failed because it was the first to be asked.
template <class Make>
DWORD ErrorOfFaulted(Make make) {
  constexpr DWORD kChosen = 1450;
  test::ArmFaults(1, false, kChosen);
  const bool made = make() != nullptr;
  const DWORD error = GetLastError();
  test::DisarmFaults();
  return made ? ERROR_SUCCESS : error == kChosen ? kChosen : ERROR_GEN_FAILURE;
}

TEST(ThreadPoolOnLinux, FailsWhereItCanFail) {
  EXPECT_EQ(ErrorOfFaulted([] { return CreateThreadpool(nullptr); }), 1450U);
  EXPECT_EQ(ErrorOfFaulted([] { return CreateThreadpoolCleanupGroup(); }), 1450U);
  EXPECT_EQ(ErrorOfFaulted([] { return CreateThreadpoolWork(nullptr, nullptr, nullptr); }), 1450U);
  EXPECT_EQ(ErrorOfFaulted([] { return CreateThreadpoolWait(nullptr, nullptr, nullptr); }), 1450U);
  EXPECT_EQ(ErrorOfFaulted([] { return CreateThreadpoolTimer(nullptr, nullptr, nullptr); }), 1450U);
}

std::ptrdiff_t Threads() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), std::filesystem::directory_iterator());
}

TEST(ThreadPoolOnLinux, KeepsNoMoreThreadsThanThereAreProcessors) {
  constexpr int kBlocked = 20;
  std::atomic<int> blocked{0};
  Signal open;
  Function block = [&](PTP_CALLBACK_INSTANCE) {
    ++blocked;
    open.Await();
  };
  const auto ofOthers = Threads();
  {
    const UniquePool pool(CreateThreadpool(nullptr));
    TP_CALLBACK_ENVIRON environment;
    InitializeThreadpoolEnvironment(&environment);
    SetThreadpoolCallbackPool(&environment, pool.get());
    const UniqueWork work = NewWork(block, &environment);
    for (int i = 0; i < kBlocked; ++i) SubmitThreadpoolWork(work.get());
    while (blocked < kBlocked) std::this_thread::yield();
    EXPECT_GE(Threads(), 1 + kBlocked);  // Threads of earlier tests may have ended meanwhile.
    open.Set();
    WaitForThreadpoolWorkCallbacks(work.get(), false);
    // They end by themselves; how soon is the host's affair.
    while (Threads() > ofOthers + static_cast<int>(std::thread::hardware_concurrency()) + 1) std::this_thread::yield();
  }
  while (Threads() > ofOthers + 1) std::this_thread::yield();  // The poller stays.
}

// Wine's pool stops on an assertion when it is closed and gets work; the system's goes on.
TEST(ThreadPoolOnLinux, MayBeClosedBeforeTheObjectsThatBelongToIt) {
  for (int i = 0; i < 200; ++i) {
    std::atomic<int> runs{0};
    Function count = [&](PTP_CALLBACK_INSTANCE) { ++runs; };
    UniqueWork work;
    {
      OneThread one;
      work = NewWork(count, one.Environment());
      SubmitThreadpoolWork(work.get());
    }
    SubmitThreadpoolWork(work.get());
    WaitForThreadpoolWorkCallbacks(work.get(), false);
    EXPECT_EQ(runs, 2);
  }
}

TEST(ThreadPoolOnLinux, WaitKeepsNoObjectAliveThatItIsDoneWith) {
  Signal done;
  Function tell = [&](PTP_CALLBACK_INSTANCE) { done.Set(); };
  const UniqueWait wait = NewWait(tell);
  const auto before = support::OpenDescriptors();
  {
    const UniqueEvent event(CreateEventW(nullptr, true, true, nullptr));
    SetThreadpoolWait(wait.get(), event.get(), nullptr);
    done.Await();
  }
  WaitForThreadpoolWaitCallbacks(wait.get(), false);
  EXPECT_EQ(support::OpenDescriptors(), before);
}

}  // namespace
