#include "lib/ipc/ipclib/ipclibLinkChannelResourceWin.h"

#include <utility>

#include "lib/ipc/ipclib/ipclibTrace.h"
#include "platform/error.h"

namespace quill::ipc {
namespace {

template <class Handle>
void closeAndClear(platform::ProcessHandle ownerProcess, Handle& handle) noexcept {
  const Handle closed = std::exchange(handle, nullptr);
  if (!closed) return;
  if (ownerProcess) {
    CloseDuplicateHandle(ownerProcess, closed, nullptr);
  } else {
    platform::CloseHandle(closed);  // closes by hand: what it holds may live elsewhere
  }
}

}  // namespace

bool CloseDuplicateHandle(platform::ProcessHandle ownerProcess, platform::KernelHandle handle,
                          unsigned* errorCode) noexcept {
  unsigned error = platform::ERROR_INVALID_HANDLE;
  if (ownerProcess && handle.value() != 0) {
    if (platform::DuplicateHandle(ownerProcess, handle, nullptr, nullptr, 0, false, platform::DUPLICATE_CLOSE_SOURCE)) {
      return true;
    }
    error = platform::GetLastError();
  }
  Trace(TraceChannel::Link, "< errorCode: {}", error);
  if (errorCode != nullptr) *errorCode = error;
  return false;
}

void LmIpclibLinkChannelResourceWin::close() noexcept {
  if (std::exchange(closeHandles, false)) {
    closeAndClear(ownerProcess, mapping);
    closeAndClear(ownerProcess, dataReadyEvent);
    closeAndClear(ownerProcess, dataConsumedEvent);
    closeAndClear(ownerProcess, errorEvent);
    closeAndClear(ownerProcess, stopEvent);
  }
  ownerProcess = nullptr;
  mapping = nullptr;
  dataReadyEvent = dataConsumedEvent = errorEvent = stopEvent = nullptr;
}

void LmIpclibRemoteHandle::close() noexcept {
  closeHandle();
  ownerProcess_ = nullptr;
}

void LmIpclibRemoteHandle::reset(platform::ProcessHandle ownerProcess) noexcept {
  closeHandle();
  ownerProcess_ = ownerProcess;
}

void LmIpclibRemoteHandle::setHandle(platform::ProcessHandle handle) noexcept {
  closeHandle();
  handle_ = handle;
}

void LmIpclibRemoteHandle::closeHandle() noexcept { closeAndClear(ownerProcess_, handle_); }

}  // namespace quill::ipc
