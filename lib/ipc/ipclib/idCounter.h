// Ids that a process draws from counters of its own.
#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>

namespace quill::ipc {

// The next number of the counter, which is 1 for one that begins at 0. Never 0, not even when the counter has come
// round.
template <std::unsigned_integral Number>
[[nodiscard]] Number drawId(std::atomic<Number>& counter) noexcept {
  Number id = 0;
  while (id == 0) id = static_cast<Number>(counter.fetch_add(1, std::memory_order_relaxed) + 1);
  return id;
}

// An id that tells what it is an id of, by its high byte, and is unlike those of other runs of the program: behind the
// tag stand the low 24 bits of the system's tick count, then the next number of the counter.
[[nodiscard]] std::uint64_t drawTaggedId(std::uint8_t tag, std::atomic<std::uint32_t>& counter) noexcept;

}  // namespace quill::ipc
