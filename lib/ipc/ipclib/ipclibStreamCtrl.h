// The control stream of a link, which every link has: the address 0. It has no remote end of its own. Its one job is to
// take the peer's requests to open streams: each becomes a stream for the link's listener, or is refused.
#pragma once

#include <cstdint>
#include <memory>

#include "lib/ipc/ipclib/ipclibStream.h"

namespace quill::ipc {

class LmIpclibStreamCtrl final : public LmIpclibStream {
 public:
  LmIpclibStreamCtrl(const platform::GUID& endpoint, StreamFlags flags, std::uint32_t linkValue,
                     std::weak_ptr<task::TaskExecutor> executor, std::shared_ptr<LmIpclibLink> link);
  ~LmIpclibStreamCtrl() override = default;

  // Begins to take requests. The result is that of `accept`.
  LmIpcStatusCode start();
  void stop();

 private:
  void onRecv(LmIpcStatusCode status, const std::shared_ptr<LmIpclibMsg>& message);
  void open(const LmIpclibMsg& message, const std::shared_ptr<LmIpclibLink>& link);
  static LmIpcStatusCode offer(const std::shared_ptr<LmIpclibStream>& stream,
                               const std::shared_ptr<LmIpclibLink>& link);
};

}  // namespace quill::ipc
