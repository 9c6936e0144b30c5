#include "runtime/logLine.h"

#include <ctime>

#include "platform/clock.h"
#include "runtime/logCalls.h"
#include "runtime/textFormat.h"
#include "runtime/thread.h"

namespace runtime {

int FormatTimestamp(char* buffer, int capacity, bool utc) noexcept {
  platform::__timeb64 now{};
  std::tm date{};
  platform::_ftime64_s(&now);
  if (utc) {
    platform::_gmtime64_s(&date, &now.time);
  } else {
    platform::_localtime64_s(&date, &now.time);
  }
  return SafeFormat(buffer, capacity, "%04d-%02d-%02d%c%02d:%02d:%02d.%03d%s", date.tm_year + 1900, date.tm_mon + 1,
                    date.tm_mday, utc ? 'T' : ' ', date.tm_hour, date.tm_min, date.tm_sec, now.millitm, utc ? "Z" : "");
}

int FormatLinePrefix(char* buffer, int capacity, int level, const char* functionName, bool utc) noexcept {
  static const platform::DWORD process = platform::GetCurrentProcessId();
  const int timestamp = FormatTimestamp(buffer, capacity, utc);
  return timestamp + SafeFormat(buffer + timestamp, capacity - timestamp,
                                " <%04X> [%04X] %c %s: ", TxThread::GetCurrentThreadId(), process,
                                LogLevelLetter(level), functionName);
}

}  // namespace runtime
