#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <string>

#include "platform/error.h"
#include "platform/handles.h"
#include "platform/raii.h"

namespace {

using namespace platform;

// Pages of memory that this process has in use.
long ResidentPages() {
  std::ifstream file("/proc/self/statm");
  long size = 0;
  long resident = 0;
  file >> size >> resident;
  return resident;
}

TEST(ThreadOnLinux, TakesNoMemoryForAReservation) {
  constexpr std::size_t kReserved = 256u << 20;
  const UniqueEvent arrived(CreateEventW(nullptr, true, false, nullptr));
  const UniqueEvent leave(CreateEventW(nullptr, true, false, nullptr));
  const EventHandle events[] = {arrived.get(), leave.get()};
  const long before = ResidentPages();
  const UniqueThread thread(CreateThread(
      nullptr, kReserved,
      [](void* parameter) -> DWORD {
        const auto* const both = static_cast<const EventHandle*>(parameter);
        SetEvent(both[0]);
        return WaitForSingleObject(both[1], INFINITE);
      },
      const_cast<EventHandle*>(events), STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
  ASSERT_TRUE(thread);
  ASSERT_EQ(WaitForSingleObject(arrived.get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_LT(ResidentPages() - before, static_cast<long>(kReserved / 4096 / 4));
  SetEvent(leave.get());
  EXPECT_EQ(WaitForSingleObject(thread.get(), INFINITE), WAIT_OBJECT_0);
}

TEST(ThreadOnLinux, RefusesFlagsThatItDoesNotKnow) {
  constexpr DWORD kSuspended = 4;
  EXPECT_FALSE(CreateThread(
      nullptr, 0, [](void*) -> DWORD { return 0; }, nullptr, kSuspended, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

struct SaysWhenItGoes {
  std::atomic<bool>* gone = nullptr;
  ~SaysWhenItGoes() {
    if (gone != nullptr) *gone = true;
  }
};
thread_local SaysWhenItGoes ofTheThread;

TEST(ThreadOnLinux, DestroysItsObjectsBeforeItIsSignalled) {
  for (int i = 0; i < 50; ++i) {
    std::atomic<bool> gone{false};
    const UniqueThread thread(CreateThread(
        nullptr, 0,
        [](void* parameter) -> DWORD {
          ofTheThread.gone = static_cast<std::atomic<bool>*>(parameter);
          return 0;
        },
        &gone, 0, nullptr));
    ASSERT_EQ(WaitForSingleObject(thread.get(), INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(gone);
  }
}

}  // namespace
