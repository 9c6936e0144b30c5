// Where processes of the machine meet: listening SOCK_SEQPACKET sockets, as files in folders that only the user may
// enter. A socket file whose process ended without a chance to remove it is found out and removed.
//
// Failure: the reason is left in errno.
#pragma once

#include <chrono>
#include <string>

#include "platform/linux/descriptor.h"

namespace platform::localSocket {

using Clock = std::chrono::steady_clock;

// A socket file, whichever process it belongs to.
struct Place {
  std::string folder;
  std::string name;
  friend bool operator==(const Place&, const Place&) = default;
};

// Makes the socket file, in the place of one that is there. Nothing on failure.
[[nodiscard]] Descriptor Listen(const Place& place);
void Remove(const Place& place) noexcept;
// Whether the socket is listened to. The listener does not notice. Removes the file when not.
[[nodiscard]] bool IsAlive(const Place& place) noexcept;

// Connects; waits until the deadline when too many connections wait ahead. Nothing on failure: EAGAIN when the deadline
// has passed; ENOENT or ECONNREFUSED when nobody listens.
[[nodiscard]] Descriptor Connect(const Place& place, Clock::time_point deadline) noexcept;

// The next connection of a listening socket, made by a process of this user; nothing when none waits.
[[nodiscard]] Descriptor Accept(const Descriptor& listener) noexcept;
[[nodiscard]] bool IsOfThisUser(const Descriptor& connection) noexcept;
// Whether the other end has closed the connection.
[[nodiscard]] bool HasHungUp(const Descriptor& connection) noexcept;

}  // namespace platform::localSocket
