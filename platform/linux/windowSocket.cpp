#include "platform/linux/windowSocket.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>

#include "platform/error.h"
#include "platform/linux/machine.h"

namespace platform::windowSocket {
namespace {

constexpr int kConnectionsAhead = 4096;

// The address of a file in a folder. A socket's address has room for 107 bytes, and a folder may be longer, so the path
// leads through the folder's descriptor, which must stay open as long as the address is used.
class Address {
 public:
  Address(const std::string& folder, const std::string& name) noexcept
      : folder_(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    if (!folder_) return;
    address_.sun_family = AF_UNIX;
    const int length =
        std::snprintf(address_.sun_path, sizeof address_.sun_path, "/proc/self/fd/%d/%s", folder_.get(), name.c_str());
    if (length >= static_cast<int>(sizeof address_.sun_path)) {
      folder_ = Descriptor();
      errno = ENAMETOOLONG;
    }
  }
  explicit operator bool() const noexcept { return static_cast<bool>(folder_); }
  [[nodiscard]] int folder() const noexcept { return folder_.get(); }
  [[nodiscard]] const sockaddr* get() const noexcept { return reinterpret_cast<const sockaddr*>(&address_); }
  [[nodiscard]] static socklen_t size() noexcept { return sizeof(sockaddr_un); }

 private:
  sockaddr_un address_{};
  Descriptor folder_;
};

Descriptor NewSocket(int type) noexcept { return Descriptor(socket(AF_UNIX, type | SOCK_CLOEXEC, 0)); }

bool SetSendTimeout(const Descriptor& socket, Clock::time_point deadline) noexcept {
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
  const auto microseconds = std::max<std::int64_t>(left.count(), 1);  // 0 would be no time-out at all.
  const timeval time{.tv_sec = microseconds / 1'000'000, .tv_usec = microseconds % 1'000'000};
  return setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time) == 0;
}

bool IsOfThisUser(const Descriptor& connection) noexcept {
  ucred peer{};
  socklen_t size = sizeof peer;
  return getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == geteuid();
}

// Listens under a passing name and then renames: between the file and its listener a finder would take it for stale.
bool ListenAt(const Descriptor& socket, const Place& place) noexcept try {
  const std::string passing = "." + place.name;
  const Address address(place.folder, passing);
  if (!address || bind(socket.get(), address.get(), Address::size()) != 0) return false;
  if (fchmodat(address.folder(), passing.c_str(), 0600, 0) == 0 && listen(socket.get(), kConnectionsAhead) == 0 &&
      renameat(address.folder(), passing.c_str(), address.folder(), place.name.c_str()) == 0) {
    return true;
  }
  const int reason = errno;
  unlinkat(address.folder(), passing.c_str(), 0);
  errno = reason;
  return false;
} catch (const std::bad_alloc&) {
  errno = ENOMEM;
  return false;
}

}  // namespace

std::string Folder() { return machine::RuntimeFolder("windows"); }

std::vector<WindowName> List(const std::string& folder) {
  std::vector<WindowName> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(folder.c_str()), &closedir);
  if (!directory) return names;
  while (const dirent* entry = readdir(directory.get())) {
    if (auto name = WindowName::Parse(entry->d_name)) names.push_back(*std::move(name));
  }
  std::ranges::sort(names, [](const WindowName& left, const WindowName& right) {
    return left.topLevel != right.topLevel ? left.topLevel : left.made > right.made;
  });
  return names;
}

Descriptor Listen(const Place& place) {
  Descriptor socket = NewSocket(SOCK_SEQPACKET | SOCK_NONBLOCK);
  if (!socket || !ListenAt(socket, place)) {
    SetLastError(ErrorOf(errno));
    return {};
  }
  return socket;
}

void Remove(const Place& place) noexcept {
  const Descriptor folder(open(place.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (folder) unlinkat(folder.get(), place.name.c_str(), 0);
}

bool IsAlive(const Place& place) noexcept {
  const Address address(place.folder, place.name);
  if (!address) return errno != ENOENT;
  // A socket of another type cannot connect, and the system looks for a listener first: so this tells the two cases
  // apart without waking anyone.
  const Descriptor socket = NewSocket(SOCK_DGRAM);
  if (!socket || connect(socket.get(), address.get(), Address::size()) == 0) return true;
  if (errno == ECONNREFUSED) unlinkat(address.folder(), place.name.c_str(), 0);
  return errno != ECONNREFUSED && errno != ENOENT;
}

Descriptor Connect(const Place& place, Clock::time_point deadline) noexcept {
  const Address address(place.folder, place.name);
  if (address) {
    Descriptor socket = NewSocket(SOCK_SEQPACKET);
    if (socket && SetSendTimeout(socket, deadline)) {
      int result = 0;
      do result = connect(socket.get(), address.get(), Address::size());
      while (result != 0 && errno == EINTR && Clock::now() < deadline);
      if (result == 0) return socket;
    }
  }
  SetLastError(ErrorOf(errno));
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

DWORD ErrorOf(int number) noexcept {
  switch (number) {
    case ENOENT:
    case ECONNREFUSED:
    case ECONNRESET:
    case EPIPE: return ERROR_INVALID_WINDOW_HANDLE;
    case EAGAIN:
    case EINTR: return ERROR_TIMEOUT;
    case EACCES:
    case EPERM: return ERROR_ACCESS_DENIED;
    case ENAMETOOLONG: return ERROR_FILENAME_EXCED_RANGE;
    case ENOMEM:
    case ENOBUFS:
    case EMFILE:
    case ENFILE: return ERROR_NOT_ENOUGH_MEMORY;
    default: return ERROR_GEN_FAILURE;
  }
}

}  // namespace platform::windowSocket
