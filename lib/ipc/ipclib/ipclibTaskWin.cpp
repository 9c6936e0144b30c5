#include "lib/ipc/ipclib/ipclibTaskWin.h"

#include <utility>

#include "lib/ipc/ipclib/ipclibTrace.h"

namespace quill::ipc {
namespace {

constexpr std::uint32_t kTimerWindow = 0;  // Timers are as punctual as the system can.

}  // namespace

LmIpclibTaskWin::~LmIpclibTaskWin() {
  if (executor_) executor_->shutDown();
  if (group_) closeGroup();
}

LmIpcStatusCode LmIpclibTaskWin::init() {
  Trace(TraceChannel::Lib, "> ");
  const LmIpcStatusCode status = makeExecutor();
  Trace(TraceChannel::Lib, "< status: {}", status);
  return status;
}

LmIpcStatusCode LmIpclibTaskWin::makeExecutor() {
  platform::InitializeThreadpoolEnvironment(&environment_);
  group_.reset(platform::CreateThreadpoolCleanupGroup());
  if (!group_) {
    platform::DestroyThreadpoolEnvironment(&environment_);
    environment_ = {};
    return LmIpcStatusCode::Unexpected;
  }
  platform::SetThreadpoolCallbackCleanupGroup(&environment_, group_.get(), nullptr);
  executor_ = task::CreateWindowsThreadPoolExecutor(&environment_, kTimerWindow);
  return LmIpcStatusCode::Success;
}

void LmIpclibTaskWin::uninit(std::unique_lock<std::mutex>& lock) {
  Trace(TraceChannel::Lib, "> ");
  const auto executor = std::exchange(executor_, nullptr);
  lock.unlock();
  // Waits for callbacks, so not under the lock: a link that ends in one of them wants it. Who is about to connect may
  // hold the executor for a while yet, and tasks with it, which must not outlive their group.
  if (executor) executor->shutDown();
  if (group_) {
    Trace(TraceChannel::Lib, "Waiting for group callbacks to complete");
    closeGroup();
  }
  Trace(TraceChannel::Lib, "Destroying threadpool environment");
  platform::DestroyThreadpoolEnvironment(&environment_);
  lock.lock();
  Trace(TraceChannel::Lib, "< ");
}

void LmIpclibTaskWin::closeGroup() noexcept {
  platform::CloseThreadpoolCleanupGroupMembers(group_.get(), false, nullptr);
  group_.reset();
}

}  // namespace quill::ipc
