#include "platform/com.h"

#include <windows.h>

#include <objbase.h>

namespace platform {

HRESULT CoInitializeEx(std::nullptr_t, DWORD flags) noexcept { return ::CoInitializeEx(nullptr, flags); }

void CoUninitialize() noexcept { ::CoUninitialize(); }

}  // namespace platform
