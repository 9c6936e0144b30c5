// Where windows are met: one listening SOCK_SEQPACKET socket for each window of the machine, in one folder that only
// the user may enter. A socket file whose process ended without a chance to remove it is found out and removed.
#pragma once

#include <chrono>
#include <compare>
#include <string>
#include <vector>

#include "platform/linux/descriptor.h"
#include "platform/linux/windowName.h"
#include "platform/types.h"

namespace platform::windowSocket {

using Clock = std::chrono::steady_clock;

// A socket file, whichever process it belongs to.
struct Place {
  std::string folder;
  std::string name;
  friend bool operator==(const Place&, const Place&) = default;
};

// The folder of the machine's windows; empty, with the last error set, when it cannot be made.
[[nodiscard]] std::string Folder();
// The names of the windows in the folder: top-level ones first, then the younger ahead of the older. Some may be gone.
[[nodiscard]] std::vector<WindowName> List(const std::string& folder);

// Makes the socket file. Nothing, with the last error set, on failure.
[[nodiscard]] Descriptor Listen(const Place& place);
void Remove(const Place& place) noexcept;
// Whether the socket is listened to. The listener does not notice. Removes the file when not.
[[nodiscard]] bool IsAlive(const Place& place) noexcept;

// Connects; waits until the deadline when too many connections wait ahead. Nothing, with the last error set, on
// failure: ERROR_TIMEOUT, or ERROR_INVALID_WINDOW_HANDLE when the window is gone.
[[nodiscard]] Descriptor Connect(const Place& place, Clock::time_point deadline) noexcept;

// The next connection of a listening socket, made by a process of this user; nothing when none waits.
[[nodiscard]] Descriptor Accept(const Descriptor& listener) noexcept;
// Whether the other end has closed the connection.
[[nodiscard]] bool HasHungUp(const Descriptor& connection) noexcept;

// The system's error for an errno of a call on a socket.
[[nodiscard]] DWORD ErrorOf(int number) noexcept;

}  // namespace platform::windowSocket
