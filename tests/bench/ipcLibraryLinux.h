// Our own library between two processes: the near side goes in by its front door (a library object, a stream to an
// endpoint), over the whole way that a client goes. The far side is the library too, in the part of a service, which
// the library itself does not play: the local RPC's answer and the blocks of memory are the tests' own, the link, its
// streams and its threads are the library's.
#pragma once

#include <memory>

#include "tests/bench/ipcLine.h"

namespace bench {

[[nodiscard]] std::unique_ptr<IpcLine> NewLibraryLine();             // Blocks of 64 KiB.
[[nodiscard]] std::unique_ptr<IpcLine> NewLibraryLineLargeBlocks();  // Of 1 MiB, as a service may choose.

}  // namespace bench
