// Tasks: callables that are bound once to a timer, to a kernel object, or to explicit submission, and run on the
// threads of a pool.
//
// Threads: every operation may be called from any thread, also from within callbacks. Callbacks run several at a time.
// Life: a task does nothing until it is set, started or submitted, and fires any number of times until it is closed.
// The executor keeps it alive until then, whether or not its creator does. Behind `close` the handle may still be held,
// but no operation may be called on it. Failure: nothing is reported. A task for which the system had no means never
// fires. Only want of memory throws (std::bad_alloc), from `create` and `submit`; an exception that leaves a callback
// ends the process, and so does a task that fires with an empty function.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <ratio>

#include "lib/task/ownedArgument.h"
#include "platform/handles.h"

namespace quill::task {

struct WtpTimerTaskContext;
struct WtpWaitTaskContext;
struct WtpWorkTaskContext;

// What every `close` does. Ends the trigger; drops the callbacks that are queued; waits until those that run have
// ended, but for the one that it may be called from: that one runs on to its end, and then its function is destroyed.
// Otherwise the function goes with the handle. What every `waitForCallbacks` does: waits until no callback of the task
// is queued or running. Must not be called from a callback of the same task.

class TimerTaskExecutor {
 public:
  // UTC, in units of 100 ns since the start of 1970.
  using AbsoluteTime = std::chrono::time_point<std::chrono::system_clock,
                                               std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>>;

  TimerTaskExecutor() = default;
  TimerTaskExecutor(const TimerTaskExecutor&) = delete;
  TimerTaskExecutor& operator=(const TimerTaskExecutor&) = delete;
  virtual ~TimerTaskExecutor() = default;
  [[nodiscard]] virtual std::shared_ptr<WtpTimerTaskContext> create(std::function<void()> function) = 0;
  // Fires after `delay`, rounded up to 100 ns; then again every `period`, rounded down to milliseconds: 0 of them means
  // once. Replaces what was set before.
  virtual void setRelative(const std::shared_ptr<WtpTimerTaskContext>& task, std::chrono::nanoseconds delay,
                           std::chrono::nanoseconds period) = 0;
  // Fires once, at that time. Replaces what was set before.
  virtual void setAbsolute(const std::shared_ptr<WtpTimerTaskContext>& task, AbsoluteTime time) = 0;
  // Ends what was set. A callback that is queued still runs.
  virtual void cancel(const std::shared_ptr<WtpTimerTaskContext>& task) = 0;
  virtual void waitForCallbacks(const std::shared_ptr<WtpTimerTaskContext>& task) = 0;
  virtual void close(std::shared_ptr<WtpTimerTaskContext> task) = 0;
};

class WaitTaskExecutor {
 public:
  WaitTaskExecutor() = default;
  WaitTaskExecutor(const WaitTaskExecutor&) = delete;
  WaitTaskExecutor& operator=(const WaitTaskExecutor&) = delete;
  virtual ~WaitTaskExecutor() = default;
  // The handle stays the caller's, and open while the task is started.
  [[nodiscard]] virtual std::shared_ptr<WtpWaitTaskContext> create(platform::WaitableHandle handle,
                                                                   std::function<void()> function) = 0;
  // Fires once when the object is signalled, as a wait for it. Nothing happens to a task that is started already.
  virtual void start(const std::shared_ptr<WtpWaitTaskContext>& task) = 0;
  // From now on the function is not called until the next start; a call that has begun goes on. Nothing happens to a
  // task that is not started, as one that has fired.
  virtual void stop(const std::shared_ptr<WtpWaitTaskContext>& task) = 0;
  virtual void waitForCallbacks(const std::shared_ptr<WtpWaitTaskContext>& task) = 0;
  virtual void close(std::shared_ptr<WtpWaitTaskContext> task) = 0;
};

class WorkTaskExecutor {
 public:
  WorkTaskExecutor() = default;
  WorkTaskExecutor(const WorkTaskExecutor&) = delete;
  WorkTaskExecutor& operator=(const WorkTaskExecutor&) = delete;
  virtual ~WorkTaskExecutor() = default;
  [[nodiscard]] virtual std::shared_ptr<WtpWorkTaskContext> create(
      std::function<void(void* first, void* second)> function) = 0;
  // Gives one callback. Callbacks take arguments in the order of their submission, and release them, the second first,
  // when the function returns. A submission without arguments has no place in that order: its callback takes those that
  // stand first, or two null pointers. Arguments whose callback never runs are released when the function is destroyed.
  virtual void submit(const std::shared_ptr<WtpWorkTaskContext>& task, OwnedArgument first, OwnedArgument second) = 0;
  virtual void waitForCallbacks(const std::shared_ptr<WtpWorkTaskContext>& task) = 0;
  virtual void close(std::shared_ptr<WtpWorkTaskContext> task) = 0;
};

class TaskExecutor : public TimerTaskExecutor, public WaitTaskExecutor, public WorkTaskExecutor {
 public:
  using TimerTaskExecutor::close;
  using TimerTaskExecutor::create;
  using TimerTaskExecutor::waitForCallbacks;
  using WaitTaskExecutor::close;
  using WaitTaskExecutor::create;
  using WaitTaskExecutor::waitForCallbacks;
  using WorkTaskExecutor::close;
  using WorkTaskExecutor::create;
  using WorkTaskExecutor::waitForCallbacks;
};

}  // namespace quill::task
