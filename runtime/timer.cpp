#include "runtime/timer.h"

#include "platform/clock.h"

namespace runtime {

std::int64_t TxTimer::Mark(TimerOperation operation, std::int64_t now) {
  if (now == 0) now = Now();
  const bool paused = Paused();
  const std::int64_t elapsed = (paused ? pausedAt : now) - start;
  switch (operation) {
    case TimerOperation::Restart:
      if (paused) pausedAt = now;
      start = now;
      break;
    case TimerOperation::Resume:
      if (paused) start += now - pausedAt;
      pausedAt = 0;
      break;
    case TimerOperation::Pause:
      if (!paused) pausedAt = now;
      break;
    case TimerOperation::Start:
      start = now;
      pausedAt = 0;
      break;
    case TimerOperation::StartPaused: start = pausedAt = now; break;
  }
  return elapsed;
}

double TxTimer::ElapsedSeconds(TimerOperation operation, std::int64_t now) {
  return static_cast<double>(Mark(operation, now)) / static_cast<double>(Frequency());
}

std::int64_t TxTimer::ElapsedMS(TimerOperation operation, std::int64_t now) {
  const std::int64_t frequency = Frequency();
  return (Mark(operation, now) * 1000 + frequency / 2) / frequency;
}

std::int64_t TxElapsedTimer::Now() const {
  std::int64_t ticks = 0;
  return platform::QueryPerformanceCounter(&ticks) ? ticks : 0;
}

std::int64_t TxElapsedTimer::Frequency() const {
  static const std::int64_t frequency = [] {
    std::int64_t ticks = 0;
    // A counter that has no frequency does not count either: any will do, but not 0.
    return platform::QueryPerformanceFrequency(&ticks) && ticks > 0 ? ticks : 1;
  }();
  return frequency;
}

}  // namespace runtime
