// How often a hive has been written: a number in memory that all processes of the machine share, at the begin of the
// file on which the hive's writers hold their lock. Who has read the hive can so tell whether one of them has written
// since, without a call of the host.
//
// The number is odd while a new file takes the old one's place. It stays odd when a writer dies there, until the next
// one has written. Programs that edit the hive's file themselves do not count.
#pragma once

#include <cstdint>

namespace platform::registry {

class WriteCount {
 public:
  // Of no hive.
  WriteCount() noexcept = default;
  // `lockFile` is open for reading and writing; the count does not need it any more afterwards. When its memory cannot
  // be had, the count is of no hive.
  explicit WriteCount(int lockFile) noexcept;
  WriteCount(WriteCount&& other) noexcept;
  WriteCount& operator=(WriteCount&& other) noexcept;
  ~WriteCount();

  // Odd, so that nothing can be told from it, when the count is of no hive.
  [[nodiscard]] std::uint64_t Now() const noexcept;
  [[nodiscard]] static bool IsSettled(std::uint64_t count) noexcept { return count % 2 == 0; }

  // Before and after the writer, who holds the lock, puts the new file in its place. The latter returns the count.
  void BeginReplacing() noexcept;
  std::uint64_t EndReplacing() noexcept;

 private:
  std::uint64_t* count_ = nullptr;
};

}  // namespace platform::registry
