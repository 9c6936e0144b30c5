#include "platform/clock.h"

#include <time.h>

#include <cerrno>

#include "platform/linux/deadline.h"
#include "platform/linux/faults.h"
#include "platform/linux/testClock.h"

namespace platform {
namespace {
// As fine as the system's own counter, and coarse enough for a century in 64 bits, in thousandths too.
constexpr std::int64_t kStepsInASecond = 10'000'000;
constexpr std::int64_t kNanosecondsInAStep = 100;
}  // namespace

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

int _ftime64_s(__timeb64* moment) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  *moment = {.time = now.tv_sec, .millitm = static_cast<std::uint16_t>(now.tv_nsec / 1'000'000)};
  return 0;
}

int _gmtime64_s(std::tm* date, const std::int64_t* time) noexcept {
  const time_t seconds = *time;
  return gmtime_r(&seconds, date) != nullptr ? 0 : EINVAL;
}

int _localtime64_s(std::tm* date, const std::int64_t* time) noexcept {
  const time_t seconds = *time;
  return localtime_r(&seconds, date) != nullptr ? 0 : EINVAL;
}

DWORD GetTickCount() noexcept {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<DWORD>(now.tv_sec * 1'000 + now.tv_nsec / 1'000'000);
}

bool QueryPerformanceCounter(std::int64_t* count) noexcept {
  if (FaultInjected("QueryPerformanceCounter")) return false;
  *count = std::chrono::nanoseconds(SteadyNow().time_since_epoch()).count() / kNanosecondsInAStep;
  return true;
}

bool QueryPerformanceFrequency(std::int64_t* frequency) noexcept {
  if (FaultInjected("QueryPerformanceFrequency")) return false;
  *frequency = kStepsInASecond;
  return true;
}

}  // namespace platform
