#include "platform/windows/winePool.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <unordered_set>
#include <utility>

namespace platform::test {
namespace {

// Full from the start, so that as many handles are open before a test as behind it.
class RestingHandles {
 public:
  RestingHandles() {
    std::ranges::generate(resting_, [] { return ::CreateEventW(nullptr, FALSE, FALSE, nullptr); });
  }

  void LookAt(::HANDLE handle) {
    const std::lock_guard guard(lock_);
    lookedAt_.insert(handle);
  }

  bool Take(::HANDLE handle) {
    const std::lock_guard guard(lock_);
    if (lookedAt_.erase(handle) == 0) return false;
    ::CloseHandle(std::exchange(resting_.at(oldest_), handle));
    oldest_ = (oldest_ + 1) % resting_.size();
    return true;
  }

 private:
  std::mutex lock_;  // Guards what follows.
  std::unordered_set<::HANDLE> lookedAt_;
  std::array<::HANDLE, 64> resting_{};
  std::size_t oldest_ = 0;
};

struct Pool {
  RestingHandles resting;
  const ::HANDLE always = ::CreateEventW(nullptr, TRUE, TRUE, nullptr);
};

Pool& ThePool() {
  static Pool& pool = *new Pool;
  return pool;
}

const bool kBeforeTheFirstTest = (ThePool(), true);

}  // namespace

void PoolLooksAt(WaitableHandle handle) { ThePool().resting.LookAt(reinterpret_cast<::HANDLE>(handle.value())); }

bool LayToRest(KernelHandle handle) { return ThePool().resting.Take(reinterpret_cast<::HANDLE>(handle.value())); }

void SendPoolRound() {
  const ::HANDLE round = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
  const auto back = [](::PTP_CALLBACK_INSTANCE, void* context, ::PTP_WAIT, ::TP_WAIT_RESULT) {
    ::SetEvent(static_cast<::HANDLE>(context));
  };
  ::PTP_WAIT const wait = ::CreateThreadpoolWait(back, round, nullptr);
  ::SetThreadpoolWait(wait, ThePool().always, nullptr);
  ::WaitForSingleObject(round, INFINITE);
  ::WaitForThreadpoolWaitCallbacks(wait, FALSE);
  ::CloseThreadpoolWait(wait);  // It takes the pool's lock, under which the thread has let go of the others.
  ::CloseHandle(round);
}

}  // namespace platform::test
