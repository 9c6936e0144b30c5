// What work, waits and timers of the thread pool have in common: their callbacks that are queued and running, and when
// an object may go.
//
// One lock guards every object, pool and group of the process; it is held for a few steps at a time, and never while a
// callback runs. Functions that take a PoolLock by value let it go before they return.
#pragma once

#include <atomic>
#include <condition_variable>
#include <list>
#include <mutex>
#include <new>

#include "platform/error.h"
#include "platform/threadPool.h"

namespace platform {

using PoolLock = std::unique_lock<std::mutex>;
[[nodiscard]] PoolLock LockPools() noexcept;

class PoolObject;

struct TP_CALLBACK_INSTANCE {
  PoolObject& object;
  bool associated = true;
};

struct TP_CLEANUP_GROUP {
  std::list<PoolObject*> members;
};

// REQUIRES for every member that does not say otherwise: the lock.
class PoolObject {
 public:
  PoolObject(TP_POOL& pool, TP_CLEANUP_GROUP* group, void* context);
  PoolObject(const PoolObject&) = delete;
  PoolObject& operator=(const PoolObject&) = delete;

  // Makes it known to its pool and group; once it is whole.
  void Join() noexcept;

  // Without the lock.
  virtual void Run(TP_CALLBACK_INSTANCE& instance) = 0;
  // Ends what gives the object its callbacks.
  virtual void Disarm() noexcept {}

  [[nodiscard]] TP_POOL& Pool() const noexcept { return pool_; }
  [[nodiscard]] void* Context() const noexcept { return context_; }

  // One callback more, at the back of the pool's queue if the object is not in it.
  void AddPending() noexcept;
  // The first object in the queue begins a callback, and moves to the back if there are more.
  void Begin() noexcept;
  // Short cuts that need no lock, since the object stays in the queue where it is: one callback more, behind others;
  // and the thread that has run one begins the next, which is not the last. False when it cannot be.
  [[nodiscard]] bool AddBehindPending() noexcept;
  [[nodiscard]] bool BeginNext() noexcept;
  // The callback has returned. The object may be gone when this returns.
  void End(const TP_CALLBACK_INSTANCE& instance) noexcept;
  void Disassociate(TP_CALLBACK_INSTANCE& instance) noexcept;

  void WaitForCallbacks(PoolLock& lock, bool cancelPending) noexcept;
  // Its owner needs it no longer. The object may be gone when this returns.
  void Close() noexcept;

  void CancelPending() noexcept;
  // Waits until not even a disassociated thread runs a callback, then closes: the cleanup group's end of a member.
  void CloseWhenReturned(PoolLock& lock) noexcept;

 protected:
  virtual ~PoolObject() = default;

 private:
  void EnterQueue() noexcept;
  void LeaveQueue() noexcept;
  void LeaveGroup() noexcept;
  // Tells those that wait; or lets the object go, when it is closed and nothing of it is left.
  void Settle() noexcept;

  TP_POOL& pool_;
  TP_CLEANUP_GROUP* const group_;
  void* const context_;
  // One element each, which stands in the pool's queue or the group's list, and at home otherwise: joining either takes
  // no memory, so it cannot fail.
  std::list<PoolObject*> queueing_;
  std::list<PoolObject*> membership_;
  const std::list<PoolObject*>::iterator inQueue_;
  const std::list<PoolObject*>::iterator inGroup_;
  std::condition_variable finished_;
  // From and to 0 under the lock alone: with it the object enters or leaves the queue.
  std::atomic<unsigned> pending_{0};
  unsigned running_ = 0;
  unsigned associated_ = 0;  // Of the running ones.
  unsigned waiters_ = 0;
  bool closed_ = false;
};

// Waits for the object's callbacks, and closes it, as the calls of every kind do.
void WaitForObject(PoolObject& object, bool cancelPending) noexcept;
void CloseObject(PoolObject& object) noexcept;

// The pool and the group that an environment names.
struct ObjectPlace {
  TP_POOL* pool;
  TP_CLEANUP_GROUP* group;
};
// A null pool, with the last error set, on failure.
[[nodiscard]] ObjectPlace PlaceOf(const TP_CALLBACK_ENVIRON* environment) noexcept;

// A new object in the place that the environment names. Null, with the last error set, on failure.
template <class Object, class Callback>
[[nodiscard]] Object* NewObject(const TP_CALLBACK_ENVIRON* environment, void* context, Callback callback) noexcept try {
  const ObjectPlace place = PlaceOf(environment);
  if (place.pool == nullptr) return nullptr;
  auto* const object = new Object(place, context, callback);
  const PoolLock lock = LockPools();
  object->Join();
  return object;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

}  // namespace platform
