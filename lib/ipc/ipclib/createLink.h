// The one place that decides which kind of link there is.
#pragma once

#include <cstdint>
#include <memory>

#include "lib/ipc/ipclib/ipclibLink.h"

namespace quill::ipc {

// A new link in Init. `flags` are its low half: how it is to be connected. For the callbacks see LmIpclibLink. Only
// want of memory throws (std::bad_alloc).
[[nodiscard]] std::shared_ptr<LmIpclibLink> createLink(const platform::GUID& endpoint, std::uint32_t flags,
                                                       LmIpclibLink::Callback onStopping,
                                                       LmIpclibLink::Callback onClosed);

}  // namespace quill::ipc
