#include "platform/clock.h"
#include "platform/windows/waits.h"

#include <windows.h>

#include <sys/timeb.h>

namespace platform {

static_assert(sizeof(SYSTEMTIME) == sizeof(::SYSTEMTIME));

void GetLocalTime(SYSTEMTIME* time) noexcept { ::GetLocalTime(reinterpret_cast<::SYSTEMTIME*>(time)); }

int _ftime64_s(__timeb64* moment) noexcept {
  ::__timeb64 now{};
  const int error = ::_ftime64_s(&now);
  *moment = {.time = now.time, .millitm = now.millitm};
  return error;
}

int _gmtime64_s(std::tm* date, const std::int64_t* time) noexcept { return ::_gmtime64_s(date, time); }

int _localtime64_s(std::tm* date, const std::int64_t* time) noexcept { return ::_localtime64_s(date, time); }

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
