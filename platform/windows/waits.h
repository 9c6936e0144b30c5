// Waits for handles, which in a test build go by the clock that the test moves.
#pragma once

// Ahead of the system's own headers, whose macros have the same names.
#include "platform/handles.h"

namespace platform {

using NativeHandle = void*;

// A waitable handle is nothing but the system's handle, so an array of them is passed as it stands.
static_assert(sizeof(WaitableHandle) == sizeof(void*));
inline NativeHandle const* NativeArray(const WaitableHandle* handles) noexcept {
  return reinterpret_cast<NativeHandle const*>(handles);
}

DWORD WaitFor(DWORD count, NativeHandle const* handles, bool waitAll, DWORD milliseconds, bool alertable) noexcept;

// How far a test has moved the performance counter, in its steps.
[[nodiscard]] std::int64_t CounterMoved() noexcept;

}  // namespace platform
