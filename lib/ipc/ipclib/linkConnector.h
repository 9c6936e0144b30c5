// How a new link gets what it needs of the service that it is to reach.
#pragma once

#include <memory>

#include "lib/ipc/ipclib/flags.h"
#include "lib/ipc/ipclib/ipclibStatus.h"
#include "lib/task/taskExecutor.h"

namespace quill::ipc {

class LmIpclibLink;
class LmIpclibStream;

class LmIpclibLinkConnector {
 public:
  LmIpclibLinkConnector() = default;
  LmIpclibLinkConnector(const LmIpclibLinkConnector&) = delete;
  LmIpclibLinkConnector& operator=(const LmIpclibLinkConnector&) = delete;
  virtual ~LmIpclibLinkConnector() = default;

  // Asks the service for the stream, attaches the link to what the service answers, and tells the stream its remote
  // end. The link is in Connecting, and no lock is held. `errorCode` gets the last status of the RPC runtime, or error
  // of the system.
  virtual LmIpcStatusCode connect(const std::shared_ptr<task::TaskExecutor>& executor,
                                  const std::shared_ptr<LmIpclibStream>& stream,
                                  const std::shared_ptr<LmIpclibLink>& link, unsigned& errorCode) = 0;
};

// The connector that suits the flags; null when none does.
[[nodiscard]] std::unique_ptr<LmIpclibLinkConnector> createLinkConnector(StreamFlags flags);

}  // namespace quill::ipc
