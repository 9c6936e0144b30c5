// Until when a call of this layer waits.
#pragma once

#include <time.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>

#include "platform/types.h"
#if LUMENAR_TEST_HOOKS
#include "platform/movedClock.h"
#endif

namespace platform {

// The steady clock; in a test build, as far on as the test has moved it.
[[nodiscard]] inline std::chrono::steady_clock::time_point SteadyNow() noexcept {
#if LUMENAR_TEST_HOOKS
  return std::chrono::steady_clock::now() + test::TimeMoved();
#else
  return std::chrono::steady_clock::now();
#endif
}

// For calls of the host; no time where it is over.
[[nodiscard]] inline timespec TimespecOf(std::chrono::nanoseconds time) noexcept {
  time = std::max(time, std::chrono::nanoseconds::zero());
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  return {.tv_sec = seconds.count(), .tv_nsec = (time - seconds).count()};
}

class Deadline {
 public:
  // So many milliseconds from now; INFINITE is never.
  explicit Deadline(DWORD milliseconds) noexcept {
    if (milliseconds != INFINITE) end_ = SteadyNow() + std::chrono::milliseconds(milliseconds);
  }

  [[nodiscard]] bool IsNever() const noexcept { return !end_; }
  [[nodiscard]] bool IsOver() const noexcept { return end_ && SteadyNow() >= *end_; }
  // REQUIRES: not never.
  [[nodiscard]] std::chrono::nanoseconds Left() const noexcept {
    return std::max(*end_ - SteadyNow(), std::chrono::nanoseconds::zero());
  }

 private:
  std::optional<std::chrono::steady_clock::time_point> end_;
};

#if LUMENAR_TEST_HOOKS
using ClockedWait = test::ClockedWait;
[[nodiscard]] inline bool ClockMayLeap() noexcept { return test::ClockIsMovable(); }
#else
// A real clock needs nobody to be woken.
class ClockedWait {
 public:
  ClockedWait(DWORD, const std::function<void()>&) noexcept {}
};
[[nodiscard]] constexpr bool ClockMayLeap() noexcept { return false; }
#endif

}  // namespace platform
