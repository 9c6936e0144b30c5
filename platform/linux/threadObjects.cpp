#include "platform/linux/threadObjects.h"

#include <fcntl.h>

#include <new>
#include <string>
#include <vector>

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

// The threads that run and have an object. Never destroyed: threads may end last.
struct Running {
  std::mutex lock;
  std::vector<std::weak_ptr<Thread>> threads;
};

Running& TheRunning() {
  static Running& running = *new Running;
  return running;
}

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

void Thread::Begin(std::shared_ptr<Thread> thread) noexcept {
  Running& running = TheRunning();
  {
    const std::lock_guard guard(running.lock);
    std::erase_if(running.threads, [](const auto& other) { return other.expired(); });
    running.threads.push_back(thread);
  }
  const std::lock_guard guard(thread->lock_);
  thread->id_ = GetCurrentThreadId();
  endSignal.thread = std::move(thread);
}

std::shared_ptr<Thread> Thread::Current() noexcept {
  if (!endSignal.thread) {
    if (auto created = Create()) Begin(std::move(created));
  }
  return endSignal.thread;
}

std::shared_ptr<Thread> Thread::OfId(DWORD id) {
  Running& running = TheRunning();
  const std::lock_guard guard(running.lock);
  for (const auto& weak : running.threads) {
    auto thread = weak.lock();
    if (!thread) continue;
    const std::lock_guard guardOfThread(thread->lock_);
    if (thread->id_ == id) return thread;
  }
  return nullptr;
}

bool Thread::SetName(std::string_view name) noexcept try {
  constexpr std::size_t kLongestName = 15;
  const std::lock_guard guard(lock_);  // Until the end of the call the id stays this thread's.
  if (id_ == 0) return false;
  name = name.substr(0, kLongestName);
  const std::string path = "/proc/self/task/" + std::to_string(id_) + "/comm";
  const Descriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  return file && write(file.get(), name.data(), name.size()) == static_cast<ssize_t>(name.size());
} catch (const std::bad_alloc&) {
  return false;
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
    id_ = 0;
    calls_.clear();
  }
  ended_->Set();
}

std::shared_ptr<Thread> FindThread(ThreadHandle handle) noexcept {
  return handle == kCurrentThread ? Thread::Current() : handleTable::FindAs<Thread>(handle.value());
}

}  // namespace platform
