#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

#include "platform/linux/events.h"
#include "platform/linux/faults.h"
#include "platform/linux/hostError.h"

namespace platform {
namespace {

// A thread is signalled once it has ended, and stays so.
class Thread final : public WaitableObject {
 public:
  explicit Thread(std::shared_ptr<Event> ended) noexcept : ended_(std::move(ended)) {}
  [[nodiscard]] const char* KindName() const noexcept override { return "Thread"; }
  [[nodiscard]] int PollDescriptor() const noexcept override { return ended_->PollDescriptor(); }
  [[nodiscard]] bool TryConsume() noexcept override { return ended_->TryConsume(); }

 private:
  const std::shared_ptr<Event> ended_;
};

struct Start {
  ThreadStart function;
  void* parameter;
  std::shared_ptr<Event> ended;
};

// Signals the end of its thread. A thread's objects are destroyed in the reverse order of their construction, and this
// one is the first: so all others are gone by then.
struct EndSignal {
  EndSignal() = default;
  EndSignal(const EndSignal&) = delete;
  EndSignal& operator=(const EndSignal&) = delete;
  ~EndSignal() {
    if (ended) ended->Set();
  }
  std::shared_ptr<Event> ended;
};
thread_local EndSignal endSignal;

void* RunThread(void* parameter) {
  const std::unique_ptr<Start> start(static_cast<Start*>(parameter));
  endSignal.ended = std::move(start->ended);
  start->function(start->parameter);
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
                          std::nullptr_t) noexcept try {
  if (FaultInjected("CreateThread")) return {};
  if ((flags & ~STACK_SIZE_PARAM_IS_A_RESERVATION) != 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  auto ended = Event::Create(true, false);
  if (!ended) return {};
  auto start = std::make_unique<Start>(Start{.function = function, .parameter = parameter, .ended = ended});
  const std::uintptr_t handle = handleTable::Add(std::make_shared<Thread>(std::move(ended)));
  if (handle == 0) return {};
  pthread_t thread{};
  if (const int error = pthread_create(&thread, Attributes(stackSize).get(), &RunThread, start.get()); error != 0) {
    handleTable::Close(handle);
    SetLastError(ErrorFromHost(error));
    return {};
  }
  static_cast<void>(start.release());  // The thread's from here on.
  return ThreadHandle(handle);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

}  // namespace platform
