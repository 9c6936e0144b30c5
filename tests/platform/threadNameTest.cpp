#include <gtest/gtest.h>

#include <bit>
#include <thread>

#include "platform/error.h"
#include "platform/handles.h"
#include "platform/module.h"
#include "platform/raii.h"
#include "tests/support/threads.h"

namespace {

using namespace platform;

SetThreadDescriptionFunction Describe() {
  HMODULE kernel;
  EXPECT_TRUE(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, u"Kernel32.dll", &kernel));
  return reinterpret_cast<SetThreadDescriptionFunction>(GetProcAddress(kernel, "SetThreadDescription"));
}

// A thread that tells its name when asked to.
struct Told {
  UniqueEvent ask{CreateEventW(nullptr, true, false, nullptr)};
  std::string name;
  DWORD id = 0;
};

UniqueThread StartTeller(Told& told, DWORD* id) {
  return UniqueThread(CreateThread(
      nullptr, 0,
      [](void* parameter) -> DWORD {
        auto& own = *static_cast<Told*>(parameter);
        own.id = GetCurrentThreadId();
        WaitForSingleObject(own.ask.get(), INFINITE);
        own.name = support::NameOfThisThread();
        return 0;
      },
      &told, 0, id));
}

std::string Ask(Told& told, const UniqueThread& thread) {
  SetEvent(told.ask.get());
  EXPECT_EQ(WaitForSingleObject(thread.get(), INFINITE), WAIT_OBJECT_0);
  return told.name;
}

TEST(ThreadId, IsToldByCreateThread) {
  Told told;
  DWORD id = 0;
  const UniqueThread thread = StartTeller(told, &id);
  ASSERT_TRUE(thread);
  Ask(told, thread);
  EXPECT_EQ(told.id, id);
  EXPECT_NE(id, GetCurrentThreadId());
  EXPECT_NE(id, 0u);
}

TEST(ThreadName, IsSetByTheThreadItself) {
  ASSERT_NE(Describe(), nullptr);
  std::thread([] {
    EXPECT_GE(Describe()(GetCurrentThread(), u"its own"), 0);
    EXPECT_EQ(support::NameOfThisThread(), "its own");
  }).join();
}

TEST(ThreadName, IsSetByTheThreadsId) {
  Told told;
  DWORD id = 0;
  const UniqueThread thread = StartTeller(told, &id);
  const UniqueThread opened(OpenThread(THREAD_SET_LIMITED_INFORMATION, false, id));
  ASSERT_TRUE(opened);
  EXPECT_GE(Describe()(opened.get(), u"by its id"), 0);
  EXPECT_EQ(Ask(told, thread), "by its id");
}

TEST(ThreadName, OfNoThreadCannotBeSet) { EXPECT_LT(Describe()(ThreadHandle(), u"nobody"), 0); }

TEST(OpenThread, FindsNoThreadThatHasEnded) {
  Told told;
  DWORD id = 0;
  UniqueThread thread = StartTeller(told, &id);
  Ask(told, thread);
  thread.reset();
  EXPECT_FALSE(OpenThread(THREAD_SET_LIMITED_INFORMATION, false, id));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(OpenThread(THREAD_SET_LIMITED_INFORMATION, false, 0));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(DuplicatedThread, IsWaitedForWhenTheFirstHandleIsClosed) {
  Told told;
  UniqueThread thread = StartTeller(told, nullptr);
  UniqueThread duplicate;
  ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), thread.get(), GetCurrentProcess(), duplicate.put(), 0, false,
                              DUPLICATE_SAME_ACCESS));
  EXPECT_NE(duplicate.get(), thread.get());
  thread.reset();
  EXPECT_EQ(WaitForSingleObject(duplicate.get(), 0), WAIT_TIMEOUT);
  SetEvent(told.ask.get());
  EXPECT_EQ(WaitForSingleObject(duplicate.get(), INFINITE), WAIT_OBJECT_0);
}

TEST(DuplicatedThread, OfTheCallerMeansItForOthers) {
  UniqueThread own;
  std::thread other([&] {
    EXPECT_TRUE(DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), own.put(), 0, false,
                                DUPLICATE_SAME_ACCESS));
    EXPECT_EQ(WaitForSingleObject(own.get(), 0), WAIT_TIMEOUT);
  });
  other.join();
  EXPECT_EQ(WaitForSingleObject(own.get(), INFINITE), WAIT_OBJECT_0);
}

TEST(DuplicatedThread, OfNoHandleFails) {
  ThreadHandle duplicate;
  EXPECT_FALSE(DuplicateHandle(GetCurrentProcess(), ThreadHandle(), GetCurrentProcess(), &duplicate, 0, false,
                               DUPLICATE_SAME_ACCESS));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(duplicate);
}

// Nobody can tell what a debugger has learnt; the thread goes on, and the host's tools may show the name.
TEST(ThreadName, IsRaisedForDebuggersAndTheThreadGoesOn) {
  std::thread([] {
    const THREADNAME_INFO information{.szName = "raised"};
    const auto words = std::bit_cast<std::array<std::uintptr_t, 3>>(information);
    RaiseException(MS_VC_EXCEPTION, 0, words.size(), words.data());
    SUCCEED();
  }).join();
}

}  // namespace
