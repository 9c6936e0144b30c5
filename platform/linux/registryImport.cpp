#include "platform/linux/registryImport.h"

#include <new>

#include "platform/error.h"
#include "platform/linux/hive.h"

namespace platform::registry {
namespace {

LSTATUS ImportInto(HiveId id, std::string_view bytes) {
  HiveWriting hive(id);
  if (hive.Error() != ERROR_SUCCESS) return hive.Error();
  if (!ApplyRegText(bytes, id, hive.Root())) return ERROR_SUCCESS;
  return hive.Commit();
}

}  // namespace

bool ImportRegText(std::string_view bytes) noexcept {
  LSTATUS status = ERROR_NOT_ENOUGH_MEMORY;
  try {
    status = ImportInto(HiveId::Machine, bytes);
    if (status == ERROR_SUCCESS) status = ImportInto(HiveId::User, bytes);
  } catch (const std::bad_alloc&) {
  }
  if (status != ERROR_SUCCESS) SetLastError(static_cast<DWORD>(status));
  return status == ERROR_SUCCESS;
}

}  // namespace platform::registry
