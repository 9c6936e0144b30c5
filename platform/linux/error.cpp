#include "platform/error.h"

namespace platform {
namespace {
thread_local DWORD errorOfThisThread = ERROR_SUCCESS;
}

DWORD GetLastError() noexcept { return errorOfThisThread; }
void SetLastError(DWORD error) noexcept { errorOfThisThread = error; }

}  // namespace platform
