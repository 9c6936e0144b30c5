#include "platform/windows/waits.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <chrono>

#if LUMENAR_TEST_HOOKS
#include "platform/movedClock.h"
#endif

namespace platform {

#if LUMENAR_TEST_HOOKS
namespace {

std::chrono::nanoseconds Now() noexcept {
  return std::chrono::steady_clock::now().time_since_epoch() + test::TimeMoved();
}

struct Leap {
  Leap() = default;
  Leap(const Leap&) = delete;
  Leap& operator=(const Leap&) = delete;
  ~Leap() { ::CloseHandle(event); }
  const ::HANDLE event = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
};

// Waits for one thing more, which says that the clock has leapt.
DWORD WaitByTheTestsClock(DWORD count, NativeHandle const* handles, DWORD milliseconds, bool alertable) {
  std::array<::HANDLE, MAXIMUM_WAIT_OBJECTS> all{};
  std::copy_n(handles, count, all.begin());
  const Leap leap;
  all[count] = leap.event;
  const auto end = Now() + std::chrono::milliseconds(milliseconds);
  const test::ClockedWait clocked(milliseconds, [&] { ::SetEvent(leap.event); });
  while (true) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(std::max(end - Now(), std::chrono::nanoseconds::zero()));
    const ::DWORD result =
        ::WaitForMultipleObjectsEx(count + 1, all.data(), FALSE, static_cast<::DWORD>(left.count()), alertable);
    if (result != WAIT_OBJECT_0 + count) return result;
  }
}

}  // namespace

std::int64_t CounterMoved() noexcept {
  std::int64_t frequency = 0;
  ::QueryPerformanceFrequency(reinterpret_cast<LARGE_INTEGER*>(&frequency));
  return std::chrono::duration_cast<std::chrono::milliseconds>(test::TimeMoved()).count() * frequency / 1000;
}
#else
std::int64_t CounterMoved() noexcept { return 0; }
#endif

DWORD WaitFor(DWORD count, NativeHandle const* handles, bool waitAll, DWORD milliseconds, bool alertable) noexcept {
#if LUMENAR_TEST_HOOKS
  const bool timed = milliseconds != 0 && milliseconds != INFINITE;
  if (timed && !waitAll && count > 0 && count < MAXIMUM_WAIT_OBJECTS && test::ClockIsMovable()) {
    return WaitByTheTestsClock(count, handles, milliseconds, alertable);
  }
#endif
  return ::WaitForMultipleObjectsEx(count, handles, waitAll, milliseconds, alertable);
}

}  // namespace platform
