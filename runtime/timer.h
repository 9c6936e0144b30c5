// Timers that can be paused: how many ticks have gone by, in seconds or milliseconds.
#pragma once

#include <cstdint>

namespace runtime {

// What to do to a timer when it is looked at. Any other value does nothing.
enum class TimerOperation : int {
  Restart = 1,      // Counts from now; a paused timer stays paused.
  Resume = 2,       // Leaves out the time since the pause.
  Pause = 3,        // A paused timer stands still.
  Start = 4,        // Counts from now, and runs.
  StartPaused = 5,  // Counts from now, once resumed.
};
inline constexpr TimerOperation kOnlyLook{0};

// Not for several threads at a time.
class TxTimer {
 public:
  TxTimer() = default;
  TxTimer(const TxTimer&) = delete;
  TxTimer& operator=(const TxTimer&) = delete;
  virtual ~TxTimer() = default;

  [[nodiscard]] virtual std::int64_t Now() const = 0;        // Ticks.
  [[nodiscard]] virtual std::int64_t Frequency() const = 0;  // Ticks a second.

  // The ticks that had gone by before the operation, and then the operation. `now` 0 means to read the clock.
  std::int64_t Mark(TimerOperation operation = kOnlyLook, std::int64_t now = 0);
  // The same, in seconds, and to the nearest millisecond.
  double ElapsedSeconds(TimerOperation operation = kOnlyLook, std::int64_t now = 0);
  std::int64_t ElapsedMS(TimerOperation operation = kOnlyLook, std::int64_t now = 0);
  [[nodiscard]] bool Paused() const noexcept { return pausedAt != 0; }

 private:
  std::int64_t start = 0;
  std::int64_t pausedAt = 0;  // 0 while running.
};

// By the machine's performance counter.
class TxElapsedTimer : public TxTimer {
 public:
  // 0 when the counter cannot be read: the time is then wrong, and harmless.
  [[nodiscard]] std::int64_t Now() const override;
  [[nodiscard]] std::int64_t Frequency() const override;
};

}  // namespace runtime
