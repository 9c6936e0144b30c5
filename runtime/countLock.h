// The one lock of the process through which all reference counts change.
#pragma once

#include <atomic>

namespace runtime {

// Recursive. An uncontended lock and unlock cost less than those of a recursive mutex of the library, and every change
// of a count pays for them. Works before the first static object is made, and after the last has gone.
class CountLock {
 public:
  void lock() noexcept {
    const void* const self = &thisThread_;
    if (owner_.load(std::memory_order_relaxed) == self) {
      ++depth_;
      return;
    }
    int free = kFree;
    if (!state_.compare_exchange_strong(free, kHeld, std::memory_order_acquire, std::memory_order_relaxed)) {
      LockContended();
    }
    owner_.store(self, std::memory_order_relaxed);
  }

  void unlock() noexcept {
    if (depth_ > 0) {
      --depth_;
      return;
    }
    owner_.store(nullptr, std::memory_order_relaxed);
    if (state_.exchange(kFree, std::memory_order_release) == kAwaited) WakeOne();
  }

 private:
  static constexpr int kFree = 0;
  static constexpr int kHeld = 1;
  static constexpr int kAwaited = 2;  // Held, and somebody may be asleep.

  void LockContended() noexcept;
  static void WakeOne() noexcept;

  // Its address tells the threads apart.
  static inline thread_local char thisThread_ = 0;

  std::atomic<int> state_ = kFree;
  std::atomic<const void*> owner_ = nullptr;
  unsigned depth_ = 0;  // How often the owner has come again. Guarded by the lock itself.
};

inline constinit CountLock theCountLock;

}  // namespace runtime
