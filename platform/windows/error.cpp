#include "platform/error.h"

#include <windows.h>

namespace platform {

DWORD GetLastError() noexcept { return ::GetLastError(); }
void SetLastError(DWORD error) noexcept { ::SetLastError(error); }

}  // namespace platform
