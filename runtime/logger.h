// A logger: formats a message once, and hands it to each of its writers.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <span>
#include <string>

#include "runtime/logCalls.h"
#include "runtime/logMessageCache.h"
#include "runtime/logWriter.h"

namespace runtime {

// Any thread may call what does not say otherwise.
class Logger : public RCObject {
 public:
  explicit Logger(RCPtr<LogMessageManager> manager) : messageManager(std::move(manager)) {}

  // As the calls of the same name (logCalls.h), but on this logger.
  template <class... Arguments>
  void Log(const char* functionName, int callLevel, platform::NarrowFormat<Arguments...> format,
           const Arguments&... arguments) noexcept {
    const platform::formatting::Argument list[] = {platform::formatting::MakeArgument(arguments)..., {}};
    Send({functionName, callLevel, format.text(), std::span(list).first(sizeof...(Arguments)), std::nullopt});
  }
  // A call that was made by somebody else. What is logged while a call is under way, by a writer or the cache, is lost.
  void Send(const LogCall& call) noexcept;

  // In the order of their names. False when the name is taken. A writer belongs to one logger.
  bool AddWriter(const std::string& name, const RCPtr<LogWriter>& writer);
  // The writer may be the caller. False when there is none of this name.
  bool RemoveWriter(const std::string& name);

  // Whether a message of this level goes to the writers.
  [[nodiscard]] bool Passes(int messageLevel) const noexcept { return enabled && messageLevel <= level; }
  void SetLevel(int mostLevel) noexcept { level = mostLevel; }
  void SetEnabled(bool passes) noexcept { enabled = passes; }
  void SetLocalTime(bool local) noexcept { localTime = local; }
  [[nodiscard]] bool LocalTime() const noexcept { return localTime; }

  // REQUIRES: the lock of the log.
  [[nodiscard]] RCPtr<LogMessage> NewMessage(int messageLevel, const char* text);

 private:
  // REQUIRES of all: the lock of the log.
  void Write(const LogCall& call);
  [[nodiscard]] RCPtr<LogMessage> MessageOf(const LogCall& call, const std::string& errorText, LogWriter& first);
  void Sweep();

  // The order of the fields is settled.
  std::map<std::string, RCPtr<LogWriter>> writers;
  std::atomic<std::int32_t> level = 7;
  std::atomic<bool> localTime = false;
  std::atomic<bool> enabled = true;
  const RCPtr<LogMessageManager> messageManager;
  bool writing = false;  // Writers that go meanwhile leave an empty place behind.
};

}  // namespace runtime
