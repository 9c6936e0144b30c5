#include "platform/movedClock.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace platform::test {
namespace {

struct Clock {
  std::atomic<std::int64_t> nanosecondsMoved{0};
  std::atomic<bool> movable{false};
  std::mutex lock;  // Guards what follows.
  std::vector<ClockedWait*> waits;
  std::condition_variable begun;
};

Clock& TheClock() {
  static Clock& clock = *new Clock;
  return clock;
}

}  // namespace

MovableClock::MovableClock() { TheClock().movable = true; }
MovableClock::~MovableClock() { TheClock().movable = false; }

void MovableClock::Move(std::chrono::milliseconds time) {
  Clock& clock = TheClock();
  const std::lock_guard guard(clock.lock);
  clock.nanosecondsMoved += std::chrono::nanoseconds(time).count();
  for (const ClockedWait* wait : clock.waits) wait->wake_();
}

void MovableClock::AwaitWait(DWORD milliseconds) {
  Clock& clock = TheClock();
  std::unique_lock guard(clock.lock);
  const auto began = [&](const ClockedWait* wait) { return wait->milliseconds_ == milliseconds; };
  clock.begun.wait(guard, [&] { return std::ranges::any_of(clock.waits, began); });
}

std::chrono::nanoseconds TimeMoved() noexcept { return std::chrono::nanoseconds(TheClock().nanosecondsMoved.load()); }

bool ClockIsMovable() noexcept { return TheClock().movable; }

ClockedWait::ClockedWait(DWORD milliseconds, std::function<void()> wake)
    : milliseconds_(milliseconds), wake_(std::move(wake)) {
  Clock& clock = TheClock();
  const std::lock_guard guard(clock.lock);
  clock.waits.push_back(this);
  clock.begun.notify_all();
}

ClockedWait::~ClockedWait() {
  Clock& clock = TheClock();
  const std::lock_guard guard(clock.lock);
  std::erase(clock.waits, this);
}

}  // namespace platform::test
