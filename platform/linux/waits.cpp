#include <poll.h>
#include <time.h>

#include <array>
#include <chrono>
#include <optional>

#include "platform/linux/faults.h"
#include "platform/linux/waitable.h"

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;
using Deadline = std::optional<Clock::time_point>;  // Nothing: never.

constexpr DWORD kMaximumObjects = 64;

// Sleeps until a descriptor may be readable, or the deadline is over.
void Sleep(pollfd* descriptors, nfds_t count, const Deadline& deadline) noexcept {
  timespec left{};
  if (deadline) {
    const auto nanoseconds = std::max(*deadline - Clock::now(), Clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(nanoseconds);
    left.tv_sec = seconds.count();
    left.tv_nsec = std::chrono::nanoseconds(nanoseconds - seconds).count();
  }
  // An interrupted sleep is one that ended early: the caller looks again.
  ppoll(descriptors, count, deadline ? &left : nullptr, nullptr);
}

DWORD WaitForAny(DWORD count, const WaitableHandle* handles, DWORD milliseconds) noexcept {
  if (count == 0 || count > kMaximumObjects) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  std::array<std::shared_ptr<WaitableObject>, kMaximumObjects> objects;
  std::array<pollfd, kMaximumObjects> descriptors;
  for (DWORD i = 0; i < count; ++i) {
    objects[i] = handleTable::FindAs<WaitableObject>(handles[i].value());
    if (!objects[i]) return WAIT_FAILED;
    descriptors[i] = {.fd = objects[i]->PollDescriptor(), .events = POLLIN, .revents = 0};
  }
  Deadline deadline;
  if (milliseconds != INFINITE) deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  while (true) {
    for (DWORD i = 0; i < count; ++i) {
      if (objects[i]->TryConsume()) return WAIT_OBJECT_0 + i;
    }
    if (deadline && Clock::now() >= *deadline) return WAIT_TIMEOUT;
    Sleep(descriptors.data(), count, deadline);
  }
}

}  // namespace

bool IsReadable(int descriptor) noexcept {
  pollfd request{.fd = descriptor, .events = POLLIN, .revents = 0};
  return poll(&request, 1, 0) == 1 && (request.revents & POLLIN) != 0;
}

DWORD WaitForSingleObject(WaitableHandle handle, DWORD milliseconds) noexcept {
  if (FaultInjected("WaitForSingleObject")) return WAIT_FAILED;
  return WaitForAny(1, &handle, milliseconds);
}

DWORD WaitForMultipleObjects(DWORD count, const WaitableHandle* handles, OnlyFalse, DWORD milliseconds) noexcept {
  if (FaultInjected("WaitForMultipleObjects")) return WAIT_FAILED;
  return WaitForAny(count, handles, milliseconds);
}

}  // namespace platform
