#include <new>

#include "platform/error.h"
#include "platform/linux/faults.h"
#include "platform/linux/poolWorkers.h"

namespace platform {

void InitializeThreadpoolEnvironment(TP_CALLBACK_ENVIRON* environment) noexcept {
  *environment = {};
  environment->Version = 3;
  environment->CallbackPriority = TP_CALLBACK_PRIORITY_NORMAL;
  environment->Size = sizeof *environment;
}

void SetThreadpoolCallbackPool(TP_CALLBACK_ENVIRON* environment, PTP_POOL pool) noexcept { environment->Pool = pool; }

void SetThreadpoolCallbackCleanupGroup(TP_CALLBACK_ENVIRON* environment, PTP_CLEANUP_GROUP group,
                                       std::nullptr_t) noexcept {
  environment->CleanupGroup = group;
}

// It holds nothing: the pool and the group are closed by whoever made them.
void DestroyThreadpoolEnvironment(TP_CALLBACK_ENVIRON*) noexcept {}

PTP_CLEANUP_GROUP CreateThreadpoolCleanupGroup() noexcept {
  if (FaultInjected("CreateThreadpoolCleanupGroup")) return nullptr;
  auto* const group = new (std::nothrow) TP_CLEANUP_GROUP;
  if (group == nullptr) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return group;
}

void CloseThreadpoolCleanupGroupMembers(PTP_CLEANUP_GROUP group, bool cancelPending, std::nullptr_t) noexcept {
  BeforeBlocking();
  PoolLock lock = LockPools();
  for (PoolObject* const member : group->members) member->Disarm();
  if (cancelPending) {
    for (PoolObject* const member : group->members) member->CancelPending();
  }
  while (!group->members.empty()) group->members.front()->CloseWhenReturned(lock);
}

void CloseThreadpoolCleanupGroup(PTP_CLEANUP_GROUP group) noexcept { delete group; }

void DisassociateCurrentThreadFromCallback(PTP_CALLBACK_INSTANCE instance) noexcept {
  const PoolLock lock = LockPools();
  instance->object.Disassociate(*instance);
}

}  // namespace platform
