// The calls with which the runtime and the client of the service write a log line, and how lines are graded.
//
//   Log("LmIpcClient::CloseStream()", 1, "Failed to close Ipc, status=%d.", status);
//
// A call never fails its caller, and may come from any thread. Its format is checked against its arguments when it is
// compiled (platform/format.h), and formatted only when there is somebody who wants the text.
//
// Levels are small integers, and a lower one is more severe: 1 for failures, 2 for warnings, 3 for normal progress,
// 4 and up for detail.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/format.h"
#include "platform/types.h"

namespace runtime {

// What a level prints as; a level is an index into it.
inline constexpr std::string_view kLogLevelLetters = "AEWIDTVN";

// '?' for a number that is no level.
[[nodiscard]] constexpr char LogLevelLetter(int level) noexcept {
  return level >= 0 && static_cast<std::size_t>(level) < kLogLevelLetters.size()
             ? kLogLevelLetters[static_cast<std::size_t>(level)]
             : '?';
}

// Up to which level the lines go that are only made when they are wanted. Read without a lock: after a change, a line
// or two may still go by the old value.
inline std::atomic<std::int32_t> gLogLevel = 0;

[[nodiscard]] inline bool LogWanted(int level) noexcept { return gLogLevel.load(std::memory_order_relaxed) >= level; }

// One call, not formatted yet. It refers to the caller's arguments: good until LogReceiver::Receive returns.
struct LogCall {
  const char* functionName = "";  // Of the form Class::Method().
  int level = 0;
  std::string_view format;
  std::span<const platform::formatting::Argument> arguments;
  std::optional<platform::DWORD> lastError;  // Of a LogLastError.

  // The text that the format and its arguments make, anew at each call. Behind that of a LogLastError, whose newline at
  // the end goes, stand the number and the system's text of the error: "; (5) Access is denied. ", as the system gives
  // it on one line. A text that cannot be formatted (wide text that has no bytes) is empty.
  [[nodiscard]] std::string Text() const;
  // The system's text of the error, on one line; empty without an error, and for one that the system has no text for.
  [[nodiscard]] std::string ErrorText() const;
};

// Where calls go.
class LogReceiver {
 public:
  LogReceiver() = default;
  LogReceiver(const LogReceiver&) = delete;
  LogReceiver& operator=(const LogReceiver&) = delete;
  virtual ~LogReceiver() = default;

  // On the thread of the call, on several threads at a time, with no lock held. What it throws is dropped.
  virtual void Receive(const LogCall& call) = 0;
};

// From now on calls go to `receiver`; to nobody when it is empty, as at the start. Returns what was there before: calls
// that are under way may still reach that one.
std::shared_ptr<LogReceiver> SetLogReceiver(std::shared_ptr<LogReceiver> receiver) noexcept;

namespace logging {
void Send(const LogCall& call) noexcept;
// The same with the calling thread's last error.
void SendWithLastError(LogCall call) noexcept;
}  // namespace logging

// Writes a line, whatever gLogLevel says.
template <class... Arguments>
void Log(const char* functionName, int level, platform::NarrowFormat<Arguments...> format,
         const Arguments&... arguments) noexcept {
  const platform::formatting::Argument list[] = {platform::formatting::MakeArgument(arguments)..., {}};
  logging::Send({functionName, level, format.text(), std::span(list).first(sizeof...(Arguments)), std::nullopt});
}

// As Log, with the text of GetLastError() behind it.
template <class... Arguments>
void LogLastError(const char* functionName, int level, platform::NarrowFormat<Arguments...> format,
                  const Arguments&... arguments) noexcept {
  const platform::formatting::Argument list[] = {platform::formatting::MakeArgument(arguments)..., {}};
  logging::SendWithLastError(
      {functionName, level, format.text(), std::span(list).first(sizeof...(Arguments)), std::nullopt});
}

// As Log, for a line that is made only when gLogLevel reaches its level.
template <class... Arguments>
void LogIfWanted(const char* functionName, int level, platform::NarrowFormat<Arguments...> format,
                 const Arguments&... arguments) noexcept {
  if (LogWanted(level)) Log<Arguments...>(functionName, level, format, arguments...);
}

}  // namespace runtime
