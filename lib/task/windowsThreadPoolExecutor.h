// The executor over the system's thread pool: each task is one object of the pool.
//
// The executor may end while clients still hold tasks: its end then waits, without a time-out, until they have let go
// of them. It may come on any thread but in a callback of the executor's own tasks.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include "lib/task/taskExecutor.h"
#include "platform/threadPool.h"

namespace quill::task {

class WindowsThreadPoolExecutor;
struct TimerCallbackContext;
struct WaitCallbackContext;
struct WorkCallbackContext;

// A task, as its creator holds it. `Task` is the kind itself.
template <class Task, class PoolObject, class CallbackContext>
struct WtpTaskContext {
  explicit WtpTaskContext(WindowsThreadPoolExecutor* owner) noexcept : executor(owner) {}
  WtpTaskContext(const WtpTaskContext&) = delete;
  WtpTaskContext& operator=(const WtpTaskContext&) = delete;
  ~WtpTaskContext();

  // Ends the trigger and the callbacks, and closes the pool's object. Called from within the task's own callback it
  // gives the callback its context, to be destroyed when the function returns.
  void end() noexcept;

  WindowsThreadPoolExecutor* executor;  // Valid while the task is in one of the executor's lists.
  PoolObject poolObject = nullptr;      // Null behind `close`, and when the pool could make none.
  std::unique_ptr<CallbackContext> context;
  bool executorClosing = false;
};

struct WtpTimerTaskContext final : WtpTaskContext<WtpTimerTaskContext, platform::PTP_TIMER, TimerCallbackContext> {
  using WtpTaskContext::WtpTaskContext;
};
struct WtpWaitTaskContext final : WtpTaskContext<WtpWaitTaskContext, platform::PTP_WAIT, WaitCallbackContext> {
  using WtpTaskContext::WtpTaskContext;
};
struct WtpWorkTaskContext final : WtpTaskContext<WtpWorkTaskContext, platform::PTP_WORK, WorkCallbackContext> {
  using WtpTaskContext::WtpTaskContext;
};

class WindowsThreadPoolExecutor final : public TaskExecutor {
 public:
  // For CreateWindowsThreadPoolExecutor alone.
  WindowsThreadPoolExecutor(platform::TP_CALLBACK_ENVIRON* environment, std::uint32_t timerWindow) noexcept;
  ~WindowsThreadPoolExecutor() override;

  // What the destructor does, for who wants the tasks' end now and cannot know whether others hold the executor too.
  // They may go on to call it: tasks that are made from here on have no object of the pool, and never fire.
  void shutDown() noexcept;

  [[nodiscard]] std::shared_ptr<WtpTimerTaskContext> create(std::function<void()> function) override;
  void setRelative(const std::shared_ptr<WtpTimerTaskContext>& task, std::chrono::nanoseconds delay,
                   std::chrono::nanoseconds period) override;
  void setAbsolute(const std::shared_ptr<WtpTimerTaskContext>& task, AbsoluteTime time) override;
  void cancel(const std::shared_ptr<WtpTimerTaskContext>& task) override;
  void waitForCallbacks(const std::shared_ptr<WtpTimerTaskContext>& task) override;
  void close(std::shared_ptr<WtpTimerTaskContext> task) override;

  [[nodiscard]] std::shared_ptr<WtpWaitTaskContext> create(platform::WaitableHandle handle,
                                                           std::function<void()> function) override;
  void start(const std::shared_ptr<WtpWaitTaskContext>& task) override;
  void stop(const std::shared_ptr<WtpWaitTaskContext>& task) override;
  void waitForCallbacks(const std::shared_ptr<WtpWaitTaskContext>& task) override;
  void close(std::shared_ptr<WtpWaitTaskContext> task) override;

  [[nodiscard]] std::shared_ptr<WtpWorkTaskContext> create(std::function<void(void*, void*)> function) override;
  void submit(const std::shared_ptr<WtpWorkTaskContext>& task, OwnedArgument first, OwnedArgument second) override;
  void waitForCallbacks(const std::shared_ptr<WtpWorkTaskContext>& task) override;
  void close(std::shared_ptr<WtpWorkTaskContext> task) override;

 private:
  template <class Task, class PoolObject, class CallbackContext>
  friend struct WtpTaskContext;

  // For a task's destructor, once the executor waits for it. The executor may be gone when this returns.
  void forget(WtpTimerTaskContext* task) noexcept;
  void forget(WtpWaitTaskContext* task) noexcept;
  void forget(WtpWorkTaskContext* task) noexcept;

  platform::TP_CALLBACK_ENVIRON* callbackEnvironment;
  std::uint32_t windowLength;  // Milliseconds.
  std::mutex mutex;            // Never held while a function runs or the pool is waited for.
  std::condition_variable condition;
  // The tasks that are open; guarded by `mutex`, as all below.
  std::list<std::shared_ptr<WtpTimerTaskContext>> timers;
  std::list<std::shared_ptr<WtpWaitTaskContext>> waits;
  std::list<std::shared_ptr<WtpWorkTaskContext>> works;
  bool closing = false;
  // The tasks that the end waits for.
  std::vector<WtpTimerTaskContext*> closingTimers;
  std::vector<WtpWaitTaskContext*> closingWaits;
  std::vector<WtpWorkTaskContext*> closingWorks;
};

// The environment says which pool and cleanup group the tasks belong to; it stays the caller's, and must outlive the
// executor. Timers may be late by `windowLength` milliseconds.
[[nodiscard]] std::shared_ptr<WindowsThreadPoolExecutor> CreateWindowsThreadPoolExecutor(
    platform::TP_CALLBACK_ENVIRON* callbackEnvironment, std::uint32_t windowLength);

}  // namespace quill::task
