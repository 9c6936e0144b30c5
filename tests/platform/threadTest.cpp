#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>

#include "platform/error.h"
#include "platform/handles.h"
#include "platform/raii.h"
#include "tests/platform/handleSupport.h"

namespace {

using namespace platform;
using handles::NewEvent;

UniqueThread Start(ThreadStart start, void* parameter, std::size_t stackSize = 0, DWORD flags = 0) {
  return UniqueThread(CreateThread(nullptr, stackSize, start, parameter, flags, nullptr));
}

struct Meeting {
  UniqueEvent arrived = NewEvent(true);
  UniqueEvent leave = NewEvent(true);
  UniqueEvent left = NewEvent(true);
};

DWORD Attend(void* parameter) {
  const auto& meeting = *static_cast<Meeting*>(parameter);
  SetEvent(meeting.arrived.get());
  WaitForSingleObject(meeting.leave.get(), INFINITE);
  SetEvent(meeting.left.get());
  return 0;
}

TEST(Thread, IsSignalledWhenItHasEnded) {
  Meeting meeting;
  const UniqueThread thread = Start(&Attend, &meeting);
  ASSERT_TRUE(thread);
  ASSERT_EQ(WaitForSingleObject(meeting.arrived.get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(thread.get(), 0), WAIT_TIMEOUT);
  SetEvent(meeting.leave.get());
  EXPECT_EQ(WaitForSingleObject(thread.get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(thread.get(), 0), WAIT_OBJECT_0);
}

TEST(Thread, RunsOnWhenItsHandleIsClosed) {
  Meeting meeting;
  UniqueThread thread = Start(&Attend, &meeting);
  ASSERT_EQ(WaitForSingleObject(meeting.arrived.get(), INFINITE), WAIT_OBJECT_0);
  thread.reset();
  SetEvent(meeting.leave.get());
  EXPECT_EQ(WaitForSingleObject(meeting.left.get(), INFINITE), WAIT_OBJECT_0);
}

// Uses about so many bytes of stack.
DWORD Descend(std::size_t bytes) {
  volatile char frame[4096];
  frame[0] = static_cast<char>(bytes);
  if (bytes <= sizeof frame) return static_cast<DWORD>(frame[0] & 1);
  return Descend(bytes - sizeof frame) + static_cast<DWORD>(frame[0] & 1);
}

TEST(Thread, MayUseTheStackThatItReserved) {
  constexpr std::size_t kReserved = 64u << 20;
  std::atomic<bool> done{false};
  const UniqueThread thread = Start(
      [](void* parameter) -> DWORD {
        Descend(16u << 20);  // More than any default; a sanitizer's frames are larger than they look.
        *static_cast<std::atomic<bool>*>(parameter) = true;
        return 0;
      },
      &done, kReserved, STACK_SIZE_PARAM_IS_A_RESERVATION);
  ASSERT_TRUE(thread);
  ASSERT_EQ(WaitForSingleObject(thread.get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_TRUE(done);
}

TEST(Thread, MayReserveLittle) {
  Meeting meeting;
  SetEvent(meeting.leave.get());
  const UniqueThread thread = Start(&Attend, &meeting, 1, STACK_SIZE_PARAM_IS_A_RESERVATION);
  ASSERT_TRUE(thread);
  EXPECT_EQ(WaitForSingleObject(thread.get(), INFINITE), WAIT_OBJECT_0);
}

}  // namespace
