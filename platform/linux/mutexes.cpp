#include <fcntl.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

#include "platform/linux/descriptor.h"
#include "platform/linux/faults.h"
#include "platform/linux/handleTable.h"
#include "platform/linux/hostError.h"
#include "platform/linux/machine.h"

namespace platform {
namespace {

using ThreadNumber = unsigned long long;

// Unlike the host's thread ids, these numbers are never used again.
ThreadNumber NumberOfThisThread() noexcept {
  static std::atomic<ThreadNumber> last{0};
  thread_local const ThreadNumber number = ++last;
  return number;
}

class Mutex final : public KernelObject {
 public:
  Mutex(Descriptor file, ThreadNumber owner) noexcept : file_(std::move(file)), owner_(owner) {}
  [[nodiscard]] const char* KindName() const noexcept override { return "Mutex"; }

  // False when the calling thread is not the owner.
  [[nodiscard]] bool Release() noexcept {
    ThreadNumber expected = NumberOfThisThread();
    return owner_.compare_exchange_strong(expected, 0);
  }

 private:
  // Its shared lock is the name's existence for other processes, and goes with this process however that ends.
  Descriptor file_;
  std::atomic<ThreadNumber> owner_;  // 0: nobody.
};

// The mutexes of this process by the path of their files.
struct NamedMutexes {
  std::mutex lock;
  std::map<std::string, std::weak_ptr<Mutex>> byPath;
};

NamedMutexes& TheNamedMutexes() {
  static NamedMutexes& mutexes = *new NamedMutexes;
  return mutexes;
}

// A file name from which the mutex's name could be read back, so that no two names share a file.
std::string FileNameOf(std::u16string_view name) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string fileName;
  for (const char byte : machine::ToHost(name)) {
    const auto value = static_cast<unsigned char>(byte);
    if (byte == '%' || byte == '/' || byte == '.' || value < 0x20 || value >= 0x7F) {
      fileName += {'%', kDigits[value >> 4], kDigits[value & 0xF]};
    } else {
      fileName += byte;
    }
  }
  return fileName;
}

// Nothing, with the last error set, when no mutex can bear the name.
std::string PathOf(std::u16string_view name) {
  constexpr std::size_t kLongestFileName = 255;
  for (const std::u16string_view scope : {u"Local\\", u"Global\\"}) {
    if (name.starts_with(scope)) {
      name.remove_prefix(scope.size());  // There is but one session.
      break;
    }
  }
  const std::string fileName = FileNameOf(name);
  if (name.find(u'\\') != name.npos) {
    SetLastError(ERROR_PATH_NOT_FOUND);
    return {};
  }
  if (fileName.empty() || fileName.size() > kLongestFileName) {
    SetLastError(fileName.empty() ? ERROR_INVALID_NAME : ERROR_FILENAME_EXCED_RANGE);
    return {};
  }
  const std::string folder = machine::RuntimeFolder("mutexes");
  return folder.empty() ? std::string() : folder + "/" + fileName;
}

bool Lock(const Descriptor& file, short type, int command) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  int result = 0;
  do {
    result = fcntl(file.get(), command, &lock);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

enum class Existence : std::uint8_t { New, Existed, Failed };

// Takes a share in the name's existence. Whoever gets the exclusive lock was alone, hence the first; others find the
// lock of some holder, and join as soon as a first one has turned its lock into a shared one. That turn is one step of
// the host, so nobody gets in between.
Existence Join(const Descriptor& file) {
  if (Lock(file, F_WRLCK, F_OFD_SETLK)) return Lock(file, F_RDLCK, F_OFD_SETLK) ? Existence::New : Existence::Failed;
  if (errno != EAGAIN && errno != EACCES) return Existence::Failed;
  return Lock(file, F_RDLCK, F_OFD_SETLKW) ? Existence::Existed : Existence::Failed;
}

MutexHandle OpenNamed(const std::string& path, ThreadNumber owner) {
  NamedMutexes& mutexes = TheNamedMutexes();
  const std::lock_guard guard(mutexes.lock);
  std::shared_ptr<Mutex> mutex = mutexes.byPath[path].lock();
  Existence existence = Existence::Existed;
  if (!mutex) {
    Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    existence = file ? Join(file) : Existence::Failed;
    if (existence == Existence::Failed) {
      SetLastError(ErrorFromHost(errno));
      return {};
    }
    mutex = std::make_shared<Mutex>(std::move(file), existence == Existence::New ? owner : 0);
    mutexes.byPath[path] = mutex;
  }
  const MutexHandle handle(handleTable::Add(std::move(mutex)));
  if (handle) SetLastError(existence == Existence::New ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
  return handle;
}

}  // namespace

MutexHandle CreateMutexW(std::nullptr_t, bool initialOwner, const char16_t* name) noexcept try {
  if (FaultInjected("CreateMutexW")) return {};
  const ThreadNumber owner = initialOwner ? NumberOfThisThread() : 0;
  if (name == nullptr || *name == u'\0') {
    const MutexHandle unnamed(handleTable::Add(std::make_shared<Mutex>(Descriptor(), owner)));
    if (unnamed) SetLastError(ERROR_SUCCESS);
    return unnamed;
  }
  const std::string path = PathOf(name);
  return path.empty() ? MutexHandle() : OpenNamed(path, owner);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

bool ReleaseMutex(MutexHandle handle) noexcept {
  if (FaultInjected("ReleaseMutex")) return false;
  const auto mutex = handleTable::FindAs<Mutex>(handle.value());
  if (!mutex) return false;
  const bool released = mutex->Release();
  if (!released) SetLastError(ERROR_NOT_OWNER);
  return released;
}

}  // namespace platform
