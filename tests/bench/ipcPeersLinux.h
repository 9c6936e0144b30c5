// Other libraries' ways between two processes, to compare with: each as it is used first, with its own defaults.
#pragma once

#include <memory>

#include "tests/bench/ipcLine.h"

namespace bench {

[[nodiscard]] std::unique_ptr<IpcLine> NewZeroMqLine();  // A pair of sockets, over a local socket.
[[nodiscard]] std::unique_ptr<IpcLine> NewNngLine();     // The same.
[[nodiscard]] std::unique_ptr<IpcLine> NewSdBusLine();   // Signals, without a bus between.
[[nodiscard]] std::unique_ptr<IpcLine> NewBoostLine();  // A message queue for each direction; no messages above kSmall.

}  // namespace bench
