#include <memory>
#include <optional>
#include <utility>

#include "platform/linux/faults.h"
#include "platform/linux/poolPoller.h"

namespace platform {

struct TP_WAIT final : PoolObject {
  TP_WAIT(ObjectPlace place, void* context, PTP_WAIT_CALLBACK function)
      : PoolObject(*place.pool, place.group, context), callback(function) {
    ArmedWaits home{{0, this}};
    entry = home.extract(home.begin());
  }
  void Run(TP_CALLBACK_INSTANCE& instance) override { callback(&instance, Context(), this, WAIT_OBJECT_0); }

  void Disarm() noexcept override {
    if (armed) entry = DisarmWait(*std::exchange(armed, std::nullopt));
  }
  void Arm() noexcept {
    entry.key() = target->PollDescriptor();
    armed = ArmWait(std::move(entry));
  }

  const PTP_WAIT_CALLBACK callback;
  std::shared_ptr<WaitableObject> target;  // What it waits for, while it is armed.
  ArmedWaits::node_type entry;             // While it is not armed.
  std::optional<ArmedWaits::iterator> armed;
};

bool ConsumeSignal(TP_WAIT& wait) noexcept { return wait.target->TryConsume(); }

void Fired(TP_WAIT& wait, ArmedWaits::node_type entry, PoolLock lock) noexcept {
  wait.armed.reset();
  wait.entry = std::move(entry);
  // Here, under the lock, which no object's end asks for: the callback may run, and be waited for, before Submit
  // returns, and whoever has waited finds the object released.
  wait.target.reset();
  Submit(wait, std::move(lock));
}

PTP_WAIT CreateThreadpoolWait(PTP_WAIT_CALLBACK callback, void* context,
                              const TP_CALLBACK_ENVIRON* environment) noexcept {
  if (FaultInjected("CreateThreadpoolWait")) return nullptr;
  return NewObject<TP_WAIT>(environment, context, callback);
}

void SetThreadpoolWait(PTP_WAIT wait, WaitableHandle handle, std::nullptr_t) noexcept {
  std::shared_ptr<WaitableObject> target;
  if (handle.value() != 0) target = handleTable::FindAs<WaitableObject>(handle.value());
  const PoolLock lock = LockPools();
  wait->Disarm();
  // What it waited for before goes only when the lock has gone.
  std::swap(wait->target, target);
  if (wait->target) wait->Arm();
}

void WaitForThreadpoolWaitCallbacks(PTP_WAIT wait, bool cancelPending) noexcept { WaitForObject(*wait, cancelPending); }

void CloseThreadpoolWait(PTP_WAIT wait) noexcept { CloseObject(*wait); }

}  // namespace platform
