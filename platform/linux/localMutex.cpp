#include <atomic>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/handles.h"
#include "platform/linux/mutexObjects.h"

namespace platform {
namespace {

thread_local LocalMutex* owned = nullptr;

struct Abandoner {
  Abandoner() = default;
  Abandoner(const Abandoner&) = delete;
  Abandoner& operator=(const Abandoner&) = delete;
  ~Abandoner() { LocalMutex::AbandonOwned(); }
  bool used = false;
};
thread_local Abandoner abandoner;

}  // namespace

ThreadNumber NumberOfThisThread() noexcept {
  static std::atomic<ThreadNumber> last{0};
  thread_local ThreadNumber number = 0;
  if (number == 0) number = ++last;
  return number;
}

DWORD LocalMutex::Wait(DWORD milliseconds) {
  {
    const std::lock_guard guard(guard_);
    if (owner_ == NumberOfThisThread()) {
      ++depth_;
      return WAIT_OBJECT_0;
    }
    if (owner_ == 0) return Take();
  }
  if (milliseconds == 0) return WAIT_TIMEOUT;
  const Deadline deadline(milliseconds);
  std::optional<ClockedWait> clocked;  // Goes behind the guard, which its call takes.
  if (ClockMayLeap() && !deadline.IsNever()) {
    clocked.emplace(milliseconds, [this] {
      { const std::lock_guard guard(guard_); }
      free_.notify_all();
    });
  }
  std::unique_lock guard(guard_);
  ++waiting_;
  while (owner_ != 0 && !deadline.IsOver()) {
    if (deadline.IsNever()) {
      free_.wait(guard);
    } else {
      free_.wait_for(guard, deadline.Left());
    }
  }
  --waiting_;
  return owner_ == 0 ? Take() : WAIT_TIMEOUT;
}

// REQUIRES: the guard, and no owner.
DWORD LocalMutex::Take() {
  AddToOwned();
  owner_ = NumberOfThisThread();
  depth_ = 1;
  return std::exchange(abandoned_, false) ? WAIT_ABANDONED : WAIT_OBJECT_0;
}

bool LocalMutex::Release() noexcept {
  std::shared_ptr<LocalMutex> self;  // Goes when the guard has gone.
  const std::lock_guard guard(guard_);
  if (owner_ != NumberOfThisThread()) return false;
  if (--depth_ > 0) return true;
  owner_ = 0;
  self = RemoveFromOwned();
  if (waiting_ > 0) free_.notify_one();
  return true;
}

void LocalMutex::AddToOwned() {
  abandoner.used = true;  // So that it is there, and sees the thread's end.
  self_ = shared_from_this();
  nextOwned_ = std::exchange(owned, this);
}

std::shared_ptr<LocalMutex> LocalMutex::RemoveFromOwned() noexcept {
  LocalMutex** place = &owned;
  while (*place != this) place = &(*place)->nextOwned_;
  *place = std::exchange(nextOwned_, nullptr);
  return std::move(self_);
}

void LocalMutex::AbandonOwned() noexcept {
  while (owned != nullptr) {
    std::shared_ptr<LocalMutex> self;
    LocalMutex& mutex = *owned;
    const std::lock_guard guard(mutex.guard_);
    mutex.owner_ = 0;
    mutex.abandoned_ = true;
    self = mutex.RemoveFromOwned();
    mutex.free_.notify_all();
  }
}

}  // namespace platform
