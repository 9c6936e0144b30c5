// Where windows are met: one local socket for each window of the machine, in one folder.
#pragma once

#include <string>
#include <vector>

#include "platform/linux/descriptor.h"
#include "platform/linux/localSocket.h"
#include "platform/linux/windowName.h"
#include "platform/types.h"

namespace platform::windowSocket {

using localSocket::Accept;
using localSocket::Clock;
using localSocket::HasHungUp;
using localSocket::IsAlive;
using localSocket::Place;
using localSocket::Remove;

// The folder of the machine's windows; empty, with the last error set, when it cannot be made.
[[nodiscard]] std::string Folder();
// The names of the windows in the folder: top-level ones first, then the younger ahead of the older. Some may be gone.
[[nodiscard]] std::vector<WindowName> List(const std::string& folder);

// Makes the socket file. Nothing, with the last error set, on failure.
[[nodiscard]] Descriptor Listen(const Place& place);

// Connects; waits until the deadline when too many connections wait ahead. Nothing, with the last error set, on
// failure: ERROR_TIMEOUT, or ERROR_INVALID_WINDOW_HANDLE when the window is gone.
[[nodiscard]] Descriptor Connect(const Place& place, Clock::time_point deadline) noexcept;

// The system's error for an errno of a call on a socket.
[[nodiscard]] DWORD ErrorOf(int number) noexcept;

}  // namespace platform::windowSocket
