#include "runtime/functionTrace.h"

#include "runtime/loggerManager.h"
#include "runtime/textFormat.h"

namespace runtime {

FunctionTrace::FunctionTrace(int level, const char* function, RCPtr<Logger> toLogger)
    : functionName(function), enterLevel(level), exitLevel(level), logger(std::move(toLogger)) {
  text[0] = '\0';
  timer.Mark(TimerOperation::Start);
}

bool FunctionTrace::FindLogger(int level) {
  if (!logger) {
    if (!LogWanted(level)) return false;
    logger = GetDefaultLogger();
  }
  return Passes(level);
}

void FunctionTrace::Enter(std::string_view format, Arguments arguments) {
  if (!FindLogger(enterLevel)) return;
  if (format.empty()) {
    logger->Log(functionName, enterLevel, "Enter\n");
    return;
  }
  SafeVFormat(text.data(), static_cast<int>(text.size()), format, arguments);
  logger->Log(functionName, enterLevel, "Enter - %s", text.data());
}

void FunctionTrace::Exit(int level, std::string_view format, Arguments arguments) {
  if (!FindLogger(level)) return;
  exitLevel = level;
  SafeVFormat(text.data(), static_cast<int>(text.size()), format, arguments);
}

FunctionTrace::~FunctionTrace() {
  if (!logger) return;
  std::array<char, 32> time{};
  if (timed) SafeFormat(time.data(), static_cast<int>(time.size()), "(%dms)", static_cast<int>(timer.ElapsedMS()));
  const char* const message = text.data();
  if (*message == '\0') {
    if (Passes(enterLevel)) logger->Log(functionName, enterLevel, "Exit%s\n", time.data());
  } else if (!Passes(exitLevel)) {
    return;
  } else if (Passes(enterLevel)) {
    logger->Log(functionName, exitLevel, "Exit%s - %s", time.data(), message);
  } else {
    logger->Log(functionName, exitLevel, "%s", message);
  }
}

}  // namespace runtime
