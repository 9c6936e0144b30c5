// The pools: queues of objects with callbacks to run, and the threads that run them.
//
// As many threads as the machine has processors run callbacks; more are added while callbacks block. A callback that
// submits one more leaves it to its own thread, which takes it next without asking the kernel; the poller watches that
// it does so soon, and brings another thread if it does not.
#pragma once

#include <cstdint>
#include <list>

#include "platform/linux/poolObjects.h"

namespace platform {

class PoolWorker;

// REQUIRES: the lock, for every field and member.
struct TP_POOL {
  TP_POOL() : watching{this}, inWatch(watching.begin()) {}

  std::list<PoolObject*> queue;  // Those with callbacks to run.
  PoolWorker* idle = nullptr;    // The thread that has slept the shortest.
  unsigned idleCount = 0;
  unsigned workers = 0;
  unsigned maximum = 500;
  unsigned objects = 0;
  std::uint64_t begun = 0;  // Callbacks, ever.
  bool closed = false;

  // Of the poller.
  std::list<TP_POOL*> watching;  // One element, which is the poller's while it watches the pool.
  const std::list<TP_POOL*>::iterator inWatch;
  bool watched = false;
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

// The calling thread may block: what it has kept for itself goes to another. To be called without the lock.
void BeforeBlocking() noexcept;

// For the poller, when the pool's queue has not moved for a while: whether the pool has a thread more to bring, and
// bringing it; a new one, beyond as many as there are processors, only if `mayStart`.
[[nodiscard]] bool CanBringMore(const TP_POOL& pool) noexcept;
void BringOneMore(TP_POOL& pool, bool mayStart, PoolLock lock) noexcept;

}  // namespace platform
