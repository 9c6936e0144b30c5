// The system's thread pool: work, wait and timer objects whose callbacks run on the threads of a pool.
//
// Threading: every call may be made from any thread, also from a callback. Callbacks run at the same time as others, of
// the same object too. An exception that leaves a callback ends the process.
// Ownership: whoever made an object closes it, once, with its close call; or leaves it to its cleanup group, which then
// closes it. Closing never waits: an object whose callbacks are queued or running goes when the last of them returns.
// No call may be made on an object behind its close.
// Waiting: "Wait...Callbacks" returns when no callback of the object is queued and none is running, but for those whose
// threads have disassociated themselves. With `cancelPending` the queued ones are dropped first. A callback that waits
// for its own object without having disassociated itself waits forever.
// Failure: null, with the reason in GetLastError(), from what makes an object. No other call can report a failure; on
// Linux a wait that the host has no memory to watch ends the process, as nobody could ever be told of it.
#pragma once

#include "platform/handles.h"
#include "platform/types.h"

namespace platform {

using PTP_POOL = struct TP_POOL*;
using PTP_CLEANUP_GROUP = struct TP_CLEANUP_GROUP*;
using PTP_CALLBACK_INSTANCE = struct TP_CALLBACK_INSTANCE*;  // One run of one callback; lives as long as that.
using PTP_WORK = struct TP_WORK*;
using PTP_WAIT = struct TP_WAIT*;
using PTP_TIMER = struct TP_TIMER*;

using TP_WAIT_RESULT = DWORD;  // WAIT_OBJECT_0: no wait of this program has a time-out.

using PTP_WORK_CALLBACK = void (*)(PTP_CALLBACK_INSTANCE instance, void* context, PTP_WORK work);
using PTP_WAIT_CALLBACK = void (*)(PTP_CALLBACK_INSTANCE instance, void* context, PTP_WAIT wait, TP_WAIT_RESULT result);
using PTP_TIMER_CALLBACK = void (*)(PTP_CALLBACK_INSTANCE instance, void* context, PTP_TIMER timer);

// A point in time, in units of 100 ns since the start of 1601 in UTC; as a timer's due time a negative number, in two's
// complement, is relative.
struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

inline constexpr DWORD TP_CALLBACK_PRIORITY_NORMAL = 1;

// Where the objects made with it belong. Read when an object is made, and not kept.
struct TP_CALLBACK_ENVIRON {
  DWORD Version;
  PTP_POOL Pool;                   // Null: the process's own pool.
  PTP_CLEANUP_GROUP CleanupGroup;  // Null: none.
  std::nullptr_t CleanupGroupCancelCallback;
  std::nullptr_t RaceDll;
  std::nullptr_t ActivationContext;
  std::nullptr_t FinalizationCallback;
  DWORD Flags;
  DWORD CallbackPriority;
  DWORD Size;
};
static_assert(sizeof(TP_CALLBACK_ENVIRON) == 72);

// Version 3, normal priority, size 72; all else null.
void InitializeThreadpoolEnvironment(TP_CALLBACK_ENVIRON* environment) noexcept;
void SetThreadpoolCallbackPool(TP_CALLBACK_ENVIRON* environment, PTP_POOL pool) noexcept;
void SetThreadpoolCallbackCleanupGroup(TP_CALLBACK_ENVIRON* environment, PTP_CLEANUP_GROUP group,
                                       std::nullptr_t cancelCallback) noexcept;
void DestroyThreadpoolEnvironment(TP_CALLBACK_ENVIRON* environment) noexcept;

// A pool beside the process's own, which needs neither making nor closing. A pool has as many threads as keep its
// callbacks going, and never more than its maximum (500 unless set; at least 1).
[[nodiscard]] PTP_POOL CreateThreadpool(std::nullptr_t reserved) noexcept;
void SetThreadpoolThreadMaximum(PTP_POOL pool, DWORD maximum) noexcept;
// Its threads end when the last object that belongs to it has gone.
void CloseThreadpool(PTP_POOL pool) noexcept;

[[nodiscard]] PTP_CLEANUP_GROUP CreateThreadpoolCleanupGroup() noexcept;
// Closes every member, having waited for their callbacks as above; those that run on threads which have disassociated
// themselves are waited for as well. A member that was closed before stays one until its last callback has returned.
// REQUIRES: nobody makes members meanwhile.
void CloseThreadpoolCleanupGroupMembers(PTP_CLEANUP_GROUP group, bool cancelPending,
                                        std::nullptr_t cleanupContext) noexcept;
// REQUIRES: no member is left.
void CloseThreadpoolCleanupGroup(PTP_CLEANUP_GROUP group) noexcept;

// From within a callback: waits for the callback's object no longer wait for this one run of it.
void DisassociateCurrentThreadFromCallback(PTP_CALLBACK_INSTANCE instance) noexcept;

// In the calls that make an object a null `environment` stands for one that was only initialised.

// Each submission gives one callback.
[[nodiscard]] PTP_WORK CreateThreadpoolWork(PTP_WORK_CALLBACK callback, void* context,
                                            const TP_CALLBACK_ENVIRON* environment) noexcept;
void SubmitThreadpoolWork(PTP_WORK work) noexcept;
void WaitForThreadpoolWorkCallbacks(PTP_WORK work, bool cancelPending) noexcept;
void CloseThreadpoolWork(PTP_WORK work) noexcept;

[[nodiscard]] PTP_WAIT CreateThreadpoolWait(PTP_WAIT_CALLBACK callback, void* context,
                                            const TP_CALLBACK_ENVIRON* environment) noexcept;
// Gives one callback once the object behind `handle` is signalled, as a successful wait for it does; then the wait must
// be set anew. Replaces what was set before; a null handle only ends that. A callback that is queued stays queued.
// REQUIRES: the handle stays open until the callback begins or the wait is set to null.
void SetThreadpoolWait(PTP_WAIT wait, WaitableHandle handle, std::nullptr_t timeout) noexcept;
void WaitForThreadpoolWaitCallbacks(PTP_WAIT wait, bool cancelPending) noexcept;
void CloseThreadpoolWait(PTP_WAIT wait) noexcept;

[[nodiscard]] PTP_TIMER CreateThreadpoolTimer(PTP_TIMER_CALLBACK callback, void* context,
                                              const TP_CALLBACK_ENVIRON* environment) noexcept;
// Gives a callback at the due time, and with a `period` (milliseconds) other than 0 again each time that it is over.
// A due time of 0 or in the past is due at once. A callback may be late by `windowLength` milliseconds. Replaces what
// was set before; a null due time only ends that. A callback that is queued stays queued.
void SetThreadpoolTimer(PTP_TIMER timer, const FILETIME* dueTime, DWORD period, DWORD windowLength) noexcept;
void WaitForThreadpoolTimerCallbacks(PTP_TIMER timer, bool cancelPending) noexcept;
void CloseThreadpoolTimer(PTP_TIMER timer) noexcept;

}  // namespace platform
