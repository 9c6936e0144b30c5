// What this process holds open, for tests that look for leaks below the platform's handles.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace support {

// Counts the descriptor by which it looks, too.
[[nodiscard]] inline std::ptrdiff_t OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

}  // namespace support
