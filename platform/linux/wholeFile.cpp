#include "platform/linux/wholeFile.h"

#include <unistd.h>

#include <cerrno>

namespace platform {

std::optional<std::string> ReadAll(int file, std::size_t expected) {
  std::string bytes(expected + 1, '\0');
  std::size_t filled = 0;
  while (true) {
    const ssize_t got = read(file, bytes.data() + filled, bytes.size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
    if (filled == bytes.size()) bytes.resize(bytes.size() * 2);
  }
  bytes.resize(filled);
  return bytes;
}

bool WriteAll(int file, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t written = write(file, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace platform
