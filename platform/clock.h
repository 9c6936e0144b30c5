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

}  // namespace platform
