#include "platform/linux/events.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <cstdint>
#include <new>

#include "platform/linux/faults.h"
#include "platform/linux/hostError.h"

namespace platform {

std::shared_ptr<Event> Event::Create(bool manualReset, bool initialState) noexcept try {
  Descriptor counter(eventfd(initialState ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!counter) {
    SetLastError(ErrorFromHost(errno));
    return nullptr;
  }
  return std::make_shared<Event>(std::move(counter), manualReset);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

bool Event::TryConsume() noexcept {
  std::uint64_t count = 0;
  const bool signalled =
      manualReset_ ? IsReadable(counter_.get()) : read(counter_.get(), &count, sizeof count) == sizeof count;
  if (signalled) static_cast<void>(sets_.load(std::memory_order_acquire));
  return signalled;
}

void Event::Set() noexcept {
  sets_.fetch_add(1, std::memory_order_release);
  const std::uint64_t one = 1;
  // A full counter refuses more, and is signalled already.
  [[maybe_unused]] const ssize_t written = write(counter_.get(), &one, sizeof one);
}

void Event::Reset() noexcept {
  std::uint64_t count = 0;
  // Nothing to read means that the event was not signalled.
  [[maybe_unused]] const ssize_t got = read(counter_.get(), &count, sizeof count);
}

EventHandle CreateEventW(std::nullptr_t, bool manualReset, bool initialState, std::nullptr_t) noexcept {
  if (FaultInjected("CreateEventW")) return {};
  auto event = Event::Create(manualReset, initialState);
  return event ? EventHandle(handleTable::Add(std::move(event))) : EventHandle();
}

bool SetEvent(EventHandle handle) noexcept {
  if (FaultInjected("SetEvent")) return false;
  const auto event = handleTable::FindAs<Event>(handle.value());
  if (event) event->Set();
  return event != nullptr;
}

bool ResetEvent(EventHandle handle) noexcept {
  if (FaultInjected("ResetEvent")) return false;
  const auto event = handleTable::FindAs<Event>(handle.value());
  if (event) event->Reset();
  return event != nullptr;
}

}  // namespace platform
