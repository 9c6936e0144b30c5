#include "tests/streams/steppedPool.h"

#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>

#include "platform/threadPool.h"

namespace streams::pool {
namespace {

using namespace platform;

struct Object {
  std::function<void()> callback;
  WaitableHandle waits;        // Of a wait that is set.
  std::optional<Timer> timer;  // Of a timer that is set.
};

struct State {
  std::mutex lock;
  std::condition_variable queuedOne;
  std::list<std::unique_ptr<Object>> objects;
  std::deque<Object*> queue;
};

State& The() {
  static State& state = *new State;
  return state;
}

template <class Handle>
Object* Of(Handle handle) {
  return reinterpret_cast<Object*>(handle);
}

// No callback of the tests asks which run of it this is.
constexpr std::nullptr_t kInstance = nullptr;

Object* Add() {
  State& state = The();
  const std::lock_guard lock(state.lock);
  return state.objects.emplace_back(std::make_unique<Object>()).get();
}

void Queue(Object* object) {
  State& state = The();
  const std::lock_guard lock(state.lock);
  state.queue.push_back(object);
  state.queuedOne.notify_all();
}

void Drop(Object* object) {
  State& state = The();
  const std::lock_guard lock(state.lock);
  std::erase(state.queue, object);
}

// Callbacks run on the test's own thread, so none runs while another one waits for it.
void WaitFor(Object* object, bool cancelPending) {
  if (cancelPending) Drop(object);
}

void Close(Object* object) {
  Drop(object);
  State& state = The();
  const std::lock_guard lock(state.lock);
  state.objects.remove_if([object](const auto& each) { return each.get() == object; });
}

void TakeSignals(State& state) {
  for (const auto& object : state.objects) {
    if (object->waits.value() == 0 || WaitForSingleObject(object->waits, 0) != WAIT_OBJECT_0) continue;
    object->waits = {};
    state.queue.push_back(object.get());
  }
}

}  // namespace

std::size_t Queued() {
  State& state = The();
  const std::lock_guard lock(state.lock);
  TakeSignals(state);
  return state.queue.size();
}

void Run(std::size_t place) {
  State& state = The();
  std::function<void()> callback;
  {
    const std::lock_guard lock(state.lock);
    if (place >= state.queue.size()) std::abort();
    const auto chosen = state.queue.begin() + static_cast<std::ptrdiff_t>(place);
    callback = (*chosen)->callback;
    state.queue.erase(chosen);
  }
  callback();
}

void RunAll() {
  while (Queued() != 0) Run();
}

void AwaitQueued() {
  State& state = The();
  std::unique_lock lock(state.lock);
  state.queuedOne.wait(lock, [&state] { return !state.queue.empty(); });
}

std::optional<Timer> TimerSet() {
  State& state = The();
  const std::lock_guard lock(state.lock);
  for (const auto& object : state.objects) {
    if (object->timer) return object->timer;
  }
  return std::nullopt;
}

void Fire() {
  State& state = The();
  const std::lock_guard lock(state.lock);
  for (const auto& object : state.objects) {
    if (!object->timer) continue;
    object->timer.reset();
    state.queue.push_back(object.get());
  }
}

std::size_t Objects() {
  State& state = The();
  const std::lock_guard lock(state.lock);
  return state.objects.size();
}

}  // namespace streams::pool

namespace platform {

using streams::pool::kInstance;
using streams::pool::Object;
using streams::pool::Of;

void DisassociateCurrentThreadFromCallback(PTP_CALLBACK_INSTANCE) noexcept {}

PTP_WORK CreateThreadpoolWork(PTP_WORK_CALLBACK callback, void* context, const TP_CALLBACK_ENVIRON*) noexcept {
  Object* const object = streams::pool::Add();
  auto* const work = reinterpret_cast<PTP_WORK>(object);
  object->callback = [=] { callback(kInstance, context, work); };
  return work;
}
void SubmitThreadpoolWork(PTP_WORK work) noexcept { streams::pool::Queue(Of(work)); }
void WaitForThreadpoolWorkCallbacks(PTP_WORK work, bool cancelPending) noexcept {
  streams::pool::WaitFor(Of(work), cancelPending);
}
void CloseThreadpoolWork(PTP_WORK work) noexcept { streams::pool::Close(Of(work)); }

PTP_WAIT CreateThreadpoolWait(PTP_WAIT_CALLBACK callback, void* context, const TP_CALLBACK_ENVIRON*) noexcept {
  Object* const object = streams::pool::Add();
  auto* const wait = reinterpret_cast<PTP_WAIT>(object);
  object->callback = [=] { callback(kInstance, context, wait, WAIT_OBJECT_0); };
  return wait;
}
void SetThreadpoolWait(PTP_WAIT wait, WaitableHandle handle, std::nullptr_t) noexcept {
  auto& state = streams::pool::The();
  const std::lock_guard lock(state.lock);
  Of(wait)->waits = handle;
}
void WaitForThreadpoolWaitCallbacks(PTP_WAIT wait, bool cancelPending) noexcept {
  streams::pool::WaitFor(Of(wait), cancelPending);
}
void CloseThreadpoolWait(PTP_WAIT wait) noexcept { streams::pool::Close(Of(wait)); }

PTP_TIMER CreateThreadpoolTimer(PTP_TIMER_CALLBACK callback, void* context, const TP_CALLBACK_ENVIRON*) noexcept {
  Object* const object = streams::pool::Add();
  auto* const timer = reinterpret_cast<PTP_TIMER>(object);
  object->callback = [=] { callback(kInstance, context, timer); };
  return timer;
}
void SetThreadpoolTimer(PTP_TIMER timer, const FILETIME* dueTime, DWORD period, DWORD window) noexcept {
  auto& state = streams::pool::The();
  const std::lock_guard lock(state.lock);
  auto& set = Of(timer)->timer;
  set.reset();
  if (dueTime == nullptr) return;
  const auto due = static_cast<std::uint64_t>(dueTime->dwHighDateTime) << 32 | dueTime->dwLowDateTime;
  set = {.due = static_cast<std::int64_t>(due), .period = period, .window = window};
}
void WaitForThreadpoolTimerCallbacks(PTP_TIMER timer, bool cancelPending) noexcept {
  streams::pool::WaitFor(Of(timer), cancelPending);
}
void CloseThreadpoolTimer(PTP_TIMER timer) noexcept { streams::pool::Close(Of(timer)); }

}  // namespace platform
