// How the stand-in of the service learns that a client has ended.
#pragma once

#include <memory>

#include "platform/raii.h"
#include "tests/support/rpcService.h"

namespace standIn {

// A client that sent the end of a pipe with its call is watched by that alone, any other by its process.
class ClientWatch {
 public:
  // Takes handles of its own. Throws std::system_error.
  explicit ClientWatch(const support::ConnectRequest& request);

  // Signalled once the client is gone, and from then on; null when the request named nothing to watch.
  [[nodiscard]] platform::WaitableHandle Gone() const;

 private:
  struct Pipe;

  platform::UniqueProcess process_;
  std::shared_ptr<Pipe> pipe_;
};

}  // namespace standIn
