// A steady clock that tests move on, for both targets. For test builds of the platform alone.
//
// While a MovableClock exists, QueryPerformanceCounter and the time-outs of waits for handles go by it: a wait ends as
// soon as its time is over by that clock.
#pragma once

#include <chrono>
#include <functional>

#include "platform/types.h"

namespace platform::test {

// One at a time.
class MovableClock {
 public:
  MovableClock();
  ~MovableClock();
  MovableClock(const MovableClock&) = delete;
  MovableClock& operator=(const MovableClock&) = delete;

  void Move(std::chrono::milliseconds time);
  // Returns once a thread is in a wait that began with just so many milliseconds.
  void AwaitWait(DWORD milliseconds);
};

// How far the clock has been moved, ever.
[[nodiscard]] std::chrono::nanoseconds TimeMoved() noexcept;

// A wait that goes by the clock, from its begin to its end. `wake` is called after each move, on the thread that moves,
// and not any more once the destructor has returned.
class ClockedWait {
 public:
  ClockedWait(DWORD milliseconds, std::function<void()> wake);
  ~ClockedWait();
  ClockedWait(const ClockedWait&) = delete;
  ClockedWait& operator=(const ClockedWait&) = delete;

 private:
  friend class MovableClock;
  const DWORD milliseconds_;
  const std::function<void()> wake_;
};

// Whether a test holds a MovableClock now.
[[nodiscard]] bool ClockIsMovable() noexcept;

}  // namespace platform::test
