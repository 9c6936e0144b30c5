// The thread behind a ThreadHandle, and the calls that are queued to it.
#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string_view>

#include "platform/linux/events.h"

namespace platform {

// A thread is signalled once it has ended, and stays so.
class Thread final : public WaitableObject {
 public:
  Thread(std::shared_ptr<Event> ended, std::shared_ptr<Event> called) noexcept
      : ended_(std::move(ended)), called_(std::move(called)) {}
  // Null, with the last error set, when the host has no more descriptors or memory.
  [[nodiscard]] static std::shared_ptr<Thread> Create() noexcept;
  // The calling thread; null as above.
  [[nodiscard]] static std::shared_ptr<Thread> Current() noexcept;
  // The same, when somebody has asked for it before: nobody else can have queued a call to it.
  [[nodiscard]] static const std::shared_ptr<Thread>& CurrentIfAny() noexcept;
  // The running thread of that id; null when there is none that has an object.
  [[nodiscard]] static std::shared_ptr<Thread> OfId(DWORD id);
  // Makes the object that of the calling thread, which has none yet.
  static void Begin(std::shared_ptr<Thread> thread) noexcept;

  [[nodiscard]] const char* KindName() const noexcept override { return "Thread"; }
  [[nodiscard]] int PollDescriptor() const noexcept override { return ended_->PollDescriptor(); }
  [[nodiscard]] bool TryConsume() noexcept override { return ended_->TryConsume(); }

  // Queues a call. False once the thread has ended.
  bool Queue(PAPCFUNC function, std::uintptr_t parameter);
  // Makes the calls that are queued; from the thread itself. False when there are none.
  bool MakeCalls();
  // Readable when a call may be queued.
  [[nodiscard]] int CallDescriptor() const noexcept { return called_->PollDescriptor(); }

  // What the host's tools show, cut to what the host takes. False once the thread has ended.
  bool SetName(std::string_view name) noexcept;

  // The thread is about to end.
  void End() noexcept;

 private:
  struct Call {
    PAPCFUNC function;
    std::uintptr_t parameter;
  };

  const std::shared_ptr<Event> ended_;
  const std::shared_ptr<Event> called_;  // Manual-reset.
  std::mutex lock_;                      // Guards what follows.
  std::deque<Call> calls_;
  DWORD id_ = 0;  // While the thread runs.
  bool takesCalls_ = true;
};

// The thread behind a handle, the caller's own among them; null, with the last error set, when it is none.
[[nodiscard]] std::shared_ptr<Thread> FindThread(ThreadHandle handle) noexcept;

inline constexpr ThreadHandle kCurrentThread{static_cast<std::uintptr_t>(-2)};

}  // namespace platform
