// For test builds of the platform alone: two faults of Wine 8's thread pool, and how to stay clear of them. Windows'
// pool has neither. The tests make and end links by the thousand, and met one of them in every twentieth run.
//
// A lost signal: for a moment, Wine's pool goes on looking at the handle of a wait that was given up. When that handle
// is closed and its number given to an event meanwhile, the pool takes the event's signal, and who waits for the event
// waits for good. So a handle that a pool has waited for rests before it is closed, until many others have come after
// it.
//
// A deadlock: the pool's own thread lets go of a wait that was closed, under its lock, and then wants the lock of the
// wait's group; who closes the members of the group takes the two in the other order. So the thread is sent round ahead
// of that: then it has let go of all waits that were closed before.
#pragma once

#include "platform/handles.h"

namespace platform::test {

// To be called ahead of a pool's wait.
void PoolLooksAt(WaitableHandle handle);

// Whether the handle has been taken: it will be closed later, in place of now.
[[nodiscard]] bool LayToRest(KernelHandle handle);

// Returns when the pool has let go of all waits that were closed before the call.
void SendPoolRound();

}  // namespace platform::test
