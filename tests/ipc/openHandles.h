// What this process holds open, for tests that look for leaks.
#pragma once

#include <cstddef>

namespace ipcTests {

// The number of handles that are open now.
[[nodiscard]] std::size_t OpenHandles();

// Whether `whole` can be done without leaving a handle more open. Tried several times, as the pool of a system keeps
// what it needs for as many threads as there were at once: what leaks, leaks each time.
template <class Whole>
[[nodiscard]] bool LeavesNoHandleOpen(const Whole& whole) {
  constexpr int kTries = 30;
  for (int i = 0; i < kTries; ++i) {
    const std::size_t before = OpenHandles();
    whole();
    if (OpenHandles() <= before) return true;
  }
  return false;
}

}  // namespace ipcTests
