// What no program on this machine can do without: the floors that the benchmark of conversations compares with.
#pragma once

#include <memory>

#include "tests/bench/ipcLine.h"

namespace bench {

// Two eventfds, each read by a thread that sleeps in the read: no message at all. Round trips only.
[[nodiscard]] std::unique_ptr<IpcLine> NewPingPong();

// A bare link of the shape of ours: a block of 64 KiB and two eventfds for each direction, the same records and sums,
// one transaction at a time, and one thread that receives. It trusts its peer, ends never, and has one stream.
[[nodiscard]] std::unique_ptr<IpcLine> NewInlineFloor();    // Messages are told of on the thread that receives.
[[nodiscard]] std::unique_ptr<IpcLine> NewPoolFloor();      // ... on a thread of a pool.
[[nodiscard]] std::unique_ptr<IpcLine> NewUnpackedFloor();  // ... of a pool, and each transaction is one message.

}  // namespace bench
