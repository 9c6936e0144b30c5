// A timer task that its owner's end closes.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

#include "lib/task/windowsThreadPoolExecutor.h"

namespace quill::task {

// Owns the task, without keeping it alive: the executor does that. Its end may come from within its own callback.
class TimerTask {
 public:
  TimerTask(TimerTaskExecutor& executor, std::function<void()> function)
      : task_(executor.create(std::move(function))) {}
  TimerTask(const TimerTask&) = delete;
  TimerTask& operator=(const TimerTask&) = delete;
  ~TimerTask() {
    if (auto task = task_.lock()) task->executor->close(std::move(task));
  }

  // Fires once. Replaces what was set before.
  void start(std::chrono::nanoseconds delay) const {
    if (const auto task = task_.lock()) task->executor->setRelative(task, delay, std::chrono::nanoseconds::zero());
  }
  // A callback that is queued still runs.
  void cancel() const {
    if (const auto task = task_.lock()) task->executor->cancel(task);
  }

 private:
  std::weak_ptr<WtpTimerTaskContext> task_;
};

}  // namespace quill::task
