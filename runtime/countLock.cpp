#include "runtime/countLock.h"

#include <condition_variable>
#include <mutex>

namespace runtime {
namespace {

// Those who wait for the lock. A library whose atomics wait without the system's help may lose a wake-up, so it is the
// classic pair.
struct Sleepers {
  std::mutex lock;
  std::condition_variable wake;
};

// Never destroyed: counts change while the process's statics go.
Sleepers& TheSleepers() {
  static Sleepers& sleepers = *new Sleepers;
  return sleepers;
}

}  // namespace

// No look ahead of the sleep: with threads that come again and again, each sleeper lets another one run undisturbed,
// and all get on faster than when they pull the lock from one processor to the next.
void CountLock::LockContended() noexcept {
  Sleepers& sleepers = TheSleepers();
  std::unique_lock sleeping(sleepers.lock);
  while (state_.exchange(kAwaited, std::memory_order_acquire) != kFree) sleepers.wake.wait(sleeping);
}

void CountLock::WakeOne() noexcept {
  Sleepers& sleepers = TheSleepers();
  // Whoever has seen the lock held is asleep once this is ours.
  { const std::lock_guard sleeping(sleepers.lock); }
  sleepers.wake.notify_one();
}

}  // namespace runtime
