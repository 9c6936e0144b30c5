// Whoever takes the streams that a peer opens on a link: one way of being reached, of those that a listener has.
//
// Threading: any thread.
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
  LmIpclibLinkListener(const LmIpclibLinkListener&) = delete;
  LmIpclibLinkListener& operator=(const LmIpclibLinkListener&) = delete;
  virtual ~LmIpclibLinkListener() = default;

  // Offers the stream. `onAcceptSendOpenAck` says whether its `accept` tells the peer. The result is that of the
  // reaction; without one std::bad_function_call is thrown.
  virtual LmIpcStatusCode connectStream(const std::shared_ptr<LmIpclibStream>& stream, bool onAcceptSendOpenAck) const;

  // Ends what the way of being reached holds open. One that only takes what its links hand it holds nothing.
  virtual LmIpcStatusCode close() { return LmIpcStatusCode::Success; }

 private:
  const platform::GUID endpoint_;
  const OnStream onStream_;
};

}  // namespace quill::ipc
