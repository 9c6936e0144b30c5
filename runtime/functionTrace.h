// Logs where a scope begins and ends, and how it ended.
#pragma once

#include <array>
#include <span>
#include <string_view>

#include "runtime/logger.h"
#include "runtime/timer.h"

namespace runtime {

// On the stack of the scope that it traces. Without a logger of its own the scope is traced by the default one, if
// gLogLevel reaches its level.
class FunctionTrace {
 public:
  // The text, if there is one, stands in the lines of both ends.
  template <class... Arguments>
  FunctionTrace(int level, const char* function, RCPtr<Logger> toLogger, platform::NarrowFormat<Arguments...> format,
                const Arguments&... arguments)
      : FunctionTrace(level, function, std::move(toLogger)) {
    const platform::formatting::Argument list[] = {platform::formatting::MakeArgument(arguments)..., {}};
    Enter(format.text(), std::span(list).first(sizeof...(Arguments)));
  }
  FunctionTrace(const FunctionTrace&) = delete;
  FunctionTrace& operator=(const FunctionTrace&) = delete;
  virtual ~FunctionTrace();

  // How the scope has ended, and how serious that is: told even when its beginning was not worth a line.
  template <class... Arguments>
  void SetExitText(int level, platform::NarrowFormat<Arguments...> format, const Arguments&... arguments) {
    const platform::formatting::Argument list[] = {platform::formatting::MakeArgument(arguments)..., {}};
    Exit(level, format.text(), std::span(list).first(sizeof...(Arguments)));
  }
  // Whether the line of the end tells how long the scope took.
  void SetTimed(bool tellsTime) noexcept { timed = tellsTime; }

 private:
  using Arguments = std::span<const platform::formatting::Argument>;

  FunctionTrace(int level, const char* function, RCPtr<Logger> toLogger);
  void Enter(std::string_view format, Arguments arguments);
  void Exit(int level, std::string_view format, Arguments arguments);
  // Takes the default logger where there is none, if gLogLevel reaches the level. Whether the level passes.
  [[nodiscard]] bool FindLogger(int level);
  [[nodiscard]] bool Passes(int level) const noexcept { return logger->Passes(level); }

  // The order of the fields is settled.
  const char* functionName;
  std::array<char, 1024> text;
  std::int32_t enterLevel;
  std::int32_t exitLevel;
  TxElapsedTimer timer;
  bool timed = false;
  RCPtr<Logger> logger;
};

}  // namespace runtime
