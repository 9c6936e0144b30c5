// Named worker threads that call one function again and again.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "runtime/event.h"
#include "runtime/mutex.h"

namespace runtime {

class TxThread;

// Called on the worker; true asks for another call.
using ThreadCallback = bool (*)(void* userData);

// What a TxThread and its worker share; it lives as long as either of them. The fields are guarded by `mutex`, which is
// free while the callback runs and while the worker waits.
class TxThreadData : public RCObject {
 public:
  TxThreadData(std::string threadName, TxThread* ownedBy) : name(std::move(threadName)), owner(ownedBy) {}

  // A thread of the system, to be joined or detached once.
  struct Record {
    platform::UniqueThread handle;
    std::uint32_t id = 0;
    [[nodiscard]] bool Joinable() const noexcept { return id != 0; }
  };

  // The order of the fields is settled.
  std::string name;
  ThreadCallback callback = nullptr;
  void* userData = nullptr;
  std::int32_t intervalMs = 0;  // The longest wait between two calls; -1 is for ever.
  std::int32_t nextWaitMs = -1;
  bool messageWait = false;
  std::atomic<std::uint32_t> threadId = 0;  // 0 while no thread runs.
  std::unique_ptr<Record> thread;
  TxThread* owner;
  bool deleted = false;
  TxEvent wakeEvent{false, false};
  TxEvent stopEvent{true, false};
  TxEvent exitedEvent{true, false};
  TxMutex mutex;
  TxEvent threadHandleEvent;  // Signalled when the thread has ended, however it did.

  // The worker's life.
  void Run();
  // Both throw std::system_error when the system refuses; out of a TxThread's destructor that ends the process. So does
  // a thread that cannot be joined.
  void Join();
  void Detach();

 private:
  // Calls until there is a reason to end, which it returns.
  const char* CallAndWait();
  [[nodiscard]] std::int32_t WaitForNextCall();
};

// A handle to one worker at a time: it can be started again once it was waited for. Any thread may call. A worker whose
// TxThread goes runs on until its callback returns.
class TxThread : public RCObject {
 public:
  static constexpr std::uint32_t kNoLimit = 0xFFFFFFFF;

  explicit TxThread(std::string name);
  TxThread(const TxThread&) = delete;
  TxThread& operator=(const TxThread&) = delete;
  ~TxThread() override;

  // Returns when the worker has begun. False without a callback, and while there is a thread that was not waited for.
  // Throws std::system_error when the system has no thread left. With `messageWait` the worker's wait also ends for
  // window messages.
  bool Start(ThreadCallback callback, void* userData, std::int32_t intervalMs, bool messageWait);
  // True when the worker has ended, or there is none. False when the time is over, and on the worker itself.
  bool Stop(std::uint32_t timeoutMs);
  bool WaitForStop(std::uint32_t timeoutMs);
  [[nodiscard]] bool IsStopped() { return WaitForStop(0); }
  [[nodiscard]] bool IsRunning() { return !IsStopped(); }
  [[nodiscard]] bool IsCurrentThread() const noexcept;

  [[nodiscard]] TxEvent GetStopEvent() const;
  // Signalled when the worker has ended; empty before the first start.
  [[nodiscard]] TxEvent GetThreadEvent() const;
  // Makes the worker call before its interval is over.
  bool Wake() const { return data->wakeEvent.Set(); }

  [[nodiscard]] static std::uint32_t GetCurrentThreadId() noexcept;

  [[nodiscard]] const RCPtr<TxThreadData>& Data() const noexcept { return data; }

 private:
  void MarkDeleted();

  RCPtr<TxThreadData> data;
};

}  // namespace runtime
