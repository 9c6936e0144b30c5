#include "platform/clock.h"
#include "platform/windows/waits.h"

#include <windows.h>

namespace platform {

static_assert(sizeof(SYSTEMTIME) == sizeof(::SYSTEMTIME));

void GetLocalTime(SYSTEMTIME* time) noexcept { ::GetLocalTime(reinterpret_cast<::SYSTEMTIME*>(time)); }

DWORD GetTickCount() noexcept { return ::GetTickCount(); }

bool QueryPerformanceCounter(std::int64_t* count) noexcept {
  if (::QueryPerformanceCounter(reinterpret_cast<LARGE_INTEGER*>(count)) == 0) return false;
  *count += CounterMoved();
  return true;
}

bool QueryPerformanceFrequency(std::int64_t* frequency) noexcept {
  return ::QueryPerformanceFrequency(reinterpret_cast<LARGE_INTEGER*>(frequency)) != 0;
}

}  // namespace platform
