// The machine's clock, as its user reads it.
#pragma once

#include <cstdint>
#include <ctime>

#include "platform/types.h"

namespace platform {

struct SYSTEMTIME {
  WORD wYear;
  WORD wMonth;      // 1 is January.
  WORD wDayOfWeek;  // 0 is Sunday.
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
};

// The local time now.
void GetLocalTime(SYSTEMTIME* time) noexcept;

// A moment by the machine's clock: seconds since 1970 in UTC, and milliseconds.
struct __timeb64 {
  std::int64_t time;
  std::uint16_t millitm;
};

// The moment now, and a moment's date and time of day: in UTC, and by the machine's clock. 0, or an error of the
// runtime library; what is written then is of no use.
int _ftime64_s(__timeb64* moment) noexcept;
int _gmtime64_s(std::tm* date, const std::int64_t* time) noexcept;
int _localtime64_s(std::tm* date, const std::int64_t* time) noexcept;

// Milliseconds since the system started; begins anew at 0 after 49.7 days.
[[nodiscard]] DWORD GetTickCount() noexcept;

// A counter that runs evenly and never back, and its steps in a second. False on failure.
bool QueryPerformanceCounter(std::int64_t* count) noexcept;
bool QueryPerformanceFrequency(std::int64_t* frequency) noexcept;

}  // namespace platform
