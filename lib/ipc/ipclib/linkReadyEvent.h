// The named event by which a service says that it has come up: set while somebody listens at the endpoint.
//
// Threading: any thread.
#pragma once

#include <cstdint>

#include "lib/ipc/ipclib/ipclibStatus.h"
#include "platform/handles.h"
#include "platform/raii.h"
#include "platform/types.h"

namespace quill::ipc {

// The endpoint's event, made when there is none yet, for whom the security descriptor lets; null: as the system sees
// fit. A process that comes in a package makes none, and may only wait for it. Null on failure.
[[nodiscard]] platform::UniqueEvent getLinkReadyEvent(const platform::GUID& endpoint,
                                                      void* securityDescriptor) noexcept;

// Waits until a service listens at the endpoint, at most so long.
//   Unexpected     there is no event to wait for
//   Abort          `abortEvent` was set first; null: nothing aborts
//   TimedOut       nobody came
//   InvalidParam   the wait failed
LmIpcStatusCode waitForLinkListener(const platform::GUID& endpoint, std::uint32_t timeoutMs,
                                    platform::EventHandle abortEvent) noexcept;

}  // namespace quill::ipc
