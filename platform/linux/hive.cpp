#include "platform/linux/hive.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "platform/error.h"
#include "platform/linux/hiveCount.h"
#include "platform/linux/hostError.h"
#include "platform/linux/machine.h"
#include "platform/linux/wholeFile.h"

namespace platform::registry {
namespace {

LSTATUS ErrorOfHost() { return static_cast<LSTATUS>(ErrorFromHost(errno)); }

constexpr unsigned kManyQuestions = 64;

const char* FileNameOf(HiveId id) { return id == HiveId::User ? "/user.reg" : "/machine.reg"; }

// The file on which the hive's writers hold their lock, and which counts them.
Descriptor OpenLockFile(const std::string& hivePath) {
  return Descriptor(open((hivePath + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
}

bool Equal(const timespec& a, const timespec& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }

bool SameContent(const struct stat& a, const struct stat& b) {
  return a.st_size == b.st_size && Equal(a.st_mtim, b.st_mtim);
}

// Whether nobody has written to the file, nor put another in its place, taken it away, or moved it: all of these change
// when its status was last changed. A file without a name was replaced, perhaps before it was asked for the first time.
bool Untouched(const struct stat& before, const struct stat& now) {
  return now.st_nlink > 0 && now.st_nlink == before.st_nlink && SameContent(before, now) &&
         Equal(before.st_ctim, now.st_ctim);
}

}  // namespace

struct HiveCache {
  explicit HiveCache(HiveId hive) : id(hive) {}

  [[nodiscard]] LSTATUS Refresh(Asked asked);
  [[nodiscard]] bool NobodyHasWritten() const noexcept;
  [[nodiscard]] bool IsCurrent() const;
  [[nodiscard]] LSTATUS Load();
  void BeginCounting();
  [[nodiscard]] LSTATUS Store(WriteCount& count);
  void Forget() noexcept;

  const HiveId id;
  std::mutex lock;
  // The rest is guarded by the lock.
  std::string path;
  bool valid = false;
  // The file that the tree was read from, kept open: to ask it is far cheaper than to look for it by its path. None for
  // a missing file.
  Descriptor file;
  struct stat status = {};
  // Of no hive while questions are few: a process that only asks a little gets on sooner without.
  WriteCount writes;
  std::uint64_t writesSeen = 0;  // Before the file was last asked.
  unsigned questions = 0;        // To the host; no longer counted when they are many.
  Key root;
  std::uint64_t revision = 1;
};

namespace {

// Never destroyed: keys may be used while the process's own statics go.
HiveCache& CacheOf(HiveId id) {
  static HiveCache& machineHive = *new HiveCache(HiveId::Machine);
  static HiveCache& userHive = *new HiveCache(HiveId::User);
  return id == HiveId::User ? userHive : machineHive;
}

}  // namespace

void HiveCache::Forget() noexcept {
  valid = false;
  file = Descriptor();
  root.Clear();
  ++revision;
}

// Makes the tree what the file says now, as far as those who are asked know.
LSTATUS HiveCache::Refresh(Asked asked) {
  if (asked == Asked::Writers && NobodyHasWritten()) return ERROR_SUCCESS;
  std::string current = machine::DataFolder();
  if (current.empty()) return static_cast<LSTATUS>(GetLastError());
  current += FileNameOf(id);
  if (current != path) {
    Forget();
    path = std::move(current);
  }
  if (questions < kManyQuestions && ++questions == kManyQuestions) BeginCounting();
  writesSeen = writes.Now();
  if (IsCurrent()) return ERROR_SUCCESS;
  Forget();
  return Load();
}

void HiveCache::BeginCounting() { writes = WriteCount(OpenLockFile(path).get()); }

bool HiveCache::NobodyHasWritten() const noexcept {
  return valid && WriteCount::IsSettled(writesSeen) && writes.Now() == writesSeen;
}

bool HiveCache::IsCurrent() const {
  if (!valid) return false;
  struct stat now = {};
  if (file) return fstat(file.get(), &now) == 0 && Untouched(status, now);
  return stat(path.c_str(), &now) != 0 && errno == ENOENT;
}

LSTATUS HiveCache::Load() {
  // Looked for each time: somebody may have cleared away the file that was there.
  if (questions == kManyQuestions) BeginCounting();
  writesSeen = writes.Now();
  Descriptor opened(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!opened && errno != ENOENT) return ErrorOfHost();
  if (opened) {
    if (fstat(opened.get(), &status) != 0) return ErrorOfHost();
    const auto bytes = ReadAll(opened.get(), static_cast<std::size_t>(status.st_size));
    if (!bytes) return ErrorOfHost();
    ApplyRegText(*bytes, id, root);
  }
  file = std::move(opened);
  valid = true;
  return ERROR_SUCCESS;
}

LSTATUS HiveCache::Store(WriteCount& count) {
  const std::string text = WriteRegText(id, root);
  const std::string temporary = path + ".new";
  // The lock is held, so that a file of this name is what a killed writer left.
  Descriptor written(open(temporary.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  struct stat asWritten = {};
  if (!written || !WriteAll(written.get(), text) || fstat(written.get(), &asWritten) != 0) return ErrorOfHost();
  count.BeginReplacing();
  const bool replaced = std::rename(temporary.c_str(), path.c_str()) == 0;
  writesSeen = count.EndReplacing();
  if (!replaced) return ErrorOfHost();
  file = std::move(written);
  // Its new name is a change of its status; whoever has edited it since then must not go unnoticed.
  valid = fstat(file.get(), &status) == 0 && SameContent(asWritten, status);
  return ERROR_SUCCESS;
}

HiveReading::HiveReading(HiveId id, Asked asked)
    : cache_(CacheOf(id)), lock_(cache_.lock), error_(cache_.Refresh(asked)) {}

const Key& HiveReading::Root() const noexcept { return cache_.root; }

std::uint64_t HiveReading::Revision() const noexcept { return cache_.revision; }

HiveWriting::HiveWriting(HiveId id) : cache_(CacheOf(id)), lock_(cache_.lock) {
  const std::string folder = machine::DataFolder();
  if (folder.empty()) {
    error_ = static_cast<LSTATUS>(GetLastError());
    return;
  }
  // Held by the open file: it goes with the process, however that ends.
  Descriptor lockFile = OpenLockFile(folder + FileNameOf(id));
  int locked = lockFile ? flock(lockFile.get(), LOCK_EX) : -1;
  while (locked != 0 && errno == EINTR) locked = flock(lockFile.get(), LOCK_EX);
  error_ = locked == 0 ? cache_.Refresh(Asked::File) : ErrorOfHost();
  lockFile_ = std::move(lockFile);
}

HiveWriting::~HiveWriting() {
  if (committed_) {
    ++cache_.revision;
  } else {
    cache_.Forget();
  }
}

Key& HiveWriting::Root() noexcept { return cache_.root; }

LSTATUS HiveWriting::Commit() {
  WriteCount count(lockFile_.get());
  const LSTATUS status = cache_.Store(count);
  committed_ = status == ERROR_SUCCESS;
  return status;
}

}  // namespace platform::registry
