#include "platform/linux/poolWorkers.h"

#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <thread>
#include <utility>

#include "platform/error.h"
#include "platform/linux/faults.h"
#include "platform/linux/poolPoller.h"

namespace platform {

// A thread of a pool. Lives on that thread's stack.
class PoolWorker {
 public:
  explicit PoolWorker(TP_POOL& pool) noexcept : pool_(pool) {}
  // Runs callbacks until the pool has no use for the thread.
  void Run();

  [[nodiscard]] TP_POOL& Pool() const noexcept { return pool_; }
  // REQUIRES: the thread has been taken from the idle ones; `polls` says whether it was in the poller's place then.
  void Wake(bool polls) noexcept {
    woken_.store(1, std::memory_order_release);
    syscall(SYS_futex, &woken_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    if (polls) WakePlace();
  }

  PoolWorker* nextIdle = nullptr;
  // A callback of this thread has submitted one that no other thread was woken for.
  bool keepsOne = false;
  // It is in the poller's place: what it serves there, it keeps.
  bool inPlace = false;

 private:
  void RunNext(PoolLock& lock);
  // False when the thread is to end instead.
  bool Rest(PoolLock& lock);
  void RestInPlace(PoolLock& lock);
  void AwaitWake(PoolLock& lock);
  void JoinIdle() noexcept;
  // False when somebody has taken it from them already.
  [[nodiscard]] bool LeaveIdle() noexcept;

  TP_POOL& pool_;
  bool arrives_ = true;      // Was woken or started.
  bool bringsNext_ = false;  // Has just arrived.
  std::atomic<std::uint32_t> woken_{0};
};

namespace {

thread_local PoolWorker* currentWorker = nullptr;

// So many callbacks a thread that waits in the poller's place runs by itself, one after the other.
constexpr unsigned kKeptInPlace = 2;

// Those that this process may use. The standard library would read a file of the host's for it.
unsigned Processors() noexcept {
  cpu_set_t usable;
  if (sched_getaffinity(0, sizeof usable, &usable) != 0) return std::max(1U, std::thread::hardware_concurrency());
  return static_cast<unsigned>(CPU_COUNT(&usable));
}

// So many threads run callbacks when none of them blocks.
unsigned Concurrency(const TP_POOL& pool) noexcept {
  static const unsigned processors = Processors();
  return std::min(processors, pool.maximum.load(std::memory_order_relaxed));
}

PoolWorker* TakeIdle(TP_POOL& pool) noexcept {
  PoolWorker* const worker = pool.idle;
  if (worker == nullptr) return nullptr;
  pool.idle = worker->nextIdle;
  --pool.idleCount;
  return worker;
}

void* RunWorker(void* pool) {
  PoolWorker(*static_cast<TP_POOL*>(pool)).Run();
  return nullptr;
}

void WakeWorker(TP_POOL& pool, PoolWorker& worker, PoolLock lock) noexcept {
  pool.arriving = true;
  const bool polls = worker.inPlace;
  lock.unlock();
  worker.Wake(polls);
}

void BringNewWorker(TP_POOL& pool, PoolLock lock) noexcept {
  ExpectWorker(pool);
  lock.unlock();
  StartWorker(pool);
}

// One more callback stands in the queue. A thread that arrives brings the next one by itself if it finds more than it
// can begin.
void BringWorker(TP_POOL& pool, PoolLock lock) noexcept {
  if (pool.arriving) return;
  if (PoolWorker* const worker = TakeIdle(pool)) {
    WakeWorker(pool, *worker, std::move(lock));
  } else if (pool.workers < Concurrency(pool)) {
    BringNewWorker(pool, std::move(lock));
  } else {
    Watch(pool);
  }
}

}  // namespace

void ExpectWorker(TP_POOL& pool) noexcept {
  pool.arriving = true;
  ++pool.workers;
}

void ForgoWorker(TP_POOL& pool) noexcept {
  pool.arriving = false;
  --pool.workers;
}

void StartWorker(TP_POOL& pool) noexcept {
  pthread_t thread{};
  if (pthread_create(&thread, nullptr, &RunWorker, &pool) == 0) {
    pthread_detach(thread);
    return;
  }
  const PoolLock lock = LockPools();
  ForgoWorker(pool);
  Watch(pool);
  pool.EndIfUnused();
}

void PoolWorker::Run() {
  currentWorker = this;
  PoolLock lock = LockPools();
  do {
    bringsNext_ = arrives_ || pool_.queued > kKeptInPlace;
    if (std::exchange(arrives_, false)) pool_.arriving = false;
    while (!pool_.queue.empty()) RunNext(lock);
  } while (Rest(lock));
  --pool_.workers;
  pool_.EndIfUnused();
}

// Callbacks of an object that has the queue to itself are run in one go, without the lock between.
void PoolWorker::RunNext(PoolLock& lock) {
  PoolObject& object = *pool_.queue.front();
  object.Begin();
  TP_CALLBACK_INSTANCE instance{.object = object};
  if (std::exchange(bringsNext_, false) && !pool_.queue.empty()) {
    BringWorker(pool_, std::move(lock));
  } else {
    lock.unlock();
  }
  do {
    keepsOne = false;
    pool_.begun.fetch_add(1, std::memory_order_relaxed);
    object.Run(instance);
  } while (instance.associated && pool_.queued.load(std::memory_order_relaxed) == 1 && object.BeginNext());
  lock = LockPools();
  object.End(instance);
}

bool PoolWorker::Rest(PoolLock& lock) {
  // Threads that were added while others blocked are not kept.
  if (pool_.Unused() || pool_.idleCount >= Concurrency(pool_)) return false;
  keepsOne = false;
  woken_.store(0, std::memory_order_relaxed);
  inPlace = TakePollersPlace();
  JoinIdle();
  if (inPlace) {
    RestInPlace(lock);
  } else {
    AwaitWake(lock);
  }
  return true;
}

void PoolWorker::RestInPlace(PoolLock& lock) {
  lock.unlock();
  PolledEvents polled;
  PollInPlace(polled);
  lock.lock();
  const bool taken = !LeaveIdle();
  lock.unlock();
  ServePolled(polled);
  lock.lock();
  inPlace = false;
  LeavePollersPlace(pool_);
  if (taken) AwaitWake(lock);
}

// Whoever has taken the thread still holds on to it until then.
void PoolWorker::AwaitWake(PoolLock& lock) {
  lock.unlock();
  while (woken_.load(std::memory_order_acquire) == 0) {
    syscall(SYS_futex, &woken_, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
  }
  lock.lock();
  arrives_ = true;
}

// The one in the poller's place is the last to be taken: it has something to wait for.
void PoolWorker::JoinIdle() noexcept {
  PoolWorker** place = &pool_.idle;
  while (inPlace && *place != nullptr) place = &(*place)->nextIdle;
  nextIdle = std::exchange(*place, this);
  ++pool_.idleCount;
}

bool PoolWorker::LeaveIdle() noexcept {
  PoolWorker** place = &pool_.idle;
  while (*place != nullptr && *place != this) place = &(*place)->nextIdle;
  if (*place == nullptr) return false;
  *place = nextIdle;
  --pool_.idleCount;
  return true;
}

void Submit(PoolObject& object, PoolLock lock) noexcept {
  TP_POOL& pool = object.Pool();
  object.AddPending();
  if (currentWorker != nullptr && &currentWorker->Pool() == &pool &&
      (!currentWorker->keepsOne || currentWorker->inPlace)) {
    currentWorker->keepsOne = true;
    Watch(pool);
    return;
  }
  BringWorker(pool, std::move(lock));
}

// Nobody needs to be woken for one more when a thread arrives anyway, or when none sleeps and none may be added but by
// the poller, which watches.
void Submit(PoolObject& object) noexcept {
  const TP_POOL& pool = object.Pool();
  const bool allAtWork = pool.watched.load(std::memory_order_relaxed) &&
                         pool.idleCount.load(std::memory_order_relaxed) == 0 &&
                         pool.workers.load(std::memory_order_relaxed) >= Concurrency(pool);
  const bool needsNobody = allAtWork || pool.arriving.load(std::memory_order_relaxed);
  if (!needsNobody || !object.AddBehindPending()) Submit(object, LockPools());
}

void BeforeBlocking() noexcept {
  if (currentWorker == nullptr) return;
  PoolLock lock = LockPools();
  FillPollersPlace();
  TP_POOL& pool = currentWorker->Pool();
  currentWorker->keepsOne = false;
  if (!pool.queue.empty()) BringWorker(pool, std::move(lock));
}

bool CanBringMore(const TP_POOL& pool) noexcept { return pool.idle != nullptr || pool.workers < pool.maximum; }

void BringOneMore(TP_POOL& pool, bool mayStart, PoolLock lock) noexcept {
  if (PoolWorker* const worker = TakeIdle(pool)) {
    WakeWorker(pool, *worker, std::move(lock));
  } else if (mayStart || pool.workers < Concurrency(pool)) {
    BringNewWorker(pool, std::move(lock));
  }
}

void TP_POOL::EndIfUnused() noexcept {
  if (!Unused()) return;
  if (workers == 0) {
    Unwatch(*this);
    delete this;
    return;
  }
  while (PoolWorker* const worker = TakeIdle(*this)) worker->Wake(worker->inPlace);
}

TP_POOL* DefaultPool() noexcept try {
  static TP_POOL& pool = *new TP_POOL;  // Never destroyed: see the lock.
  return &pool;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

PTP_POOL CreateThreadpool(std::nullptr_t) noexcept try {
  if (FaultInjected("CreateThreadpool")) return nullptr;
  return new TP_POOL;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

void SetThreadpoolThreadMaximum(PTP_POOL pool, DWORD maximum) noexcept {
  const PoolLock lock = LockPools();
  pool->maximum = std::max<DWORD>(1, maximum);
  if (!pool->queue.empty()) Watch(*pool);
}

void CloseThreadpool(PTP_POOL pool) noexcept {
  const PoolLock lock = LockPools();
  pool->closed = true;
  pool->EndIfUnused();
}

}  // namespace platform
