#include "platform/clock.h"

#include <gtest/gtest.h>

#include <ctime>

namespace {

TEST(Clock, TellsTheLocalTime) {
  // The second may turn between two looks, so the clock's is framed by two of the runtime's.
  const std::time_t before = std::time(nullptr);
  platform::SYSTEMTIME time{};
  platform::GetLocalTime(&time);
  const std::time_t after = std::time(nullptr);
  std::tm local{};
  local.tm_year = time.wYear - 1900;
  local.tm_mon = time.wMonth - 1;
  local.tm_mday = time.wDay;
  local.tm_hour = time.wHour;
  local.tm_min = time.wMinute;
  local.tm_sec = time.wSecond;
  local.tm_isdst = -1;
  const std::time_t told = std::mktime(&local);
  EXPECT_LE(before, told);
  EXPECT_LE(told, after);
  EXPECT_EQ(time.wDayOfWeek, local.tm_wday);
  EXPECT_LT(time.wMilliseconds, 1000);
}

}  // namespace
