// What waits for descriptors and for time on behalf of all pools, until an armed wait's object may be signalled or a
// timer is due; and the one thread that looks after the pools, the poller.
//
// There is one place in which to wait. A thread of a pool that has nothing to do takes it, if it is free, so that the
// callbacks of what it waits for run on it without another thread being woken. While it runs them the place is free for
// a moment; when it stays so, the poller takes it, and wakes a thread of the pool for each callback.
#pragma once

#include <sys/epoll.h>

#include <array>
#include <cstdint>
#include <map>

#include "platform/linux/poolWorkers.h"
#include "platform/linux/waitable.h"

namespace platform {

// The waits that are armed, by the descriptors that they wait for; the timers that are set, by their deadlines. An
// entry is kept by its object while it is in neither, so that arming takes no memory.
using ArmedWaits = std::multimap<int, TP_WAIT*>;
using SetTimers = std::multimap<std::int64_t, TP_TIMER*>;

// Which clock a deadline is told by, in nanoseconds: since the start of the machine, or since 1970 in UTC. The second
// follows the machine's clock when somebody sets it.
enum class TimerClock : std::uint8_t { Steady, System };

// At the first time, the poller brings that pool its first thread, which is there when the first callback is due, and
// waits for it in the place. False, with the last error set, when the host has no thread or descriptor for a poller.
[[nodiscard]] bool StartPoller(TP_POOL& first) noexcept;

// REQUIRES of all: the lock, and a poller that was started.

// From now on the pool is looked at every millisecond, until nothing stands in its queue that a thread should be
// brought for.
void Watch(TP_POOL& pool) noexcept;
void Unwatch(TP_POOL& pool) noexcept;

// Calls Fired once for the wait when its object was signalled, having consumed the signal and taken the entry out.
ArmedWaits::iterator ArmWait(ArmedWaits::node_type entry) noexcept;
ArmedWaits::node_type DisarmWait(ArmedWaits::iterator entry) noexcept;

SetTimers::iterator SetTimer(TimerClock clock, SetTimers::node_type entry) noexcept;
SetTimers::node_type UnsetTimer(TimerClock clock, SetTimers::iterator entry) noexcept;

[[nodiscard]] std::int64_t Now(TimerClock clock) noexcept;

// What the host has told of in one sleep.
struct PolledEvents {
  std::array<epoll_event, 32> events;
  int count = 0;
};

// For a thread of a pool. True when it has the place from now on.
[[nodiscard]] bool TakePollersPlace() noexcept;
// The poller sees to it that the place does not stay free while the pool's thread is busy.
void LeavePollersPlace(TP_POOL& pool) noexcept;
// At once, if it is free: the calling thread may block.
void FillPollersPlace() noexcept;
// Without the lock, by the thread that has the place: sleeps until there is something to serve; and serves it.
void PollInPlace(PolledEvents& polled) noexcept;
void ServePolled(const PolledEvents& polled) noexcept;
// Without the lock: whoever is in the place wakes up.
void WakePlace() noexcept;

// What the poller asks of the objects.
// True when the wait's object gave its signal to it.
[[nodiscard]] bool ConsumeSignal(TP_WAIT& wait) noexcept;
void Fired(TP_WAIT& wait, ArmedWaits::node_type entry, PoolLock lock) noexcept;
void Fired(TP_TIMER& timer, SetTimers::node_type entry, PoolLock lock) noexcept;

}  // namespace platform
