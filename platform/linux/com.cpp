#include "platform/com.h"

#include "platform/linux/faults.h"
#include "platform/linux/results.h"

namespace platform {
namespace {

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
