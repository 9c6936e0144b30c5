#include "runtime/event.h"

#include <algorithm>
#include <iterator>

#include "platform/window.h"

namespace runtime {

TxEventData::~TxEventData() {
  if (!ownsHandle || handle.value() == 0) return;
  platform::CloseHandle(platform::EventHandle(handle.value()));  // closes by hand: the handle may be another's
}

TxEvent::TxEvent(bool manualReset, bool initiallySignalled, const char* name) {
  platform::UniqueEvent event(platform::CreateEventA(nullptr, manualReset, initiallySignalled, name));
  data = RCPtr<TxEventData>(new TxEventData(event.get(), true));
  static_cast<void>(event.release());
}

TxEvent::TxEvent(platform::WaitableHandle handle, bool ownsHandle) : data(new TxEventData(handle, ownsHandle)) {}

platform::WaitableHandle TxEvent::Handle() const noexcept {
  const RCPtr<TxEventData> held = data;
  return held ? held->handle : platform::WaitableHandle();
}

bool TxEvent::IsValid() const noexcept { return Handle().value() != 0; }

bool TxEvent::Set() const noexcept {
  const RCPtr<TxEventData> held = data;
  return held && platform::SetEvent(platform::EventHandle(held->handle.value()));
}

bool TxEvent::Reset() const noexcept {
  const RCPtr<TxEventData> held = data;
  return held && platform::ResetEvent(platform::EventHandle(held->handle.value()));
}

std::int32_t TxEvent::Wait(std::uint32_t timeoutMs) const noexcept {
  const RCPtr<TxEventData> held = data;
  if (!held) return kWaitError;
  switch (platform::WaitForSingleObject(held->handle, timeoutMs)) {
    case platform::WAIT_OBJECT_0: return 0;
    case platform::WAIT_TIMEOUT: return kWaitTimedOut;
    default: return kWaitError;
  }
}

std::uint32_t TxEvent::GetHandle() const noexcept { return static_cast<std::uint32_t>(Handle().value()); }

std::int32_t TxEvent::WaitAny(const std::vector<const TxEvent*>& events, bool waitAll, std::uint32_t timeoutMs,
                              bool messageWait, bool alertable) {
  std::vector<platform::WaitableHandle> handles;
  std::ranges::transform(events, std::back_inserter(handles), [](const TxEvent* event) {
    return event != nullptr ? event->Handle() : platform::WaitableHandle();
  });
  const auto count = static_cast<platform::DWORD>(handles.size());
  const platform::DWORD result =
      messageWait
          ? platform::MsgWaitForMultipleObjects(count, handles.data(), waitAll, timeoutMs, platform::QS_ALLINPUT)
          : platform::WaitForMultipleObjectsEx(count, handles.data(), waitAll, timeoutMs, alertable);
  if (result <= count) return static_cast<std::int32_t>(result);
  switch (result) {
    case platform::WAIT_TIMEOUT: return kWaitTimedOut;
    case platform::WAIT_IO_COMPLETION: return kWaitAlert;
    default: return kWaitError;
  }
}

}  // namespace runtime
