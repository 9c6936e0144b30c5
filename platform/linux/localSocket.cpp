#include "platform/linux/localSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>
#include <string_view>
#include <utility>

namespace platform::localSocket {
namespace {

constexpr int kConnectionsAhead = 4096;

// The address of a socket file. There is room for 107 bytes: a path that is longer leads through its folder's
// descriptor, which stays open as long as the address.
class Address {
 public:
  explicit Address(const Place& place) noexcept {
    address_.sun_family = AF_UNIX;
    if (Fill(place.folder, place.name)) return;
    folder_ = Descriptor(open(place.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    char throughDescriptor[32];
    std::snprintf(throughDescriptor, sizeof throughDescriptor, "/proc/self/fd/%d", folder_.get());
    complete_ = folder_ && Fill(throughDescriptor, place.name);
    if (folder_ && !complete_) errno = ENAMETOOLONG;
  }
  // False, with errno set, when there is no such folder.
  explicit operator bool() const noexcept { return complete_; }
  // Valid for the calls that take a path, too.
  [[nodiscard]] const char* path() const noexcept { return address_.sun_path; }
  [[nodiscard]] const sockaddr* get() const noexcept { return reinterpret_cast<const sockaddr*>(&address_); }
  [[nodiscard]] static socklen_t size() noexcept { return sizeof(sockaddr_un); }

 private:
  // False when the path is too long.
  bool Fill(std::string_view folder, std::string_view name) noexcept {
    if (folder.size() + 1 + name.size() >= sizeof address_.sun_path) return false;
    char* end = std::ranges::copy(folder, address_.sun_path).out;
    *end++ = '/';
    end = std::ranges::copy(name, end).out;
    *end = '\0';
    return true;
  }

  sockaddr_un address_{};
  Descriptor folder_;
  bool complete_ = true;
};

std::string PathOf(const Place& place) { return place.folder + '/' + place.name; }

Descriptor NewSocket(int type) noexcept { return Descriptor(socket(AF_UNIX, type | SOCK_CLOEXEC, 0)); }

bool SetSendTimeout(const Descriptor& socket, Clock::time_point deadline) noexcept {
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
  const auto microseconds = std::max<std::int64_t>(left.count(), 1);  // 0 would be no time-out at all.
  const timeval time{.tv_sec = microseconds / 1'000'000, .tv_usec = microseconds % 1'000'000};
  return setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time) == 0;
}

// Listens under a passing name and then renames: between the file and its listener a finder would take it for stale.
bool ListenAt(const Descriptor& socket, const Place& place) noexcept try {
  const Address passing({.folder = place.folder, .name = "." + place.name});
  if (!passing || bind(socket.get(), passing.get(), Address::size()) != 0) return false;
  if (chmod(passing.path(), 0600) == 0 && listen(socket.get(), kConnectionsAhead) == 0 &&
      std::rename(passing.path(), PathOf(place).c_str()) == 0) {
    return true;
  }
  const int reason = errno;
  unlink(passing.path());
  errno = reason;
  return false;
} catch (const std::bad_alloc&) {
  errno = ENOMEM;
  return false;
}

}  // namespace

Descriptor Listen(const Place& place) {
  Descriptor socket = NewSocket(SOCK_SEQPACKET | SOCK_NONBLOCK);
  return socket && ListenAt(socket, place) ? std::move(socket) : Descriptor();
}

void Remove(const Place& place) noexcept {
  const Address address(place);
  if (address) unlink(address.path());
}

bool IsAlive(const Place& place) noexcept {
  const Address address(place);
  if (!address) return errno != ENOENT;
  // A socket of another type cannot connect, and the system looks for a listener first: so this tells the two cases
  // apart without waking anyone.
  const Descriptor socket = NewSocket(SOCK_DGRAM);
  if (!socket || connect(socket.get(), address.get(), Address::size()) == 0) return true;
  if (errno == ECONNREFUSED) {
    unlink(address.path());
    return false;
  }
  return errno != ENOENT;
}

Descriptor Connect(const Place& place, Clock::time_point deadline) noexcept {
  const Address address(place);
  if (address) {
    Descriptor socket = NewSocket(SOCK_SEQPACKET);
    if (socket && SetSendTimeout(socket, deadline)) {
      int result = 0;
      do result = connect(socket.get(), address.get(), Address::size());
      while (result != 0 && errno == EINTR && Clock::now() < deadline);
      if (result == 0) return socket;
    }
  }
  return {};
}

Descriptor Accept(const Descriptor& listener) noexcept {
  while (true) {
    Descriptor connection(accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (connection && !IsOfThisUser(connection)) continue;
    if (!connection && (errno == EINTR || errno == ECONNABORTED)) continue;
    return connection;
  }
}

bool HasHungUp(const Descriptor& connection) noexcept {
  pollfd state{.fd = connection.get(), .events = POLLRDHUP, .revents = 0};
  return poll(&state, 1, 0) > 0;
}

bool IsOfThisUser(const Descriptor& connection) noexcept {
  ucred peer{};
  socklen_t size = sizeof peer;
  return getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == geteuid();
}

}  // namespace platform::localSocket
