// Work tasks with a typed argument, closed by their owner's end.
//
//   auto task = CreateWorkTask<void(std::shared_ptr<Stream>)>(*executor, [](std::shared_ptr<Stream> stream) { ... });
//   task.submit(stream);
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "lib/task/windowsThreadPoolExecutor.h"

namespace quill::task {

template <class Signature>
class WorkTask;

// Owns the task, without keeping it alive: the executor does that. Closes it at its end, which may come from within its
// own callback. May be empty.
template <class Argument>
class WorkTask<void(Argument)> {
 public:
  WorkTask() noexcept = default;
  explicit WorkTask(std::weak_ptr<WtpWorkTaskContext> task) noexcept : task_(std::move(task)) {}
  WorkTask(WorkTask&&) noexcept = default;
  WorkTask& operator=(WorkTask&& other) noexcept {
    WorkTask old(std::exchange(task_, std::exchange(other.task_, {})));
    return *this;
  }
  WorkTask(const WorkTask&) = delete;
  WorkTask& operator=(const WorkTask&) = delete;
  ~WorkTask() {
    if (auto task = task_.lock()) task->executor->close(std::move(task));
    task_.reset();
  }

  // Nothing happens when the task is gone.
  void submit(Argument argument) const {
    const std::shared_ptr<WtpWorkTaskContext> task = task_.lock();
    if (!task) return;
    OwnedArgument copy(new Argument(std::move(argument)),
                       [](void* pointer) { delete static_cast<Argument*>(pointer); });
    task->executor->submit(task, {}, std::move(copy));
  }

 private:
  std::weak_ptr<WtpWorkTaskContext> task_;
};

template <class Signature>
struct WorkTaskArgument;
template <class Argument>
struct WorkTaskArgument<void(Argument)> {
  using Type = Argument;
};

template <class Signature>
[[nodiscard]] WorkTask<Signature> CreateWorkTask(WorkTaskExecutor& executor, std::function<Signature> function) {
  using Argument = typename WorkTaskArgument<Signature>::Type;
  // Only the second argument is in use.
  return WorkTask<Signature>(executor.create([typed = std::move(function)](void*, void* second) {
    Argument argument(std::move(*static_cast<Argument*>(second)));
    typed(std::move(argument));
  }));
}

}  // namespace quill::task
