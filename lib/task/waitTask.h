// A wait task that its owner's end closes.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "lib/task/windowsThreadPoolExecutor.h"

namespace quill::task {

// Owns the task, without keeping it alive: the executor does that. Its end may come from within its own callback.
class WaitTask {
 public:
  // The handle stays the caller's, and open while the task is started.
  WaitTask(WaitTaskExecutor& executor, platform::WaitableHandle handle, std::function<void()> function)
      : task_(executor.create(handle, std::move(function))) {}
  WaitTask(const WaitTask&) = delete;
  WaitTask& operator=(const WaitTask&) = delete;
  ~WaitTask() {
    if (auto task = task_.lock()) task->executor->close(std::move(task));
  }

  // Fires once when the object is signalled. Nothing happens when it is started already.
  void start() const {
    if (const auto task = task_.lock()) task->executor->start(task);
  }
  // From now on the function is not called until the next start; a call that has begun goes on.
  void stop() const {
    if (const auto task = task_.lock()) task->executor->stop(task);
  }

 private:
  std::weak_ptr<WtpWaitTaskContext> task_;
};

}  // namespace quill::task
