#include "lib/ipc/ipclib/linkReadyEvent.h"

#include <array>
#include <atomic>

#include "lib/ipc/ipclib/ipclibTrace.h"
#include "platform/error.h"
#include "platform/module.h"
#include "platform/rpc.h"

namespace quill::ipc {
namespace {

constexpr char16_t kNameFront[] = u"Global\\ipclibLinkReady(";
constexpr int kGuidUnits = 39;  // With its NUL.

// Whether this process comes in a package. Who asks first at the same time as another asks the system twice.
std::atomic<bool> packaged = false;
std::atomic<bool> packagedIsKnown = false;

bool askWhetherPackaged() noexcept {
  const auto function = platform::GetProcAddress(platform::GetModuleHandleW(u"kernel32"), "GetPackageFamilyName");
  if (function == nullptr) return false;
  platform::UINT length = 0;
  const auto getPackageFamilyName = reinterpret_cast<platform::GetPackageFamilyNameFunction>(function);
  return getPackageFamilyName(platform::GetCurrentProcess(), &length, nullptr) ==
         platform::LONG{platform::ERROR_INSUFFICIENT_BUFFER};
}

bool isPackaged() noexcept {
  if (!packagedIsKnown.load(std::memory_order_acquire)) {
    packaged.store(askWhetherPackaged(), std::memory_order_relaxed);
    packagedIsKnown.store(true, std::memory_order_release);
  }
  return packaged.load(std::memory_order_relaxed);
}

using Name = std::array<char16_t, 128>;

// False when the endpoint has no text.
bool putName(const platform::GUID& endpoint, Name& name) noexcept {
  constexpr std::u16string_view front = kNameFront;
  static_assert(front.size() + kGuidUnits + 1 <= std::tuple_size_v<Name>);
  front.copy(name.data(), front.size());
  if (platform::StringFromGUID2(endpoint, name.data() + front.size(), kGuidUnits) == 0) return false;
  name[front.size() + kGuidUnits - 1] = u')';
  name[front.size() + kGuidUnits] = u'\0';
  return true;
}

LmIpcStatusCode statusOfWait(platform::DWORD result) noexcept {
  switch (result) {
    case platform::WAIT_OBJECT_0: return LmIpcStatusCode::Success;
    case platform::WAIT_OBJECT_0 + 1: return LmIpcStatusCode::Abort;
    case platform::WAIT_TIMEOUT: return LmIpcStatusCode::TimedOut;
    default: return LmIpcStatusCode::InvalidParam;
  }
}

}  // namespace

platform::UniqueEvent getLinkReadyEvent(const platform::GUID& endpoint, void* securityDescriptor) noexcept {
  Name name;
  if (!putName(endpoint, name)) return {};
  if (isPackaged()) {
    return platform::UniqueEvent(platform::OpenEventW(platform::SYNCHRONIZE, false, name.data()));
  }
  const platform::SECURITY_ATTRIBUTES security{.lpSecurityDescriptor = securityDescriptor};
  return platform::UniqueEvent(
      platform::CreateEventW(securityDescriptor != nullptr ? &security : nullptr, true, false, name.data()));
}

LmIpcStatusCode waitForLinkListener(const platform::GUID& endpoint, std::uint32_t timeoutMs,
                                    platform::EventHandle abortEvent) noexcept {
  Trace(TraceChannel::Link, "> Waiting {}ms", timeoutMs);
  const platform::UniqueEvent ready = getLinkReadyEvent(endpoint, nullptr);
  if (!ready) return LmIpcStatusCode::Unexpected;
  if (!abortEvent) return statusOfWait(platform::WaitForSingleObject(ready.get(), timeoutMs));
  const platform::WaitableHandle events[] = {ready.get(), abortEvent};
  return statusOfWait(platform::WaitForMultipleObjects(2, events, false, timeoutMs));
}

}  // namespace quill::ipc
