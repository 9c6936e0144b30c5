// The component runtime, as far as threads enter and leave it.
#pragma once

#include "platform/types.h"

namespace platform {

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr DWORD COINIT_MULTITHREADED = 0;

// The calling thread enters the component runtime. S_OK, or S_FALSE when it was in already; each of these is one
// CoUninitialize to call. Negative on failure. `flags` is COINIT_MULTITHREADED.
HRESULT CoInitializeEx(std::nullptr_t reserved, DWORD flags) noexcept;
void CoUninitialize() noexcept;

}  // namespace platform
