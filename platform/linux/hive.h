// The machine's two hives: files of registry text (regFile.h) in the machine's folder, `machine.reg` and `user.reg`.
//
// A process keeps each hive that it has used in memory, and finds out before every use whether it has changed. A writer
// holds the hive's lock among all processes (`machine.reg.lock`), takes in what others wrote, and puts a whole new file
// in the place of the old one. So no write is lost, a writer that is killed leaves the old hive or the new one, and a
// reader, which takes no such lock, sees one or the other.
#pragma once

#include <cstdint>
#include <mutex>

#include "platform/linux/descriptor.h"
#include "platform/linux/hiveTree.h"
#include "platform/linux/regFile.h"

namespace platform::registry {

struct HiveCache;

// Whom a reader asks whether the hive has changed.
enum class Asked : std::uint8_t {
  File,    // Sees whatever any program has done to the hive's file, for a call of the host.
  Writers  // Sees what was written by way of this platform alone, for a look at the count of writes (hiveCount.h).
};

// The hive as it is now, for as long as the object lives; the process's other threads wait that long.
class HiveReading {
 public:
  HiveReading(HiveId id, Asked asked);

  // ERROR_SUCCESS, or why the hive cannot be read. A missing file is an empty hive.
  [[nodiscard]] LSTATUS Error() const noexcept { return error_; }
  // REQUIRES: no error.
  [[nodiscard]] const Key& Root() const noexcept;
  // Another number whenever the tree may be another: what was found in it can be kept for as long as this stays.
  [[nodiscard]] std::uint64_t Revision() const noexcept;

 private:
  HiveCache& cache_;
  std::unique_lock<std::mutex> lock_;
  LSTATUS error_;
};

// The hive for changing it. What is not committed is forgotten with the object.
class HiveWriting {
 public:
  explicit HiveWriting(HiveId id);
  HiveWriting(const HiveWriting&) = delete;
  HiveWriting& operator=(const HiveWriting&) = delete;
  ~HiveWriting();

  [[nodiscard]] LSTATUS Error() const noexcept { return error_; }
  [[nodiscard]] Key& Root() noexcept;
  // Writes the hive. Its file is unchanged when that fails.
  [[nodiscard]] LSTATUS Commit();

 private:
  HiveCache& cache_;
  std::unique_lock<std::mutex> lock_;
  Descriptor lockFile_;
  LSTATUS error_;
  bool committed_ = false;
};

}  // namespace platform::registry
