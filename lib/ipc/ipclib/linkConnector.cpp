#include "lib/ipc/ipclib/linkConnector.h"

#include "lib/ipc/ipclib/linkConnectorRpcWin.h"

namespace quill::ipc {

std::unique_ptr<LmIpclibLinkConnector> createLinkConnector(StreamFlags flags) {
  if (!flags.has(LmIpclibStreamFlag::ByConnector)) return nullptr;
  return std::make_unique<LmIpclibLinkConnectorRpcWin>(flags.has(LmIpclibStreamFlag::SystemHandles));
}

}  // namespace quill::ipc
