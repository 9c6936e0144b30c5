#include <gtest/gtest.h>

#include <bit>
#include <thread>

#include "platform/handles.h"
#include "platform/module.h"
#include "tests/support/threads.h"

namespace {

using namespace platform;

TEST(ThreadNameOnLinux, IsWhatWasRaised) {
  std::thread([] {
    const THREADNAME_INFO information{.szName = "raised"};
    const auto words = std::bit_cast<std::array<std::uintptr_t, 3>>(information);
    RaiseException(MS_VC_EXCEPTION, 0, words.size(), words.data());
    EXPECT_EQ(support::NameOfThisThread(), "raised");
  }).join();
}

TEST(ThreadNameOnLinux, IsCutToWhatTheHostTakes) {
  HMODULE kernel;
  ASSERT_TRUE(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, u"kernel32", &kernel));
  const auto describe = reinterpret_cast<SetThreadDescriptionFunction>(GetProcAddress(kernel, "SetThreadDescription"));
  std::thread([describe] {
    EXPECT_GE(describe(GetCurrentThread(), u"a name of many words"), 0);
    EXPECT_EQ(support::NameOfThisThread(), "a name of many ");
  }).join();
}

}  // namespace
