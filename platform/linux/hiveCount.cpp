#include "platform/linux/hiveCount.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <utility>

namespace platform::registry {
namespace {

using Shared = std::atomic_ref<std::uint64_t>;
static_assert(Shared::is_always_lock_free, "the processes share no lock");

constexpr std::uint64_t kOfNoHive = 1;

// A new file is empty; no file is ever made shorter.
bool HasRoom(int file) {
  struct stat status = {};
  if (fstat(file, &status) != 0) return false;
  return status.st_size >= static_cast<off_t>(sizeof(std::uint64_t)) || ftruncate(file, sizeof(std::uint64_t)) == 0;
}

}  // namespace

WriteCount::WriteCount(int lockFile) noexcept {
  if (!HasRoom(lockFile)) return;
  void* const memory = mmap(nullptr, sizeof *count_, PROT_READ | PROT_WRITE, MAP_SHARED, lockFile, 0);
  if (memory != MAP_FAILED) count_ = static_cast<std::uint64_t*>(memory);
}

WriteCount::WriteCount(WriteCount&& other) noexcept : count_(std::exchange(other.count_, nullptr)) {}

WriteCount& WriteCount::operator=(WriteCount&& other) noexcept {
  std::swap(count_, other.count_);
  return *this;
}

WriteCount::~WriteCount() {
  if (count_ != nullptr) munmap(count_, sizeof *count_);
}

std::uint64_t WriteCount::Now() const noexcept { return count_ != nullptr ? Shared(*count_).load() : kOfNoHive; }

void WriteCount::BeginReplacing() noexcept {
  if (count_ != nullptr) Shared(*count_).fetch_or(1);
}

std::uint64_t WriteCount::EndReplacing() noexcept {
  return count_ != nullptr ? Shared(*count_).fetch_add(1) + 1 : kOfNoHive;
}

}  // namespace platform::registry
