#include "platform/threadPool.h"
#if LUMENAR_TEST_HOOKS
#include "platform/windows/winePool.h"
#endif

#include <windows.h>

namespace platform {
namespace {

// What the program holds is the system's own pointer, under a name of ours.
template <class Native, class Ours>
Native NativeOf(Ours pointer) {
  return reinterpret_cast<Native>(pointer);
}

// Parameter for parameter the types are the same to the x64 calling convention.
template <class Native, class Ours>
Native NativeCallback(Ours callback) {
  return reinterpret_cast<Native>(reinterpret_cast<void (*)()>(callback));
}

::PTP_CALLBACK_ENVIRON Native(const TP_CALLBACK_ENVIRON* environment) {
  return reinterpret_cast<::PTP_CALLBACK_ENVIRON>(const_cast<TP_CALLBACK_ENVIRON*>(environment));
}

static_assert(sizeof(TP_CALLBACK_ENVIRON) == sizeof(::TP_CALLBACK_ENVIRON));
static_assert(offsetof(TP_CALLBACK_ENVIRON, CleanupGroup) == offsetof(::TP_CALLBACK_ENVIRON, CleanupGroup));
static_assert(offsetof(TP_CALLBACK_ENVIRON, Flags) == offsetof(::TP_CALLBACK_ENVIRON, u));
static_assert(offsetof(TP_CALLBACK_ENVIRON, Size) == offsetof(::TP_CALLBACK_ENVIRON, Size));
static_assert(sizeof(FILETIME) == sizeof(::FILETIME));

}  // namespace

void InitializeThreadpoolEnvironment(TP_CALLBACK_ENVIRON* environment) noexcept {
  ::InitializeThreadpoolEnvironment(Native(environment));
}

void SetThreadpoolCallbackPool(TP_CALLBACK_ENVIRON* environment, PTP_POOL pool) noexcept {
  ::SetThreadpoolCallbackPool(Native(environment), NativeOf<::PTP_POOL>(pool));
}

void SetThreadpoolCallbackCleanupGroup(TP_CALLBACK_ENVIRON* environment, PTP_CLEANUP_GROUP group,
                                       std::nullptr_t) noexcept {
  ::SetThreadpoolCallbackCleanupGroup(Native(environment), NativeOf<::PTP_CLEANUP_GROUP>(group), nullptr);
}

void DestroyThreadpoolEnvironment(TP_CALLBACK_ENVIRON* environment) noexcept {
  ::DestroyThreadpoolEnvironment(Native(environment));
}

PTP_POOL CreateThreadpool(std::nullptr_t) noexcept { return NativeOf<PTP_POOL>(::CreateThreadpool(nullptr)); }

void SetThreadpoolThreadMaximum(PTP_POOL pool, DWORD maximum) noexcept {
  ::SetThreadpoolThreadMaximum(NativeOf<::PTP_POOL>(pool), maximum);
}

void CloseThreadpool(PTP_POOL pool) noexcept { ::CloseThreadpool(NativeOf<::PTP_POOL>(pool)); }

PTP_CLEANUP_GROUP CreateThreadpoolCleanupGroup() noexcept {
  return NativeOf<PTP_CLEANUP_GROUP>(::CreateThreadpoolCleanupGroup());
}

void CloseThreadpoolCleanupGroupMembers(PTP_CLEANUP_GROUP group, bool cancelPending, std::nullptr_t) noexcept {
#if LUMENAR_TEST_HOOKS
  test::SendPoolRound();
#endif
  ::CloseThreadpoolCleanupGroupMembers(NativeOf<::PTP_CLEANUP_GROUP>(group), cancelPending, nullptr);
}

void CloseThreadpoolCleanupGroup(PTP_CLEANUP_GROUP group) noexcept {
  ::CloseThreadpoolCleanupGroup(NativeOf<::PTP_CLEANUP_GROUP>(group));
}

void DisassociateCurrentThreadFromCallback(PTP_CALLBACK_INSTANCE instance) noexcept {
  ::DisassociateCurrentThreadFromCallback(NativeOf<::PTP_CALLBACK_INSTANCE>(instance));
}

PTP_WORK CreateThreadpoolWork(PTP_WORK_CALLBACK callback, void* context,
                              const TP_CALLBACK_ENVIRON* environment) noexcept {
  return NativeOf<PTP_WORK>(
      ::CreateThreadpoolWork(NativeCallback<::PTP_WORK_CALLBACK>(callback), context, Native(environment)));
}

void SubmitThreadpoolWork(PTP_WORK work) noexcept { ::SubmitThreadpoolWork(NativeOf<::PTP_WORK>(work)); }

void WaitForThreadpoolWorkCallbacks(PTP_WORK work, bool cancelPending) noexcept {
  ::WaitForThreadpoolWorkCallbacks(NativeOf<::PTP_WORK>(work), cancelPending);
}

void CloseThreadpoolWork(PTP_WORK work) noexcept { ::CloseThreadpoolWork(NativeOf<::PTP_WORK>(work)); }

PTP_WAIT CreateThreadpoolWait(PTP_WAIT_CALLBACK callback, void* context,
                              const TP_CALLBACK_ENVIRON* environment) noexcept {
  return NativeOf<PTP_WAIT>(
      ::CreateThreadpoolWait(NativeCallback<::PTP_WAIT_CALLBACK>(callback), context, Native(environment)));
}

void SetThreadpoolWait(PTP_WAIT wait, WaitableHandle handle, std::nullptr_t) noexcept {
#if LUMENAR_TEST_HOOKS
  if (handle.value() != 0) test::PoolLooksAt(handle);
#endif
  ::SetThreadpoolWait(NativeOf<::PTP_WAIT>(wait), reinterpret_cast<::HANDLE>(handle.value()), nullptr);
}

void WaitForThreadpoolWaitCallbacks(PTP_WAIT wait, bool cancelPending) noexcept {
  ::WaitForThreadpoolWaitCallbacks(NativeOf<::PTP_WAIT>(wait), cancelPending);
}

void CloseThreadpoolWait(PTP_WAIT wait) noexcept { ::CloseThreadpoolWait(NativeOf<::PTP_WAIT>(wait)); }

PTP_TIMER CreateThreadpoolTimer(PTP_TIMER_CALLBACK callback, void* context,
                                const TP_CALLBACK_ENVIRON* environment) noexcept {
  return NativeOf<PTP_TIMER>(
      ::CreateThreadpoolTimer(NativeCallback<::PTP_TIMER_CALLBACK>(callback), context, Native(environment)));
}

void SetThreadpoolTimer(PTP_TIMER timer, const FILETIME* dueTime, DWORD period, DWORD windowLength) noexcept {
  // The system declares the due time as writable, and only reads it.
  auto* const due = reinterpret_cast<::FILETIME*>(const_cast<FILETIME*>(dueTime));
  ::SetThreadpoolTimer(NativeOf<::PTP_TIMER>(timer), due, period, windowLength);
}

void WaitForThreadpoolTimerCallbacks(PTP_TIMER timer, bool cancelPending) noexcept {
  ::WaitForThreadpoolTimerCallbacks(NativeOf<::PTP_TIMER>(timer), cancelPending);
}

void CloseThreadpoolTimer(PTP_TIMER timer) noexcept { ::CloseThreadpoolTimer(NativeOf<::PTP_TIMER>(timer)); }

}  // namespace platform
