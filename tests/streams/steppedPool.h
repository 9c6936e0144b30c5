// A thread pool without threads, in place of the system's for the test program that is linked with it. A callback runs
// when the test says so, on the thread of the test; so a test decides the order in which the library's steps happen,
// and has it again the next time. Timers are due when the test says so.
//
// The calls of the pool may be made from any thread; what is declared here is for one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace streams::pool {

// The callbacks that are queued, after a look at the waits that are set. A signalled object counts as taken.
[[nodiscard]] std::size_t Queued();

// Runs the callback at that place of the queue.
void Run(std::size_t place = 0);

// Until nothing is queued.
void RunAll();

// Sleeps until another thread has queued a callback.
void AwaitQueued();

// The timer that is set, in units of 100 ns as the pool was told; nothing when none is. One timer at a time.
struct Timer {
  std::int64_t due;
  std::uint32_t period;
  std::uint32_t window;  // Milliseconds that it may be late.
};
[[nodiscard]] std::optional<Timer> TimerSet();

// Queues the callback of the timer that is set, and unsets it.
void Fire();

// The objects that are not closed.
[[nodiscard]] std::size_t Objects();

}  // namespace streams::pool
