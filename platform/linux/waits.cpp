#include <poll.h>
#include <time.h>

#include <array>
#include <new>
#include <optional>
#include <vector>

#include "platform/linux/deadline.h"
#include "platform/linux/faults.h"
#include "platform/linux/messageQueue.h"
#include "platform/linux/threadObjects.h"
#include "platform/linux/waitable.h"

namespace platform {
namespace {

constexpr DWORD kMaximumObjects = 64;

// One wait of the calling thread.
class Wait {
 public:
  // `messages` is null when the thread's messages do not matter, and counts as one more object otherwise.
  Wait(bool waitAll, bool alertable, MessageQueue* messages) noexcept
      : waitAll_(waitAll), alertable_(alertable), messages_(messages) {}

  // False, with the last error set, when there are too few or too many objects, or one is none.
  [[nodiscard]] bool Take(DWORD count, const WaitableHandle* handles) noexcept {
    const DWORD all = count + (messages_ != nullptr ? 1 : 0);
    if (all == 0 || count > kMaximumObjects || all > kMaximumObjects) {
      SetLastError(ERROR_INVALID_PARAMETER);
      return false;
    }
    for (count_ = 0; count_ < count; ++count_) {
      objects_[count_] = handleTable::FindAs<WaitableObject>(handles[count_].value());
      if (!objects_[count_]) return false;
    }
    return true;
  }

  [[nodiscard]] DWORD Run(DWORD milliseconds) {
    // Nothing to wait for is the common case, and needs no deadline.
    if (const auto result = Look()) return *result;
    if (milliseconds == 0) return WAIT_TIMEOUT;
    if (!ClockMayLeap() || milliseconds == INFINITE) return Await(Deadline(milliseconds), nullptr);
    const auto leap = Event::Create(false, false);
    if (!leap) return WAIT_FAILED;
    const Deadline deadline(milliseconds);
    const ClockedWait clocked(milliseconds, [&] { leap->Set(); });
    return Await(deadline, leap.get());
  }

 private:
  // `leap` is set when the clock has leapt; may be null.
  [[nodiscard]] DWORD Await(const Deadline& deadline, Event* leap) {
    while (true) {
      if (const auto result = Look()) return *result;
      if (deadline.IsOver()) return WAIT_TIMEOUT;
      Sleep(deadline, leap);
    }
  }

  // The wait's result, when it has one yet.
  [[nodiscard]] std::optional<DWORD> Look() {
    if (waitAll_) {
      if (TakeAll()) return WAIT_OBJECT_0;
    } else {
      if (const auto taken = TakeLowest()) return WAIT_OBJECT_0 + *taken;
      if (messages_ != nullptr && messages_->HasNewInput()) return WAIT_OBJECT_0 + count_;
    }
    const auto& thread = Thread::CurrentIfAny();
    if (alertable_ && thread && thread->MakeCalls()) return WAIT_IO_COMPLETION;
    return std::nullopt;
  }

  // Somebody who sets a lower one and then a higher one may come between our looks at the two: the lower one counts.
  [[nodiscard]] std::optional<DWORD> TakeLowest() {
    DWORD taken = TakeOneBelow(count_);
    if (taken == count_) return std::nullopt;
    for (DWORD lower = TakeOneBelow(taken); lower < taken; lower = TakeOneBelow(taken)) {
      objects_[taken]->Unconsume();
      taken = lower;
    }
    return taken;
  }

  // The index of what was taken; `end` when there was nothing.
  [[nodiscard]] DWORD TakeOneBelow(DWORD end) {
    DWORD i = 0;
    while (i < end && !objects_[i]->TryConsume()) ++i;
    return i;
  }

  // What another thread takes away between the look and the taking is given back, and the wait goes on.
  [[nodiscard]] bool TakeAll() {
    for (DWORD i = 0; i < count_; ++i) {
      if (!IsReadable(objects_[i]->PollDescriptor())) return false;
    }
    if (messages_ != nullptr && !messages_->HasNewInput()) return false;
    DWORD taken = 0;
    while (taken < count_ && objects_[taken]->TryConsume()) ++taken;
    if (taken == count_) return true;
    while (taken-- > 0) objects_[taken]->Unconsume();
    return false;
  }

  // Until something may have changed, or the deadline is over.
  void Sleep(const Deadline& deadline, Event* leap) {
    std::vector<pollfd> set;
    const auto add = [&](int descriptor) { set.push_back({.fd = descriptor, .events = POLLIN, .revents = 0}); };
    for (DWORD i = 0; i < count_; ++i) {
      // For all of them one waits while one is missing; those that are there would only keep it awake.
      const int descriptor = objects_[i]->PollDescriptor();
      if (!waitAll_ || !IsReadable(descriptor)) add(descriptor);
    }
    const bool handlesMissing = !set.empty();
    if (messages_ != nullptr && !(waitAll_ && handlesMissing)) messages_->AddDescriptors(set);
    const auto& thread = Thread::CurrentIfAny();
    if (alertable_ && thread) add(thread->CallDescriptor());
    if (leap != nullptr) add(leap->PollDescriptor());
    // Between the look and this list the last one missing has come.
    if (waitAll_ && !handlesMissing && messages_ == nullptr) return;
    const timespec left = deadline.IsNever() ? timespec{} : TimespecOf(deadline.Left());
    // An interrupted sleep is one that ended early: the caller looks again.
    ppoll(set.data(), set.size(), deadline.IsNever() ? nullptr : &left, nullptr);
    if (leap != nullptr) leap->Reset();
  }

  const bool waitAll_;
  const bool alertable_;
  MessageQueue* const messages_;
  DWORD count_ = 0;
  std::array<std::shared_ptr<WaitableObject>, kMaximumObjects> objects_;
};

DWORD WaitFor(DWORD count, const WaitableHandle* handles, bool waitAll, DWORD milliseconds, bool alertable,
              bool forMessages = false) noexcept try {
  Wait wait(waitAll, alertable, forMessages ? MessageQueue::OfThisThread().get() : nullptr);
  if (alertable && !Thread::Current()) return WAIT_FAILED;
  return wait.Take(count, handles) ? wait.Run(milliseconds) : WAIT_FAILED;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return WAIT_FAILED;
}

}  // namespace

bool IsReadable(int descriptor) noexcept {
  pollfd request{.fd = descriptor, .events = POLLIN, .revents = 0};
  return poll(&request, 1, 0) == 1 && (request.revents & POLLIN) != 0;
}

DWORD WaitForSingleObject(WaitableHandle handle, DWORD milliseconds) noexcept {
  if (FaultInjected("WaitForSingleObject")) return WAIT_FAILED;
  return WaitFor(1, &handle, false, milliseconds, false);
}

DWORD WaitForMultipleObjects(DWORD count, const WaitableHandle* handles, OnlyFalse, DWORD milliseconds) noexcept {
  if (FaultInjected("WaitForMultipleObjects")) return WAIT_FAILED;
  return WaitFor(count, handles, false, milliseconds, false);
}

DWORD WaitForMultipleObjectsEx(DWORD count, const WaitableHandle* handles, bool waitAll, DWORD milliseconds,
                               bool alertable) noexcept {
  if (FaultInjected("WaitForMultipleObjectsEx")) return WAIT_FAILED;
  return WaitFor(count, handles, waitAll, milliseconds, alertable);
}

DWORD MsgWaitForMultipleObjects(DWORD count, const WaitableHandle* handles, bool waitAll, DWORD milliseconds,
                                DWORD wakeMask) noexcept {
  if (FaultInjected("MsgWaitForMultipleObjects")) return WAIT_FAILED;
  if (wakeMask != QS_ALLINPUT) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  return WaitFor(count, handles, waitAll, milliseconds, false, true);
}

}  // namespace platform
