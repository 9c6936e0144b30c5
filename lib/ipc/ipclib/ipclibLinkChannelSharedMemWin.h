// One direction of a link: a block of shared memory and the four events that go with it.
//
// Threading: `open` and `destroy` are called by one thread at a time. Between the two, everything else may be called
// from any thread without a lock. Who may touch the block at which time is told by the events.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "lib/ipc/ipclib/ipclibLinkChannelResourceWin.h"
#include "lib/ipc/ipclib/ipclibStatus.h"
#include "platform/raii.h"

namespace quill::ipc {

// Lives in a std::shared_ptr.
class LmIpclibLinkChannelSharedMemWin {
 public:
  // `size` is that of the shared block, in bytes, as whoever made the block tells it. Nothing checks it.
  LmIpclibLinkChannelSharedMemWin(std::uint32_t linkValue, std::uint32_t flags, std::uint32_t size) noexcept;
  LmIpclibLinkChannelSharedMemWin(const LmIpclibLinkChannelSharedMemWin&) = delete;
  LmIpclibLinkChannelSharedMemWin& operator=(const LmIpclibLinkChannelSharedMemWin&) = delete;
  virtual ~LmIpclibLinkChannelSharedMemWin();

  // Takes duplicates of the handles, which must be open in this process, and maps the block. The resources keep theirs.
  //   Unexpected   why stands in `errorCode`, which is 0 otherwise. When a handle could not be duplicated, the channel
  //                keeps those that were, until it is destroyed; when the block could not be mapped, it keeps none.
  LmIpcStatusCode open(const LmIpclibLinkChannelResourceWin& resources, unsigned& errorCode) noexcept;
  // Takes back what `open` did. May be called at any time, and again.
  void destroy() noexcept;

  // The block, which holds one transaction, its header at the front (ipclibWire.h). The other process can write to it
  // at any time: a reader copies out what it relies on. Empty while nothing is mapped.
  [[nodiscard]] std::span<std::byte> getView() const noexcept;

  // Null while the channel is not open. The channel closes them.
  [[nodiscard]] platform::EventHandle getDataReadyEvent() const noexcept { return dataReadyEvent_.get(); }
  [[nodiscard]] platform::EventHandle getDataConsumedEvent() const noexcept { return dataConsumedEvent_.get(); }
  [[nodiscard]] platform::EventHandle getErrorEvent() const noexcept { return errorEvent_.get(); }
  [[nodiscard]] platform::EventHandle getStopEvent() const noexcept { return stopEvent_.get(); }

  // Signal the event; nothing happens while the channel is not open.
  void setDataReady() const noexcept { platform::SetEvent(dataReadyEvent_.get()); }
  void setDataConsumed() const noexcept { platform::SetEvent(dataConsumedEvent_.get()); }
  void setError() const noexcept { platform::SetEvent(errorEvent_.get()); }
  void setStop() const noexcept { platform::SetEvent(stopEvent_.get()); }

 private:
  [[nodiscard]] bool duplicateAll(const LmIpclibLinkChannelResourceWin& resources) noexcept;

  [[maybe_unused]] const std::uint32_t linkValue_;  // Nobody reads it.
  [[maybe_unused]] const std::uint32_t flags_;      // The link's, when this was made. Nobody reads it.
  const std::uint32_t size_;
  platform::UniqueSection mapping_;
  platform::UniqueView view_;
  platform::UniqueEvent dataReadyEvent_;
  platform::UniqueEvent dataConsumedEvent_;
  platform::UniqueEvent errorEvent_;
  platform::UniqueEvent stopEvent_;
};

}  // namespace quill::ipc
