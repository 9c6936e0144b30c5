#include <memory>
#include <new>

#include "platform/linux/ansi.h"
#include "platform/linux/faults.h"
#include "platform/linux/mutexObjects.h"
#include "platform/linux/namedObjects.h"

namespace platform {
namespace {

MutexHandle OpenMutex(bool initialOwner, std::u16string_view name) {
  std::shared_ptr<Mutex> mutex;
  bool isNew = true;
  if (name.empty()) {
    mutex = std::make_shared<LocalMutex>();
    if (initialOwner) static_cast<void>(mutex->Wait(0));
  } else {
    const std::string path = namedObjects::PathOf(name);
    if (!path.empty()) mutex = OpenSharedMutex(path, initialOwner, isNew);
  }
  if (!mutex) return {};
  const MutexHandle handle(handleTable::Add(std::move(mutex)));
  if (handle) SetLastError(isNew ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
  return handle;
}

}  // namespace

MutexHandle CreateMutexW(std::nullptr_t, bool initialOwner, const char16_t* name) noexcept try {
  if (FaultInjected("CreateMutexW")) return {};
  return OpenMutex(initialOwner, name != nullptr ? name : u"");
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

MutexHandle CreateMutexA(std::nullptr_t, bool initialOwner, const char* name) noexcept try {
  if (FaultInjected("CreateMutexA")) return {};
  return OpenMutex(initialOwner, name != nullptr ? ansi::ToWide(name) : std::u16string());
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

DWORD WaitForSingleObject(MutexHandle handle, DWORD milliseconds) noexcept try {
  if (FaultInjected("WaitForSingleObject")) return WAIT_FAILED;
  const auto mutex = handleTable::FindAs<Mutex>(handle.value());
  return mutex ? mutex->Wait(milliseconds) : WAIT_FAILED;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return WAIT_FAILED;
}

bool ReleaseMutex(MutexHandle handle) noexcept {
  if (FaultInjected("ReleaseMutex")) return false;
  const auto mutex = handleTable::FindAs<Mutex>(handle.value());
  if (!mutex) return false;
  const bool released = mutex->Release();
  if (!released) SetLastError(ERROR_NOT_OWNER);
  return released;
}

}  // namespace platform
