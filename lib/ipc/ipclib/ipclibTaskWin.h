// The tasks of a library on the system's thread pool. Its objects belong to a cleanup group, which is what ends them.
#pragma once

#include <memory>

#include "lib/ipc/ipclib/ipclibTask.h"
#include "lib/task/windowsThreadPoolExecutor.h"
#include "platform/raii.h"
#include "platform/threadPool.h"

namespace quill::ipc {

class LmIpclibTaskWin final : public LmIpclibTask {
 public:
  LmIpclibTaskWin() = default;
  // Ends the tasks of one that was not uninitialised.
  ~LmIpclibTaskWin() override;

  LmIpcStatusCode init() override;
  void uninit(std::unique_lock<std::mutex>& lock) override;
  [[nodiscard]] std::shared_ptr<task::TaskExecutor> executor() const override { return executor_; }

 private:
  LmIpcStatusCode makeExecutor();
  void closeGroup() noexcept;

  std::shared_ptr<task::WindowsThreadPoolExecutor> executor_;
  platform::TP_CALLBACK_ENVIRON environment_{};  // The executor refers to it.
  platform::UniqueCleanupGroup group_;
};

}  // namespace quill::ipc
