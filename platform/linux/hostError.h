// The one place where the host's errors become the system's.
#pragma once

#include "platform/types.h"

namespace platform {

// The system's error for a value of errno; ERROR_GEN_FAILURE for one that has no counterpart.
[[nodiscard]] DWORD ErrorFromHost(int hostError) noexcept;

}  // namespace platform
