#include "platform/linux/threadObjects.h"

#include <new>

#include "platform/error.h"

namespace platform {
namespace {

// Signals the end of its thread. A thread's objects are destroyed in the reverse order of their construction, and for a
// thread that CreateThread made this one is the first: so all others are gone by then.
struct EndSignal {
  EndSignal() = default;
  EndSignal(const EndSignal&) = delete;
  EndSignal& operator=(const EndSignal&) = delete;
  ~EndSignal() {
    if (thread) thread->End();
  }
  std::shared_ptr<Thread> thread;
};
thread_local EndSignal endSignal;

}  // namespace

std::shared_ptr<Thread> Thread::Create() noexcept try {
  auto ended = Event::Create(true, false);
  auto called = Event::Create(true, false);
  if (!ended || !called) return nullptr;
  return std::make_shared<Thread>(std::move(ended), std::move(called));
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

void Thread::Begin(std::shared_ptr<Thread> thread) noexcept { endSignal.thread = std::move(thread); }

std::shared_ptr<Thread> Thread::Current() noexcept {
  if (!endSignal.thread) endSignal.thread = Create();
  return endSignal.thread;
}

const std::shared_ptr<Thread>& Thread::CurrentIfAny() noexcept { return endSignal.thread; }

bool Thread::Queue(PAPCFUNC function, std::uintptr_t parameter) {
  const std::lock_guard guard(lock_);
  if (!takesCalls_) return false;
  calls_.push_back({.function = function, .parameter = parameter});
  called_->Set();
  return true;
}

bool Thread::MakeCalls() {
  bool made = false;
  while (true) {
    Call call{};
    {
      const std::lock_guard guard(lock_);
      if (calls_.empty()) {
        called_->Reset();
        return made;
      }
      call = calls_.front();
      calls_.pop_front();
    }
    call.function(call.parameter);
    made = true;
  }
}

void Thread::End() noexcept {
  {
    const std::lock_guard guard(lock_);
    takesCalls_ = false;
    calls_.clear();
  }
  ended_->Set();
}

std::shared_ptr<Thread> FindThread(ThreadHandle handle) noexcept {
  return handle == kCurrentThread ? Thread::Current() : handleTable::FindAs<Thread>(handle.value());
}

}  // namespace platform
