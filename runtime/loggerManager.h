// The process's loggers, and the thread on which their timed work runs.
//
// Made at the first use, and kept to the process's end.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

#include "runtime/logger.h"
#include "runtime/mutex.h"
#include "runtime/pollThread.h"

namespace runtime {

// The lock under which everything is logged. The log's poll thread has it as its own, so that no timed flush runs
// beside a call.
[[nodiscard]] const TxMutex& GlobalLogMutex();

// Calls that are under way. A call from within another one is lost.
inline std::atomic<std::int32_t> gLogReentry = 0;

class LoggerManager {
 public:
  [[nodiscard]] static LoggerManager& Instance();
  // Whether what belongs to the log may put items on the log's poll thread now; false before the first use.
  [[nodiscard]] static bool AddsPollItems() noexcept;

  LoggerManager(const LoggerManager&) = delete;
  LoggerManager& operator=(const LoggerManager&) = delete;
  virtual ~LoggerManager() = default;

  [[nodiscard]] const RCPtr<Logger>& DefaultLogger() const noexcept { return defaultLogger; }
  // Made at the first use of the name.
  [[nodiscard]] RCPtr<Logger> NamedLogger(const std::string& name);
  [[nodiscard]] const RCPtr<LogMessageManager>& MessageManager() const noexcept { return messageManager; }
  [[nodiscard]] const RCPtr<TxPollThread>& PollThread() const noexcept { return pollThread; }

  // While this is held back, nothing of the log puts items on the poll thread.
  void HoldPollItems() noexcept { ++noPollItems; }
  void AllowPollItems() noexcept { --noPollItems; }

 private:
  LoggerManager();

  // The order of the fields is settled.
  RCPtr<Logger> defaultLogger;
  std::map<std::string, RCPtr<Logger>> loggers;
  RCPtr<LogMessageManager> messageManager;
  RCPtr<TxPollThread> pollThread;
  std::atomic<std::uint32_t> noPollItems = 0;
};

[[nodiscard]] RCPtr<Logger> GetDefaultLogger();
// Started if it was not.
[[nodiscard]] RCPtr<TxPollThread> GetLogPollThread();

// From now on the calls of logCalls.h go to the default logger, which the first of them makes.
void RouteLogCalls();

}  // namespace runtime
