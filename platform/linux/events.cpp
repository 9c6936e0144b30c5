#include "platform/linux/events.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <new>
#include <string>

#include "platform/linux/ansi.h"
#include "platform/linux/faults.h"
#include "platform/linux/hostError.h"
#include "platform/linux/namedObjects.h"

namespace platform {
namespace {

constexpr int kFifoSize = 4096;  // The least that the host has.

// Takes all there is. False when there was nothing.
bool Drain(const Descriptor& counter) noexcept {
  std::array<char, kFifoSize> bytes;
  return read(counter.get(), bytes.data(), bytes.size()) > 0;
}

// Its bytes live exactly as long as somebody has it open.
Descriptor OpenFifo(const std::string& path) noexcept {
  const bool there = mkfifo(path.c_str(), 0600) == 0 || errno == EEXIST;
  Descriptor fifo(there ? open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW) : -1);
  if (fifo && fcntl(fifo.get(), F_SETPIPE_SZ, kFifoSize) < 0) fifo = Descriptor();
  if (!fifo) SetLastError(ErrorFromHost(errno));
  return fifo;
}

// No object's name has a dot in its file's.
std::string FifoPath(const std::string& path) { return path + ".signal"; }

std::shared_ptr<Event> MakeEvent(Descriptor fifo, namedObjects::Opened opened) {
  const bool manualReset = opened.kind == namedObjects::Kind::ManualResetEvent;
  return std::make_shared<Event>(std::move(fifo), manualReset, std::move(opened.file));
}

// The event of a name that was there. Null, with the last error set, when it is none or cannot be opened.
std::shared_ptr<Event> Joined(const std::string& path, namedObjects::Opened opened) {
  if (opened.kind == namedObjects::Kind::Mutex) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  Descriptor fifo = OpenFifo(FifoPath(path));
  return fifo ? MakeEvent(std::move(fifo), std::move(opened)) : nullptr;
}

EventHandle AddEvent(std::shared_ptr<Event> event, bool isNew) noexcept {
  if (!event) return {};
  const EventHandle handle(handleTable::Add(std::move(event)));
  if (handle) SetLastError(isNew ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
  return handle;
}

}  // namespace

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

std::shared_ptr<Event> Event::Open(std::u16string_view name, bool manualReset, bool initialState, bool& isNew) {
  using namedObjects::Kind;
  const std::string path = namedObjects::PathOf(name);
  if (path.empty()) return nullptr;
  Descriptor fifo;
  const auto make = [&](const Descriptor&) {
    fifo = OpenFifo(FifoPath(path));
    return static_cast<bool>(fifo);
  };
  auto opened = namedObjects::Open(path, manualReset ? Kind::ManualResetEvent : Kind::AutoResetEvent, make);
  if (!opened) return nullptr;
  isNew = opened->isNew;
  auto event = isNew ? MakeEvent(std::move(fifo), *std::move(opened)) : Joined(path, *std::move(opened));
  if (event && isNew && initialState) event->Set();
  return event;
}

std::shared_ptr<Event> Event::OpenExisting(std::u16string_view name) {
  const std::string path = namedObjects::PathOf(name);
  if (path.empty()) return nullptr;
  auto opened = namedObjects::OpenExisting(path);
  return opened ? Joined(path, *std::move(opened)) : nullptr;
}

bool Event::TryConsume() noexcept {
  const bool signalled = manualReset_ ? IsReadable(counter_.get()) : Drain(counter_);
  if (signalled) static_cast<void>(sets_.load(std::memory_order_acquire));
  return signalled;
}

void Event::Set() noexcept {
  sets_.fetch_add(1, std::memory_order_release);
  const std::uint64_t one = 1;
  // A full counter refuses more, and is signalled already.
  [[maybe_unused]] const ssize_t written = write(counter_.get(), &one, sizeof one);
}

// Nothing to take means that the event was not signalled.
void Event::Reset() noexcept { static_cast<void>(Drain(counter_)); }

EventHandle CreateEventW(std::nullptr_t, bool manualReset, bool initialState, std::nullptr_t) noexcept {
  if (FaultInjected("CreateEventW")) return {};
  return AddEvent(Event::Create(manualReset, initialState), true);
}

EventHandle CreateEventA(std::nullptr_t, bool manualReset, bool initialState, const char* name) noexcept try {
  if (FaultInjected("CreateEventA")) return {};
  if (name == nullptr || *name == '\0') return AddEvent(Event::Create(manualReset, initialState), true);
  bool isNew = false;
  auto event = Event::Open(ansi::ToWide(name), manualReset, initialState, isNew);
  return AddEvent(std::move(event), isNew);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

EventHandle CreateEventW(const SECURITY_ATTRIBUTES*, bool manualReset, bool initialState, const char16_t* name) noexcept
    try {
  if (FaultInjected("CreateEventW")) return {};
  bool isNew = false;
  auto event = Event::Open(name, manualReset, initialState, isNew);
  return AddEvent(std::move(event), isNew);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

EventHandle OpenEventW(Only<SYNCHRONIZE>, OnlyFalse, const char16_t* name) noexcept try {
  if (FaultInjected("OpenEventW")) return {};
  return AddEvent(Event::OpenExisting(name), true);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
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
