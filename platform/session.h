// The user whose session the process runs in.
#pragma once

#include "platform/types.h"

namespace platform {

// The name of the calling thread's user. `size` is in units with the NUL, on entry and on return; false with
// ERROR_INSUFFICIENT_BUFFER and the needed size when the name does not fit.
bool GetUserNameW(char16_t* name, DWORD* size) noexcept;

}  // namespace platform
