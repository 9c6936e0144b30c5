// The tasks of one library: makes the executor that its streams and links work on, and ends what they have left.
#pragma once

#include <memory>
#include <mutex>

#include "lib/ipc/ipclib/ipclibStatus.h"
#include "lib/task/taskExecutor.h"

namespace quill::ipc {

class LmIpclibTask {
 public:
  LmIpclibTask() = default;
  LmIpclibTask(const LmIpclibTask&) = delete;
  LmIpclibTask& operator=(const LmIpclibTask&) = delete;
  virtual ~LmIpclibTask() = default;

  // Unexpected: the system has no means. May be called once.
  virtual LmIpcStatusCode init() = 0;
  // Ends all tasks, and waits for those callbacks that run. `lock` is the library's: held on entry and on return, and
  // given up meanwhile, for callbacks may want it. On no thread of the executor.
  virtual void uninit(std::unique_lock<std::mutex>& lock) = 0;

  // Empty before init, when it failed, and behind uninit. With the library's lock held.
  [[nodiscard]] virtual std::shared_ptr<task::TaskExecutor> executor() const = 0;
};

}  // namespace quill::ipc
