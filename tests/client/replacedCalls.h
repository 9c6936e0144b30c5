// Calls of the platform, and of the allocator, that tests make fail or answer for: on both targets, as the test program
// is linked so that they come here first.
#pragma once

#include <cstdint>
#include <optional>

namespace clientTests {

// All go to the real ones again when this goes. One at a time.
struct ReplacedCalls {
  ReplacedCalls();
  ~ReplacedCalls();
  ReplacedCalls(const ReplacedCalls&) = delete;
  ReplacedCalls& operator=(const ReplacedCalls&) = delete;

  bool allocatorIsEmpty = false;  // For cleared memory.
  bool noIds = false;
  bool noIdTexts = false;
  bool noIdFromText = false;
  bool noSession = false;
  bool noCleanupGroup = false;
  std::optional<std::uint32_t> session;  // Instead of the process's own.
};

}  // namespace clientTests
