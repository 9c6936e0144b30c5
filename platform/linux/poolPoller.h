// The one thread that waits for descriptors and for time on behalf of all pools: it sleeps until an armed wait's object
// may be signalled, a timer is due, or a pool needs to be looked at. Callbacks run on the pools' threads, never on it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

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

// False, with the last error set, when the host has no thread or descriptor for it.
[[nodiscard]] bool StartPoller() noexcept;

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

// What the poller asks of the objects.
// True when the wait's object gave its signal to it.
[[nodiscard]] bool ConsumeSignal(TP_WAIT& wait) noexcept;
void Fired(TP_WAIT& wait, ArmedWaits::node_type entry, PoolLock lock) noexcept;
void Fired(TP_TIMER& timer, SetTimers::node_type entry, PoolLock lock) noexcept;

}  // namespace platform
