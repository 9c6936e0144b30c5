#include "platform/com.h"

#include "platform/linux/faults.h"

namespace platform {
namespace {

constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);

thread_local unsigned entered = 0;

}  // namespace

HRESULT CoInitializeEx(std::nullptr_t, DWORD flags) noexcept {
  if (FaultInjected("CoInitializeEx")) return E_OUTOFMEMORY;
  if (flags != COINIT_MULTITHREADED) return E_INVALIDARG;
  return entered++ == 0 ? S_OK : S_FALSE;
}

void CoUninitialize() noexcept {
  if (entered > 0) --entered;
}

}  // namespace platform
