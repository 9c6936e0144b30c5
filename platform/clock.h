// The machine's clock, as its user reads it.
#pragma once

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

// Milliseconds since the system started; begins anew at 0 after 49.7 days.
[[nodiscard]] DWORD GetTickCount() noexcept;

// A counter that runs evenly and never back, and its steps in a second. False on failure.
bool QueryPerformanceCounter(std::int64_t* count) noexcept;
bool QueryPerformanceFrequency(std::int64_t* frequency) noexcept;

}  // namespace platform
