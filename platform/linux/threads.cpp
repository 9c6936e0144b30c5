#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "platform/linux/faults.h"
#include "platform/linux/hostError.h"
#include "platform/linux/threadObjects.h"

namespace platform {
namespace {

// What a new thread is told, and tells: its id is known once it runs.
class Start {
 public:
  Start(ThreadStart function, void* parameter, std::shared_ptr<Thread> thread) noexcept
      : function_(function), parameter_(parameter), thread_(std::move(thread)) {}

  // On the new thread. The object is gone once the starter knows the id.
  void Run() {
    const ThreadStart function = function_;
    void* const parameter = parameter_;
    Thread::Begin(std::move(thread_));
    {
      const std::lock_guard guard(lock_);
      id_ = GetCurrentThreadId();
      known_.notify_one();
    }
    function(parameter);
  }

  [[nodiscard]] DWORD AwaitId() {
    std::unique_lock guard(lock_);
    known_.wait(guard, [this] { return id_ != 0; });
    return id_;
  }

 private:
  const ThreadStart function_;
  void* const parameter_;
  std::shared_ptr<Thread> thread_;
  std::mutex lock_;
  std::condition_variable known_;
  DWORD id_ = 0;
};

void* RunThread(void* start) {
  static_cast<Start*>(start)->Run();
  return nullptr;
}

class Attributes {
 public:
  explicit Attributes(std::size_t stackSize) noexcept {
    pthread_attr_init(&attributes_);
    pthread_attr_setdetachstate(&attributes_, PTHREAD_CREATE_DETACHED);
    if (stackSize != 0) {
      // The host maps a stack page by page as the thread touches it, so that any size is but a reservation.
      const std::size_t smallest = std::max<std::size_t>(static_cast<std::size_t>(PTHREAD_STACK_MIN), 64 * 1024);
      pthread_attr_setstacksize(&attributes_, std::max(stackSize, smallest));
    }
  }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  ~Attributes() { pthread_attr_destroy(&attributes_); }
  [[nodiscard]] const pthread_attr_t* get() const noexcept { return &attributes_; }

 private:
  pthread_attr_t attributes_;
};

}  // namespace

ThreadHandle CreateThread(std::nullptr_t, std::size_t stackSize, ThreadStart function, void* parameter, DWORD flags,
                          DWORD* threadId) noexcept try {
  if (FaultInjected("CreateThread")) return {};
  if ((flags & ~STACK_SIZE_PARAM_IS_A_RESERVATION) != 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  auto object = Thread::Create();
  if (!object) return {};
  Start start(function, parameter, object);
  const std::uintptr_t handle = handleTable::Add(std::move(object));
  if (handle == 0) return {};
  pthread_t thread{};
  if (const int error = pthread_create(&thread, Attributes(stackSize).get(), &RunThread, &start); error != 0) {
    handleTable::Close(handle);
    SetLastError(ErrorFromHost(error));
    return {};
  }
  const DWORD id = start.AwaitId();
  if (threadId != nullptr) *threadId = id;
  return ThreadHandle(handle);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

DWORD GetCurrentThreadId() noexcept {
  thread_local const DWORD id = static_cast<DWORD>(gettid());
  return id;
}

ThreadHandle GetCurrentThread() noexcept { return kCurrentThread; }

ThreadHandle OpenThread(DWORD access, OnlyFalse, DWORD threadId) noexcept try {
  if (FaultInjected("OpenThread")) return {};
  auto thread = access == THREAD_SET_LIMITED_INFORMATION && threadId != 0 ? Thread::OfId(threadId) : nullptr;
  if (!thread) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  return ThreadHandle(handleTable::Add(std::move(thread)));
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

// Without a debugger's eyes there is but the name to set.
void RaiseException(DWORD code, DWORD, DWORD count, const std::uintptr_t* arguments) noexcept try {
  if (code != MS_VC_EXCEPTION || count * sizeof *arguments != sizeof(THREADNAME_INFO)) return;
  THREADNAME_INFO information;
  std::memcpy(static_cast<void*>(&information), arguments, sizeof information);
  const bool ofCaller = information.dwThreadID == static_cast<DWORD>(-1);
  const auto thread = ofCaller ? Thread::Current() : Thread::OfId(information.dwThreadID);
  if (thread && information.szName != nullptr) thread->SetName(information.szName);
} catch (const std::bad_alloc&) {
  // The thread keeps its name.
}

bool QueueUserAPC(PAPCFUNC function, ThreadHandle handle, std::uintptr_t parameter) noexcept try {
  if (FaultInjected("QueueUserAPC")) return false;
  const auto thread = FindThread(handle);
  if (!thread) return false;
  const bool queued = thread->Queue(function, parameter);
  if (!queued) SetLastError(ERROR_GEN_FAILURE);
  return queued;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

}  // namespace platform
