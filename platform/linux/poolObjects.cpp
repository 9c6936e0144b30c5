#include "platform/linux/poolObjects.h"

#include <type_traits>

#include "platform/linux/poolPoller.h"
#include "platform/linux/poolWorkers.h"

namespace platform {

PoolLock LockPools() noexcept {
  // The pools' threads outlive the process's statics: this one has nothing to destroy.
  static constinit std::mutex lock;
  static_assert(std::is_trivially_destructible_v<std::mutex>);
  return PoolLock(lock);
}

PoolObject::PoolObject(TP_POOL& pool, TP_CLEANUP_GROUP* group, void* context)
    : pool_(pool),
      group_(group),
      context_(context),
      queueing_{this},
      membership_{this},
      inQueue_(queueing_.begin()),
      inGroup_(membership_.begin()) {}

void PoolObject::Join() noexcept {
  ++pool_.objects;
  if (group_ != nullptr) group_->members.splice(group_->members.end(), membership_);
}

void PoolObject::LeaveGroup() noexcept {
  if (membership_.empty()) membership_.splice(membership_.end(), group_->members, inGroup_);
}

void PoolObject::EnterQueue() noexcept {
  pool_.queue.splice(pool_.queue.end(), queueing_);
  ++pool_.queued;
}

void PoolObject::LeaveQueue() noexcept {
  queueing_.splice(queueing_.end(), pool_.queue, inQueue_);
  --pool_.queued;
}

void PoolObject::AddPending() noexcept {
  if (pending_++ == 0) EnterQueue();
}

bool PoolObject::AddBehindPending() noexcept {
  unsigned pending = pending_.load(std::memory_order_relaxed);
  while (pending != 0 && !pending_.compare_exchange_weak(pending, pending + 1)) continue;
  return pending != 0;
}

void PoolObject::Begin() noexcept {
  if (--pending_ == 0) {
    LeaveQueue();
  } else {
    pool_.queue.splice(pool_.queue.end(), pool_.queue, inQueue_);
  }
  ++running_;
  ++associated_;
}

bool PoolObject::BeginNext() noexcept {
  unsigned pending = pending_.load(std::memory_order_relaxed);
  while (pending > 1 && !pending_.compare_exchange_weak(pending, pending - 1)) continue;
  return pending > 1;
}

void PoolObject::End(const TP_CALLBACK_INSTANCE& instance) noexcept {
  --running_;
  if (instance.associated) --associated_;
  Settle();
}

void PoolObject::Disassociate(TP_CALLBACK_INSTANCE& instance) noexcept {
  if (!instance.associated) return;
  instance.associated = false;
  --associated_;
  Settle();
}

void PoolObject::CancelPending() noexcept {
  if (pending_.exchange(0) != 0) LeaveQueue();
}

void PoolObject::WaitForCallbacks(PoolLock& lock, bool cancelPending) noexcept {
  if (cancelPending) {
    CancelPending();
    Settle();  // Others that wait may have waited for just those.
  }
  ++waiters_;
  finished_.wait(lock, [this] { return pending_ == 0 && associated_ == 0; });
  --waiters_;
  Settle();  // A callback may have closed the object meanwhile.
}

void PoolObject::CloseWhenReturned(PoolLock& lock) noexcept {
  ++waiters_;
  finished_.wait(lock, [this] { return pending_ == 0 && running_ == 0; });
  --waiters_;
  LeaveGroup();
  Close();
}

void PoolObject::Close() noexcept {
  Disarm();
  closed_ = true;
  Settle();
}

void PoolObject::Settle() noexcept {
  if (waiters_ != 0) {
    finished_.notify_all();
  } else if (closed_ && pending_ == 0 && running_ == 0) {
    TP_POOL& pool = pool_;
    LeaveGroup();
    delete this;
    --pool.objects;
    pool.EndIfUnused();
  }
}

void WaitForObject(PoolObject& object, bool cancelPending) noexcept {
  BeforeBlocking();
  PoolLock lock = LockPools();
  object.WaitForCallbacks(lock, cancelPending);
}

void CloseObject(PoolObject& object) noexcept {
  const PoolLock lock = LockPools();
  object.Close();
}

ObjectPlace PlaceOf(const TP_CALLBACK_ENVIRON* environment) noexcept {
  TP_POOL* const chosen = environment != nullptr ? environment->Pool : nullptr;
  TP_POOL* const pool = chosen != nullptr ? chosen : DefaultPool();
  if (pool == nullptr || !StartPoller(*pool)) return {};
  return {.pool = pool, .group = environment != nullptr ? environment->CleanupGroup : nullptr};
}

}  // namespace platform
