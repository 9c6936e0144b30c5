#include "platform/clock.h"

#include <time.h>

#include "platform/linux/testClock.h"

namespace platform {

void GetLocalTime(SYSTEMTIME* time) noexcept {
  if (const auto set = TimeSetByTest()) {
    *time = *set;
    return;
  }
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  *time = {.wYear = static_cast<WORD>(local.tm_year + 1900),
           .wMonth = static_cast<WORD>(local.tm_mon + 1),
           .wDayOfWeek = static_cast<WORD>(local.tm_wday),
           .wDay = static_cast<WORD>(local.tm_mday),
           .wHour = static_cast<WORD>(local.tm_hour),
           .wMinute = static_cast<WORD>(local.tm_min),
           .wSecond = static_cast<WORD>(local.tm_sec),
           .wMilliseconds = static_cast<WORD>(now.tv_nsec / 1'000'000)};
}

}  // namespace platform
