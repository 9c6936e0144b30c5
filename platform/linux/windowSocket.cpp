#include "platform/linux/windowSocket.h"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#include "platform/error.h"
#include "platform/linux/machine.h"

namespace platform::windowSocket {

std::string Folder() { return machine::RuntimeFolder("windows"); }

std::vector<WindowName> List(const std::string& folder) {
  std::vector<WindowName> names;
  const Descriptor directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // There are few windows; the C library would take 32 KiB of memory to read their names.
  alignas(dirent64) char entries[4096];
  ssize_t length = 0;
  while (directory && (length = getdents64(directory.get(), entries, sizeof entries)) > 0) {
    for (ssize_t at = 0; at < length;) {
      const auto* entry = reinterpret_cast<const dirent64*>(entries + at);
      if (auto name = WindowName::Parse(entry->d_name)) names.push_back(*std::move(name));
      at += entry->d_reclen;
    }
  }
  std::ranges::sort(names, [](const WindowName& left, const WindowName& right) {
    return left.topLevel != right.topLevel ? left.topLevel : left.made > right.made;
  });
  return names;
}

Descriptor Listen(const Place& place) {
  Descriptor listener = localSocket::Listen(place);
  if (!listener) SetLastError(ErrorOf(errno));
  return listener;
}

Descriptor Connect(const Place& place, Clock::time_point deadline) noexcept {
  Descriptor connection = localSocket::Connect(place, deadline);
  if (!connection) SetLastError(ErrorOf(errno));
  return connection;
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
