// The mutex objects behind a MutexHandle.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "platform/linux/deadline.h"
#include "platform/linux/handleTable.h"

namespace platform {

// Unlike the host's thread ids, these numbers are never used again. 0 is none.
using ThreadNumber = unsigned long long;
[[nodiscard]] ThreadNumber NumberOfThisThread() noexcept;

class Mutex : public KernelObject {
 public:
  [[nodiscard]] const char* KindName() const noexcept override { return "Mutex"; }
  // WAIT_OBJECT_0, WAIT_ABANDONED or WAIT_TIMEOUT; WAIT_FAILED, with the last error set, where the host refuses.
  [[nodiscard]] virtual DWORD Wait(DWORD milliseconds) = 0;
  // False when the calling thread is not the owner.
  [[nodiscard]] virtual bool Release() noexcept = 0;
};

// Without a name: of this process alone.
class LocalMutex final : public Mutex, public std::enable_shared_from_this<LocalMutex> {
 public:
  [[nodiscard]] DWORD Wait(DWORD milliseconds) override;
  [[nodiscard]] bool Release() noexcept override;

  // Frees the mutexes that the calling thread owns, as it ends.
  static void AbandonOwned() noexcept;

 private:
  [[nodiscard]] DWORD Take();
  void AddToOwned();
  std::shared_ptr<LocalMutex> RemoveFromOwned() noexcept;

  std::mutex guard_;  // Guards the fields down to abandoned_.
  std::condition_variable free_;
  unsigned waiting_ = 0;
  ThreadNumber owner_ = 0;  // 0: nobody.
  unsigned depth_ = 0;
  bool abandoned_ = false;
  // The owner's own list of what it owns. An owned mutex lives on when its last handle is closed, until the owner has
  // let it go: only the owner may touch the list.
  std::shared_ptr<LocalMutex> self_;
  LocalMutex* nextOwned_ = nullptr;
};

// With a name: shared by processes. Null, with the last error set, on failure.
[[nodiscard]] std::shared_ptr<Mutex> OpenSharedMutex(const std::string& path, bool initialOwner, bool& isNew);

}  // namespace platform
