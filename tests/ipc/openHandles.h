// What this process holds open, for tests that look for leaks.
#pragma once

#include <cstddef>

namespace ipcTests {

// The number of handles that are open now.
[[nodiscard]] std::size_t OpenHandles();

}  // namespace ipcTests
