#include "lib/ipc/ipclib/createLink.h"

#include <utility>

#include "lib/ipc/ipclib/ipclibLinkSharedMemWin.h"

namespace quill::ipc {

std::shared_ptr<LmIpclibLink> createLink(const platform::GUID& endpoint, std::uint32_t flags,
                                         LmIpclibLink::Callback onStopping, LmIpclibLink::Callback onClosed) {
  return std::make_shared<LmIpclibLinkSharedMemWin>(endpoint, flags, std::move(onStopping), std::move(onClosed));
}

}  // namespace quill::ipc
