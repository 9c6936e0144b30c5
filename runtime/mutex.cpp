#include "runtime/mutex.h"

#include "runtime/logCalls.h"

namespace runtime {
namespace {

constexpr const char* kAcquire = "TxMutex::Acquire()";
constexpr std::uint32_t kSuspiciousMs = 30'000;

}  // namespace

// Created free, and then acquired like any other time: so it is counted.
TxMutex::TxMutex(bool initiallyOwned, const char* name) : data(new TxMutexData) {
  const bool named = name != nullptr && *name != '\0';
  data->handle.reset(platform::CreateMutexA(nullptr, false, named ? name : nullptr));
  if (initiallyOwned) Acquire();
}

bool TxMutex::Acquire(std::uint32_t timeoutMs) const {
  TxMutexData* const held = data.Get();
  if (held == nullptr || !held->handle) return false;
  const platform::MutexHandle handle = held->handle.get();
  platform::DWORD result = platform::WaitForSingleObject(handle, timeoutMs == kNoLimit ? kSuspiciousMs : timeoutMs);
  if (timeoutMs == kNoLimit && result == platform::WAIT_TIMEOUT) {
    Log(kAcquire, 2, "Possible deadlock trying to acquire lock 0x%p held by thread 0x%04x", this,
        held->ownerThreadId.load());
    result = platform::WaitForSingleObject(handle, platform::INFINITE);
  }
  switch (result) {
    case platform::WAIT_OBJECT_0: break;
    case platform::WAIT_ABANDONED:
      Log(kAcquire, 2, "Acquired abandoned lock 0x%p previously held by thread 0x%04x", this,
          held->ownerThreadId.load());
      held->recursionCount = 0;
      break;
    case platform::WAIT_TIMEOUT: return false;
    default:
      Log(kAcquire, 2, "Error %d trying to acquire lock 0x%p held by thread 0x%04x", result, this,
          held->ownerThreadId.load());
      return false;
  }
  if (++held->recursionCount == 1) held->ownerThreadId = platform::GetCurrentThreadId();
  return true;
}

bool TxMutex::Release() const {
  TxMutexData* const held = data.Get();
  if (held == nullptr) return false;
  if (held->ownerThreadId == platform::GetCurrentThreadId() && held->recursionCount > 0) --held->recursionCount;
  return platform::ReleaseMutex(held->handle.get());
}

}  // namespace runtime
