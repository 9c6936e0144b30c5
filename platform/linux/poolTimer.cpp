#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

#include "platform/linux/faults.h"
#include "platform/linux/poolPoller.h"

namespace platform {
namespace {

constexpr std::int64_t kLatest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kUnitsFrom1601To1970 = 116'444'736'000'000'000;

struct DueTime {
  TimerClock clock;
  std::int64_t nanoseconds;
};

// Both at least 0. What is too far away to be told is the farthest time that can be.
std::int64_t AddCapped(std::int64_t left, std::int64_t right) {
  return left > kLatest - right ? kLatest : left + right;
}
std::int64_t NanosecondsIn(std::int64_t units) { return units > kLatest / 100 ? kLatest : units * 100; }

DueTime DueTimeOf(const FILETIME& due) {
  const auto bits = static_cast<std::uint64_t>(due.dwHighDateTime) << 32 | due.dwLowDateTime;
  const auto units = static_cast<std::int64_t>(bits);
  if (units > 0) {
    return {.clock = TimerClock::System,
            .nanoseconds = NanosecondsIn(std::max<std::int64_t>(0, units - kUnitsFrom1601To1970))};
  }
  const std::int64_t delay = units == std::numeric_limits<std::int64_t>::min() ? kLatest : -units;
  return {.clock = TimerClock::Steady, .nanoseconds = AddCapped(Now(TimerClock::Steady), NanosecondsIn(delay))};
}

}  // namespace

struct TP_TIMER final : PoolObject {
  TP_TIMER(ObjectPlace place, void* context, PTP_TIMER_CALLBACK function)
      : PoolObject(*place.pool, place.group, context), callback(function) {
    SetTimers home{{0, this}};
    entry = home.extract(home.begin());
  }
  void Run(TP_CALLBACK_INSTANCE& instance) override { callback(&instance, Context(), this); }

  void Disarm() noexcept override {
    if (set) entry = UnsetTimer(clock, *std::exchange(set, std::nullopt));
  }
  void Set(DueTime due) noexcept {
    clock = due.clock;
    entry.key() = due.nanoseconds;
    set = SetTimer(clock, std::move(entry));
  }

  const PTP_TIMER_CALLBACK callback;
  DWORD period = 0;  // Milliseconds.
  TimerClock clock = TimerClock::Steady;
  SetTimers::node_type entry;  // While it is not set.
  std::optional<SetTimers::iterator> set;
};

void Fired(TP_TIMER& timer, SetTimers::node_type entry, PoolLock lock) noexcept {
  const std::int64_t due = entry.key();
  timer.entry = std::move(entry);
  timer.set.reset();
  if (timer.period != 0) {
    // From one due time to the next, however late the poller is; but what was missed is not made up for.
    const std::int64_t now = Now(TimerClock::Steady);
    const std::int64_t last = timer.clock == TimerClock::Steady ? due : now;
    timer.Set(
        {.clock = TimerClock::Steady, .nanoseconds = std::max(now, last + timer.period * std::int64_t{1'000'000})});
  }
  Submit(timer, std::move(lock));
}

PTP_TIMER CreateThreadpoolTimer(PTP_TIMER_CALLBACK callback, void* context,
                                const TP_CALLBACK_ENVIRON* environment) noexcept {
  if (FaultInjected("CreateThreadpoolTimer")) return nullptr;
  return NewObject<TP_TIMER>(environment, context, callback);
}

void SetThreadpoolTimer(PTP_TIMER timer, const FILETIME* dueTime, DWORD period, DWORD) noexcept {
  const PoolLock lock = LockPools();
  timer->Disarm();
  timer->period = period;
  if (dueTime != nullptr) timer->Set(DueTimeOf(*dueTime));
}

void WaitForThreadpoolTimerCallbacks(PTP_TIMER timer, bool cancelPending) noexcept {
  WaitForObject(*timer, cancelPending);
}

void CloseThreadpoolTimer(PTP_TIMER timer) noexcept { CloseObject(*timer); }

}  // namespace platform
