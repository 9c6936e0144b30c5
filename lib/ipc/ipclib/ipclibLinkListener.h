// Whoever takes the streams that a peer opens on a link.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "lib/ipc/ipclib/ipclibStatus.h"
#include "platform/types.h"

namespace quill::ipc {

class LmIpclibStream;

class LmIpclibLinkListener {
 public:
  // Accepts the stream, now or later; or tells why it is refused.
  using OnStream = std::function<LmIpcStatusCode(std::shared_ptr<LmIpclibStream>)>;

  LmIpclibLinkListener(const platform::GUID& endpoint, OnStream onStream)
      : endpoint_(endpoint), onStream_(std::move(onStream)) {}

  // Offers the stream. `onAcceptSendOpenAck` says whether its `accept` tells the peer.
  LmIpcStatusCode connectStream(const std::shared_ptr<LmIpclibStream>& stream, bool onAcceptSendOpenAck) const;

 private:
  const platform::GUID endpoint_;
  const OnStream onStream_;
};

}  // namespace quill::ipc
