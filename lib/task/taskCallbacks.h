// What a task's callback works on. It is apart from the task's handle because it may have to outlive that while the
// callback finishes.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>

#include "lib/task/ownedArgument.h"
#include "platform/threadPool.h"

namespace quill::task {

struct TimerCallbackContext {
  std::function<void()> function;
  bool deleteOnReturn = false;
};

struct WaitCallbackContext {
  std::atomic<std::uint8_t> armed{0};
  std::function<void()> function;
  platform::WaitableHandle waitHandle;
  bool deleteOnReturn = false;
};

struct WorkCallbackContext {
  // Discarded in the reverse order of declaration.
  struct Entry {
    OwnedArgument first;
    OwnedArgument second;
  };

  std::function<void(void*, void*)> function;
  std::mutex mutex;
  std::deque<Entry> queue;
  bool deleteOnReturn = false;
};

// The callback that the calling thread is in, or nulls.
struct CurrentCallback {
  void* currentContext = nullptr;
  platform::PTP_CALLBACK_INSTANCE currentInstance = nullptr;
};
[[nodiscard]] CurrentCallback& ThisThreadsCallback() noexcept;

// The pool's entries. An exception ends the process here: the system's frames lie above.
void TimerCallback(platform::PTP_CALLBACK_INSTANCE instance, void* context, platform::PTP_TIMER timer) noexcept;
void WaitCallback(platform::PTP_CALLBACK_INSTANCE instance, void* context, platform::PTP_WAIT wait,
                  platform::TP_WAIT_RESULT result) noexcept;
void WorkCallback(platform::PTP_CALLBACK_INSTANCE instance, void* context, platform::PTP_WORK work) noexcept;

}  // namespace quill::task
