#include "taskCallbacks.h"

#include <optional>
#include <utility>

namespace quill::task {
namespace {

using platform::PTP_CALLBACK_INSTANCE;

void CallFunction(TimerCallbackContext& context) { context.function(); }

// A callback that was on its way when its task was stopped finds the task not armed.
void CallFunction(WaitCallbackContext& context) {
  if (context.armed.exchange(0) != 0) context.function();
}

std::optional<WorkCallbackContext::Entry> TakeEntry(WorkCallbackContext& context) {
  const std::lock_guard lock(context.mutex);
  if (context.queue.empty()) return std::nullopt;
  std::optional<WorkCallbackContext::Entry> entry(std::move(context.queue.front()));
  context.queue.pop_front();
  return entry;
}

void CallFunction(WorkCallbackContext& context) {
  if (const auto entry = TakeEntry(context)) {
    context.function(entry->first.pointer(), entry->second.pointer());
  } else {
    context.function(nullptr, nullptr);
  }
}

template <class Context>
void RunCallback(PTP_CALLBACK_INSTANCE instance, void* pointer) noexcept {
  auto* const context = static_cast<Context*>(pointer);
  CurrentCallback& current = ThisThreadsCallback();
  current = {.currentContext = context, .currentInstance = instance};
  CallFunction(*context);
  // The function has closed its own task, and so left the context to us.
  if (context->deleteOnReturn) delete context;
  current = {};
}

}  // namespace

CurrentCallback& ThisThreadsCallback() noexcept {
  thread_local CurrentCallback current;
  return current;
}

void TimerCallback(PTP_CALLBACK_INSTANCE instance, void* context, platform::PTP_TIMER) noexcept {
  RunCallback<TimerCallbackContext>(instance, context);
}

void WaitCallback(PTP_CALLBACK_INSTANCE instance, void* context, platform::PTP_WAIT,
                  platform::TP_WAIT_RESULT) noexcept {
  RunCallback<WaitCallbackContext>(instance, context);
}

void WorkCallback(PTP_CALLBACK_INSTANCE instance, void* context, platform::PTP_WORK) noexcept {
  RunCallback<WorkCallbackContext>(instance, context);
}

}  // namespace quill::task
