#include "lib/ipc/ipclib/ipclibStream.h"

#include "lib/ipc/ipclib/ipclibMsg.h"

namespace quill::ipc {

void LmIpclibStream::onSendComplete(const std::shared_ptr<LmIpclibMsg>& message) noexcept {
  if ((message->flags() & LmIpclibMsg::kCountsAsOutstanding) != 0) {
    outstandingSends_.fetch_sub(1, std::memory_order_relaxed);
  }
}

}  // namespace quill::ipc
