// The thread of the resident helper that follows the policy settings.
#pragma once

#include "platform/types.h"

namespace launcher {

// The start routine. `window` is the value of the helper window's handle: the thread gives orders by posting to it, and
// ends when ShutdownEvent is set. Returns 0.
platform::DWORD SettingsWatcherThread(void* window);

}  // namespace launcher
