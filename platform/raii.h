// One owning type for each close function. An owner is moved, never copied, and closes what it holds exactly once.
// Closing by an owner leaves the thread's last error as it was, so that a failure reported further down is still there.
#pragma once

#include <utility>

#include "platform/error.h"
#include "platform/files.h"
#include "platform/handles.h"
#include "platform/registry.h"
#include "platform/sections.h"
#include "platform/shell.h"
#include "platform/threadPool.h"

namespace platform {

template <class Value, auto Close>
class Owner {
 public:
  Owner() noexcept = default;
  explicit Owner(Value value) noexcept : value_(value) {}
  Owner(Owner&& other) noexcept : value_(other.release()) {}
  Owner& operator=(Owner&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  Owner(const Owner&) = delete;
  Owner& operator=(const Owner&) = delete;
  ~Owner() { reset(); }

  [[nodiscard]] Value get() const noexcept { return value_; }
  explicit operator bool() const noexcept { return static_cast<bool>(value_); }
  // The caller becomes the owner of the returned value.
  [[nodiscard]] Value release() noexcept { return std::exchange(value_, Value{}); }
  void reset(Value value = Value{}) noexcept {
    if (Value old = std::exchange(value_, value)) {
      const DWORD lastError = GetLastError();
      Close(old);
      SetLastError(lastError);
    }
  }
  // For calls with an out-parameter: closes what is held and gives its place.
  [[nodiscard]] Value* put() noexcept {
    reset();
    return &value_;
  }

 private:
  Value value_{};
};

using UniqueEvent = Owner<EventHandle, &CloseHandle>;
using UniqueMutex = Owner<MutexHandle, &CloseHandle>;
using UniqueThread = Owner<ThreadHandle, &CloseHandle>;
using UniqueProcess = Owner<ProcessHandle, &CloseHandle>;
using UniqueFile = Owner<FileHandle, &CloseHandle>;
using UniqueSection = Owner<SectionHandle, &CloseHandle>;
using UniquePipe = Owner<PipeHandle, &CloseHandle>;
using UniqueToken = Owner<TokenHandle, &CloseHandle>;
using UniqueNativeKey = Owner<NativeKeyHandle, &CloseHandle>;
using UniqueKey = Owner<HKEY, &RegCloseKey>;
using UniquePool = Owner<PTP_POOL, &CloseThreadpool>;
using UniqueCleanupGroup = Owner<PTP_CLEANUP_GROUP, &CloseThreadpoolCleanupGroup>;
using UniqueWork = Owner<PTP_WORK, &CloseThreadpoolWork>;
using UniqueWait = Owner<PTP_WAIT, &CloseThreadpoolWait>;
using UniqueTimer = Owner<PTP_TIMER, &CloseThreadpoolTimer>;
using UniqueFind = Owner<FindHandle, &FindClose>;
using UniqueView = Owner<void*, &UnmapViewOfFile>;
template <class T>
using UniqueTaskMemory = Owner<T*, &CoTaskMemFree>;
template <class T>
using UniqueLocal = Owner<T*, &LocalFree>;

}  // namespace platform
