#include "lib/task/windowsThreadPoolExecutor.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "taskCallbacks.h"

namespace quill::task {
namespace {

using namespace platform;

constexpr std::uint64_t kUnitsFrom1601To1970 = 0x19DB1DED53E8000;

void EndTrigger(PTP_TIMER timer) noexcept { SetThreadpoolTimer(timer, nullptr, 0, 0); }
void EndTrigger(PTP_WAIT wait) noexcept { SetThreadpoolWait(wait, {}, nullptr); }
void EndTrigger(PTP_WORK) noexcept {}

void Wait(PTP_TIMER timer, bool cancelPending) noexcept { WaitForThreadpoolTimerCallbacks(timer, cancelPending); }
void Wait(PTP_WAIT wait, bool cancelPending) noexcept { WaitForThreadpoolWaitCallbacks(wait, cancelPending); }
void Wait(PTP_WORK work, bool cancelPending) noexcept { WaitForThreadpoolWorkCallbacks(work, cancelPending); }

void Close(PTP_TIMER timer) noexcept { CloseThreadpoolTimer(timer); }
void Close(PTP_WAIT wait) noexcept { CloseThreadpoolWait(wait); }
void Close(PTP_WORK work) noexcept { CloseThreadpoolWork(work); }

FILETIME FileTime(std::uint64_t units) noexcept {
  return {.dwLowDateTime = static_cast<DWORD>(units), .dwHighDateTime = static_cast<DWORD>(units >> 32)};
}

// Makes the task known to its executor. The end must not need memory, so its list has room for every task.
template <class Task>
void Keep(std::list<std::shared_ptr<Task>>& open, std::vector<Task*>& closing, const std::shared_ptr<Task>& task) {
  std::list<std::shared_ptr<Task>> entry{task};
  if (closing.capacity() <= open.size()) closing.reserve(2 * open.size() + 1);
  open.splice(open.end(), entry);
}

template <class Task>
void EndAndRemove(std::mutex& mutex, std::list<std::shared_ptr<Task>>& open, const std::shared_ptr<Task>& task) {
  task->end();
  const std::lock_guard lock(mutex);
  const auto place = std::ranges::find(open, task);
  if (place != open.end()) open.erase(place);
}

template <class Task>
std::list<std::shared_ptr<Task>> TakeToClose(std::list<std::shared_ptr<Task>>& open, std::vector<Task*>& closing) {
  for (const std::shared_ptr<Task>& task : open) {
    task->executorClosing = true;
    closing.push_back(task.get());
  }
  return std::exchange(open, {});
}

// Tells under the lock: once it is gone, so may the executor be.
template <class Task>
void Forget(std::mutex& mutex, std::condition_variable& condition, std::vector<Task*>& closing, Task* task) {
  const std::lock_guard lock(mutex);
  std::erase(closing, task);
  condition.notify_all();
}

}  // namespace

template <class Task, class PoolObject, class CallbackContext>
WtpTaskContext<Task, PoolObject, CallbackContext>::~WtpTaskContext() {
  end();
  context.reset();
  if (executorClosing) executor->forget(static_cast<Task*>(this));
}

template <class Task, class PoolObject, class CallbackContext>
void WtpTaskContext<Task, PoolObject, CallbackContext>::end() noexcept {
  if (poolObject == nullptr) return;
  const CurrentCallback& current = ThisThreadsCallback();
  const bool fromWithin = current.currentContext == context.get();
  if (fromWithin) DisassociateCurrentThreadFromCallback(current.currentInstance);
  EndTrigger(poolObject);
  Wait(poolObject, true);
  Close(std::exchange(poolObject, nullptr));
  if (fromWithin) {
    context->deleteOnReturn = true;
    static_cast<void>(context.release());  // The callback's from here on.
  }
}

template struct WtpTaskContext<WtpTimerTaskContext, PTP_TIMER, TimerCallbackContext>;
template struct WtpTaskContext<WtpWaitTaskContext, PTP_WAIT, WaitCallbackContext>;
template struct WtpTaskContext<WtpWorkTaskContext, PTP_WORK, WorkCallbackContext>;

WindowsThreadPoolExecutor::WindowsThreadPoolExecutor(TP_CALLBACK_ENVIRON* environment,
                                                     std::uint32_t timerWindow) noexcept
    : callbackEnvironment(environment), windowLength(timerWindow) {}

WindowsThreadPoolExecutor::~WindowsThreadPoolExecutor() { shutDown(); }

void WindowsThreadPoolExecutor::shutDown() noexcept {
  std::unique_lock lock(mutex);
  closing = true;
  auto openTimers = TakeToClose(timers, closingTimers);
  auto openWaits = TakeToClose(waits, closingWaits);
  auto openWorks = TakeToClose(works, closingWorks);
  lock.unlock();
  openTimers.clear();
  openWaits.clear();
  openWorks.clear();
  lock.lock();
  condition.wait(lock, [this] { return closingTimers.empty() && closingWaits.empty() && closingWorks.empty(); });
}

std::shared_ptr<WtpTimerTaskContext> WindowsThreadPoolExecutor::create(std::function<void()> function) {
  auto task = std::make_shared<WtpTimerTaskContext>(this);
  task->context = std::make_unique<TimerCallbackContext>();
  task->context->function = std::move(function);
  const std::lock_guard lock(mutex);
  Keep(timers, closingTimers, task);
  if (!closing) task->poolObject = CreateThreadpoolTimer(&TimerCallback, task->context.get(), callbackEnvironment);
  return task;
}

void WindowsThreadPoolExecutor::setRelative(const std::shared_ptr<WtpTimerTaskContext>& task,
                                            std::chrono::nanoseconds delay, std::chrono::nanoseconds period) {
  if (task->poolObject == nullptr) return;
  constexpr std::int64_t kLongest = std::numeric_limits<std::int64_t>::max() - 99;
  const std::int64_t units = (std::min(delay.count(), kLongest) + 99) / 100;
  const FILETIME due = FileTime(static_cast<std::uint64_t>(-units));
  SetThreadpoolTimer(task->poolObject, &due, static_cast<DWORD>(period.count() / 1'000'000), windowLength);
}

void WindowsThreadPoolExecutor::setAbsolute(const std::shared_ptr<WtpTimerTaskContext>& task, AbsoluteTime time) {
  if (task->poolObject == nullptr) return;
  const FILETIME due = FileTime(static_cast<std::uint64_t>(time.time_since_epoch().count()) + kUnitsFrom1601To1970);
  SetThreadpoolTimer(task->poolObject, &due, 0, windowLength);
}

void WindowsThreadPoolExecutor::cancel(const std::shared_ptr<WtpTimerTaskContext>& task) {
  if (task->poolObject != nullptr) EndTrigger(task->poolObject);
}

void WindowsThreadPoolExecutor::waitForCallbacks(const std::shared_ptr<WtpTimerTaskContext>& task) {
  if (task->poolObject != nullptr) Wait(task->poolObject, false);
}

void WindowsThreadPoolExecutor::close(std::shared_ptr<WtpTimerTaskContext> task) { EndAndRemove(mutex, timers, task); }

std::shared_ptr<WtpWaitTaskContext> WindowsThreadPoolExecutor::create(WaitableHandle handle,
                                                                      std::function<void()> function) {
  auto task = std::make_shared<WtpWaitTaskContext>(this);
  task->context = std::make_unique<WaitCallbackContext>();
  task->context->function = std::move(function);
  task->context->waitHandle = handle;
  const std::lock_guard lock(mutex);
  Keep(waits, closingWaits, task);
  if (!closing) task->poolObject = CreateThreadpoolWait(&WaitCallback, task->context.get(), callbackEnvironment);
  return task;
}

void WindowsThreadPoolExecutor::start(const std::shared_ptr<WtpWaitTaskContext>& task) {
  if (task->poolObject == nullptr) return;
  if (task->context->armed.exchange(1) == 0) SetThreadpoolWait(task->poolObject, task->context->waitHandle, nullptr);
}

void WindowsThreadPoolExecutor::stop(const std::shared_ptr<WtpWaitTaskContext>& task) {
  if (task->poolObject == nullptr) return;
  if (task->context->armed.exchange(0) != 0) EndTrigger(task->poolObject);
}

void WindowsThreadPoolExecutor::waitForCallbacks(const std::shared_ptr<WtpWaitTaskContext>& task) {
  if (task->poolObject == nullptr) return;
  const bool cancelPending = task->context->armed.load() == 0;
  Wait(task->poolObject, cancelPending);
}

void WindowsThreadPoolExecutor::close(std::shared_ptr<WtpWaitTaskContext> task) { EndAndRemove(mutex, waits, task); }

std::shared_ptr<WtpWorkTaskContext> WindowsThreadPoolExecutor::create(std::function<void(void*, void*)> function) {
  auto task = std::make_shared<WtpWorkTaskContext>(this);
  task->context = std::make_unique<WorkCallbackContext>();
  task->context->function = std::move(function);
  const std::lock_guard lock(mutex);
  Keep(works, closingWorks, task);
  if (!closing) task->poolObject = CreateThreadpoolWork(&WorkCallback, task->context.get(), callbackEnvironment);
  return task;
}

void WindowsThreadPoolExecutor::submit(const std::shared_ptr<WtpWorkTaskContext>& task, OwnedArgument first,
                                       OwnedArgument second) {
  if (task->poolObject == nullptr) return;
  if (first.pointer() != nullptr || second.pointer() != nullptr) {
    WorkCallbackContext& context = *task->context;
    const std::lock_guard lock(context.mutex);
    context.queue.push_back({.first = std::move(first), .second = std::move(second)});
  }
  SubmitThreadpoolWork(task->poolObject);
}

void WindowsThreadPoolExecutor::waitForCallbacks(const std::shared_ptr<WtpWorkTaskContext>& task) {
  if (task->poolObject != nullptr) Wait(task->poolObject, false);
}

void WindowsThreadPoolExecutor::close(std::shared_ptr<WtpWorkTaskContext> task) { EndAndRemove(mutex, works, task); }

void WindowsThreadPoolExecutor::forget(WtpTimerTaskContext* task) noexcept {
  Forget(mutex, condition, closingTimers, task);
}

void WindowsThreadPoolExecutor::forget(WtpWaitTaskContext* task) noexcept {
  Forget(mutex, condition, closingWaits, task);
}

void WindowsThreadPoolExecutor::forget(WtpWorkTaskContext* task) noexcept {
  Forget(mutex, condition, closingWorks, task);
}

std::shared_ptr<WindowsThreadPoolExecutor> CreateWindowsThreadPoolExecutor(TP_CALLBACK_ENVIRON* callbackEnvironment,
                                                                           std::uint32_t windowLength) {
  return std::make_shared<WindowsThreadPoolExecutor>(callbackEnvironment, windowLength);
}

}  // namespace quill::task
