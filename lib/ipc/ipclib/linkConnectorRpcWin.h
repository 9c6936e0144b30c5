// Connects by one local RPC call to the service that owns the stream's endpoint.
//
// Blocks until the service has answered, without a limit, and does not try again.
#pragma once

#include "lib/ipc/ipclib/linkConnector.h"
#include "platform/rpc.h"

namespace quill::ipc {

class LmIpclibLinkConnectorRpcWin final : public LmIpclibLinkConnector {
 public:
  // `useSystemHandles`: the handles pass through the RPC runtime, and the service can watch this process by a pipe;
  // else the service puts its handles into this process.
  explicit LmIpclibLinkConnectorRpcWin(bool useSystemHandles) noexcept : useSystemHandles_(useSystemHandles) {}

  // The link is of shared memory. What the service refuses with is returned as it is; what the RPC fails with,
  // translated.
  LmIpcStatusCode connect(const std::shared_ptr<task::TaskExecutor>& executor,
                          const std::shared_ptr<LmIpclibStream>& stream, const std::shared_ptr<LmIpclibLink>& link,
                          unsigned& errorCode) override;

 private:
  const bool useSystemHandles_;
};

// The library's word for a status of the RPC runtime.
[[nodiscard]] LmIpcStatusCode statusOfRpc(platform::RPC_STATUS status) noexcept;

}  // namespace quill::ipc
