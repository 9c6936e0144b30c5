// The pools: queues of objects with callbacks to run, and the threads that run them.
//
// As many threads as the machine has processors run callbacks; more are added while callbacks block. A callback that
// submits one more leaves it to its own thread, which takes it next without asking the kernel; the poller watches that
// it does so soon, and brings another thread if it does not.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>

#include "platform/linux/poolObjects.h"

namespace platform {

class PoolWorker;

// REQUIRES: the lock, for every field and member; the atomic ones may be read without.
struct TP_POOL {
  TP_POOL() : watching{this}, inWatch(watching.begin()) {}

  std::list<PoolObject*> queue;  // Those with callbacks to run.
  std::atomic<unsigned> queued{0};
  PoolWorker* idle = nullptr;  // The thread that has slept the shortest.
  std::atomic<unsigned> idleCount{0};
  std::atomic<unsigned> workers{0};
  std::atomic<unsigned> maximum{500};
  std::atomic<bool> arriving{false};  // A thread was woken or started, and has not looked at the queue yet.
  unsigned objects = 0;
  std::atomic<std::uint64_t> begun{0};  // Callbacks, ever; counted by any thread.
  bool closed = false;

  // Of the poller.
  std::list<TP_POOL*> watching;  // One element, which is the poller's while it watches the pool.
  const std::list<TP_POOL*>::iterator inWatch;
  std::atomic<bool> watched{false};
  std::uint64_t begunAtLook = 0;
  unsigned looksWithoutProgress = 0;

  [[nodiscard]] bool Unused() const noexcept { return closed && objects == 0; }
  // Lets the threads of a pool go that nobody can use any more, and the pool with the last of them.
  void EndIfUnused() noexcept;
};

// The process's own; null, with the last error set, when there is no memory for it.
[[nodiscard]] TP_POOL* DefaultPool() noexcept;

// Queues one more callback of the object, and sees to it that a thread will run it.
void Submit(PoolObject& object, PoolLock lock) noexcept;
void Submit(PoolObject& object) noexcept;

// The calling thread may block: what it has kept for itself goes to another. To be called without the lock.
void BeforeBlocking() noexcept;

// A thread of the pool is about to be started, or is not after all. The pool lives on until it has come.
// REQUIRES: the lock.
void ExpectWorker(TP_POOL& pool) noexcept;
void ForgoWorker(TP_POOL& pool) noexcept;
// Without the lock, once it is expected. One that the host refuses now is asked for again by the poller.
void StartWorker(TP_POOL& pool) noexcept;

// For the poller, when the pool's queue has not moved for a while: whether the pool has a thread more to bring, and
// bringing it; a new one, beyond as many as there are processors, only if `mayStart`.
[[nodiscard]] bool CanBringMore(const TP_POOL& pool) noexcept;
void BringOneMore(TP_POOL& pool, bool mayStart, PoolLock lock) noexcept;

}  // namespace platform
