#include "platform/linux/faults.h"
#include "platform/linux/poolWorkers.h"

namespace platform {

struct TP_WORK final : PoolObject {
  TP_WORK(ObjectPlace place, void* context, PTP_WORK_CALLBACK function)
      : PoolObject(*place.pool, place.group, context), callback(function) {}
  void Run(TP_CALLBACK_INSTANCE& instance) override { callback(&instance, Context(), this); }

  const PTP_WORK_CALLBACK callback;
};

PTP_WORK CreateThreadpoolWork(PTP_WORK_CALLBACK callback, void* context,
                              const TP_CALLBACK_ENVIRON* environment) noexcept {
  if (FaultInjected("CreateThreadpoolWork")) return nullptr;
  return NewObject<TP_WORK>(environment, context, callback);
}

void SubmitThreadpoolWork(PTP_WORK work) noexcept { Submit(*work); }

void WaitForThreadpoolWorkCallbacks(PTP_WORK work, bool cancelPending) noexcept { WaitForObject(*work, cancelPending); }

void CloseThreadpoolWork(PTP_WORK work) noexcept { CloseObject(*work); }

}  // namespace platform
