#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>
#include <vector>

#include "platform/linux/hostError.h"
#include "platform/linux/mutexObjects.h"
#include "platform/linux/namedObjects.h"

namespace platform {
namespace {

constexpr std::size_t kFileSize = 4096;
constexpr std::size_t kMutexAt = 64;  // Behind the letter of the kind.

// A robust mutex of the host in the memory that the name's file maps: it changes hands also when a thread or a process
// ends that owns it.
class SharedMutex final : public Mutex {
 public:
  SharedMutex(Descriptor file, void* mapping) noexcept : file_(std::move(file)), mapping_(mapping) {}
  SharedMutex(const SharedMutex&) = delete;
  SharedMutex& operator=(const SharedMutex&) = delete;
  ~SharedMutex() override { munmap(mapping_, kFileSize); }

  [[nodiscard]] DWORD Wait(DWORD milliseconds) override {
    switch (const int error = Lock(milliseconds)) {
      case 0: return Own(WAIT_OBJECT_0);
      case EOWNERDEAD:
        pthread_mutex_consistent(hostMutex());
        depth_ = 0;
        return Own(WAIT_ABANDONED);
      case EBUSY:
      case ETIMEDOUT: return WAIT_TIMEOUT;
      default: SetLastError(ErrorFromHost(error)); return WAIT_FAILED;
    }
  }

  // Whether it may go. What another thread of this process owns stays as it is, and the name with it: the host keeps a
  // list that leads there until that thread lets go.
  [[nodiscard]] bool IsFreeOfThisProcess() {
    if (const DWORD result = Wait(0); result == WAIT_TIMEOUT || result == WAIT_FAILED) return owner_ == 0;
    while (Release()) {
    }
    return true;
  }

  [[nodiscard]] bool Release() noexcept override {
    if (owner_ != NumberOfThisThread()) return false;
    if (--depth_ == 0) owner_ = 0;
    return pthread_mutex_unlock(hostMutex()) == 0;
  }

 private:
  [[nodiscard]] pthread_mutex_t* hostMutex() const noexcept {
    return reinterpret_cast<pthread_mutex_t*>(static_cast<char*>(mapping_) + kMutexAt);
  }

  // The host's error, or 0. The host's time-out goes by a clock that may be set, so it is waited in slices.
  [[nodiscard]] int Lock(DWORD milliseconds) const {
    constexpr auto kSlice = std::chrono::nanoseconds(std::chrono::milliseconds(100));
    if (milliseconds == 0) return pthread_mutex_trylock(hostMutex());
    if (milliseconds == INFINITE) return pthread_mutex_lock(hostMutex());
    const Deadline deadline(milliseconds);
    while (true) {
      timespec until{};
      clock_gettime(CLOCK_REALTIME, &until);
      const auto nanoseconds = until.tv_nsec + std::min(deadline.Left(), kSlice).count();
      until.tv_sec += nanoseconds / 1'000'000'000;
      until.tv_nsec = nanoseconds % 1'000'000'000;
      const int error = pthread_mutex_timedlock(hostMutex(), &until);
      if (error != ETIMEDOUT || deadline.IsOver()) return error;
    }
  }

  DWORD Own(DWORD result) noexcept {
    owner_ = NumberOfThisThread();
    ++depth_;
    return result;
  }

  // Its shared lock is the name's existence for other processes.
  const Descriptor file_;
  void* const mapping_;
  std::atomic<ThreadNumber> owner_ = 0;  // 0 when it is no thread of this process.
  unsigned depth_ = 0;                   // The owner's.
};

// The mutexes of this process by the path of their files.
struct SharedMutexes {
  std::mutex lock;
  std::map<std::string, std::weak_ptr<SharedMutex>> byPath;
};

SharedMutexes& TheSharedMutexes() {
  static SharedMutexes& mutexes = *new SharedMutexes;
  return mutexes;
}

// Those that could not go. Kept where leaks are told from.
struct Retire {
  void operator()(SharedMutex* mutex) const {
    static std::mutex lock;
    static auto& kept = *new std::vector<SharedMutex*>;
    if (mutex->IsFreeOfThisProcess()) {
      delete mutex;
    } else {
      const std::lock_guard guard(lock);
      kept.push_back(mutex);
    }
  }
};

void* Map(const Descriptor& file) noexcept {
  void* mapping = mmap(nullptr, kFileSize, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
  if (mapping != MAP_FAILED) return mapping;
  SetLastError(ErrorFromHost(errno));
  return nullptr;
}

bool MakeHostMutex(const Descriptor& file) noexcept {
  void* const mapping = ftruncate(file.get(), kFileSize) == 0 ? Map(file) : nullptr;
  if (mapping == nullptr) return false;
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  const int error =
      pthread_mutex_init(reinterpret_cast<pthread_mutex_t*>(static_cast<char*>(mapping) + kMutexAt), &attributes);
  pthread_mutexattr_destroy(&attributes);
  munmap(mapping, kFileSize);
  SetLastError(ErrorFromHost(error));
  return error == 0;
}

}  // namespace

std::shared_ptr<Mutex> OpenSharedMutex(const std::string& path, bool initialOwner, bool& isNew) {
  SharedMutexes& mutexes = TheSharedMutexes();
  const std::lock_guard guard(mutexes.lock);
  isNew = false;
  if (auto mutex = mutexes.byPath[path].lock()) return mutex;
  auto opened = namedObjects::Open(path, namedObjects::Kind::Mutex, &MakeHostMutex);
  if (!opened) return nullptr;
  if (opened->kind != namedObjects::Kind::Mutex) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  void* const mapping = Map(opened->file);
  if (mapping == nullptr) return nullptr;
  const std::shared_ptr<SharedMutex> mutex(new SharedMutex(std::move(opened->file), mapping), Retire());
  mutexes.byPath[path] = mutex;
  isNew = opened->isNew;
  if (isNew && initialOwner) static_cast<void>(mutex->Wait(0));
  return mutex;
}

}  // namespace platform
