// A recursive lock that says so when it seems to be waited for in vain.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/raii.h"
#include "runtime/rcPtr.h"

namespace runtime {

// What all copies of one TxMutex share.
class TxMutexData : public RCObject {
 public:
  platform::UniqueMutex handle;
  // The last owner, also when it has released: a hint for reports, which read it without the lock.
  std::atomic<std::uint32_t> ownerThreadId = 0;
  std::int32_t recursionCount = 0;  // Guarded by the mutex itself.
};

// A handle to one mutex of the system; the object itself may be used by several threads at a time, but not while it is
// assigned to. A thread may acquire it again, and releases as often.
class TxMutex : public RCObject {
 public:
  // No limit to the time.
  static constexpr std::uint32_t kNoLimit = 0xFFFFFFFF;

  // A null or empty name makes a mutex of this process alone; other names lead every process to the same one. When the
  // system has none left, nothing can be acquired.
  explicit TxMutex(bool initiallyOwned = false, const char* name = nullptr);
  TxMutex(const TxMutex& other) noexcept : RCObject(), data(other.data) {}
  TxMutex& operator=(const TxMutex& other) {
    data = other.data;
    return *this;
  }

  // Whether the caller is now the owner. Without a limit, logs once when 30 seconds have gone by, and waits on.
  bool Acquire(std::uint32_t timeoutMs = kNoLimit) const;
  // False when the caller is not the owner.
  bool Release() const;

  // For the library's guards.
  void lock() const { Acquire(); }
  void unlock() const { Release(); }

  [[nodiscard]] const TxMutexData* Data() const noexcept { return data.Get(); }

 private:
  RCPtr<TxMutexData> data;
};

// Lets go of a lock that is held, for as long as this object exists.
class Unlocked {
 public:
  explicit Unlocked(const TxMutex& mutex) : mutex_(mutex) { mutex_.Release(); }
  ~Unlocked() { mutex_.Acquire(); }
  Unlocked(const Unlocked&) = delete;
  Unlocked& operator=(const Unlocked&) = delete;

 private:
  const TxMutex& mutex_;
};

}  // namespace runtime
