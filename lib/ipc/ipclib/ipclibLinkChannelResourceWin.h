// Handles on their way from the connector to a channel, and handles that live in another process.
//
// Threading: each object belongs to one thread at a time.
#pragma once

#include "platform/handles.h"

namespace quill::ipc {

// Closes a handle that lives in the owner process. False when it does not: the reason is traced, and stands in
// `*errorCode` unless that is null. ERROR_INVALID_HANDLE when there is no owner or no handle.
bool CloseDuplicateHandle(platform::ProcessHandle ownerProcess, platform::KernelHandle handle,
                          unsigned* errorCode) noexcept;

// The raw handles of one channel. Whoever fills it in says whether it closes them in the end.
class LmIpclibLinkChannelResourceWin {
 public:
  explicit LmIpclibLinkChannelResourceWin(bool closesHandles) noexcept : closeHandles(closesHandles) {}
  LmIpclibLinkChannelResourceWin(const LmIpclibLinkChannelResourceWin&) = delete;
  LmIpclibLinkChannelResourceWin& operator=(const LmIpclibLinkChannelResourceWin&) = delete;
  ~LmIpclibLinkChannelResourceWin() { close(); }

  // Closes the handles, if it is to do so, and holds nothing from then on.
  void close() noexcept;

  bool closeHandles;
  platform::ProcessHandle ownerProcess;  // Where the handles below live; null: here. Never closed.
  platform::SectionHandle mapping;
  platform::EventHandle dataReadyEvent;
  platform::EventHandle dataConsumedEvent;
  platform::EventHandle errorEvent;
  platform::EventHandle stopEvent;
};

// Holds the handle of a process, and closes it. The handle may live in another process, `ownerProcess`; null: here.
// `ownerProcess` itself is never closed.
class LmIpclibRemoteHandle {
 public:
  LmIpclibRemoteHandle() noexcept = default;
  LmIpclibRemoteHandle(const LmIpclibRemoteHandle&) = delete;
  LmIpclibRemoteHandle& operator=(const LmIpclibRemoteHandle&) = delete;
  ~LmIpclibRemoteHandle() { close(); }

  // Closes the handle, and holds nothing.
  void close() noexcept;
  // The same; the handle that comes next lives in this process.
  void reset(platform::ProcessHandle ownerProcess) noexcept;
  void clear() noexcept { close(); }

  [[nodiscard]] platform::ProcessHandle getHandle() const noexcept { return handle_; }
  // Closes the handle; this one is held from now on. It lives where the last reset said.
  void setHandle(platform::ProcessHandle handle) noexcept;

 private:
  void closeHandle() noexcept;

  platform::ProcessHandle handle_;
  platform::ProcessHandle ownerProcess_;
};

}  // namespace quill::ipc
