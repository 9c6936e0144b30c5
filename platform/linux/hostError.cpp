#include "platform/linux/hostError.h"

#include <cerrno>

#include "platform/error.h"

namespace platform {

DWORD ErrorFromHost(int hostError) noexcept {
  switch (hostError) {
    case 0: return ERROR_SUCCESS;
    case ENOENT: return ERROR_FILE_NOT_FOUND;
    case ENOTDIR: return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EISDIR:
    case EROFS:
    case ELOOP:
    case ETXTBSY: return ERROR_ACCESS_DENIED;
    case EBADF: return ERROR_INVALID_HANDLE;
    case ENOMEM:
    case EAGAIN:
    case EMFILE:
    case ENFILE:
    case ENOSPC: return ERROR_NOT_ENOUGH_MEMORY;
    case EINVAL: return ERROR_INVALID_PARAMETER;
    case ENAMETOOLONG:
    case E2BIG: return ERROR_FILENAME_EXCED_RANGE;
    case ENOEXEC: return ERROR_BAD_EXE_FORMAT;
    default: return ERROR_GEN_FAILURE;
  }
}

}  // namespace platform
