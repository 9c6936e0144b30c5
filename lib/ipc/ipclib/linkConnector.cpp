#include "lib/ipc/ipclib/linkConnector.h"

namespace quill::ipc {

// No way to a service stands yet.
std::unique_ptr<LmIpclibLinkConnector> createLinkConnector(StreamFlags) { return nullptr; }

}  // namespace quill::ipc
