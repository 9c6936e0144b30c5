// Many small jobs, timed or woken by events, on one thread.
//
// The thread builds a set of what to wait for, waits without its lock, runs one item, also without the lock, and begins
// anew. An item that has run goes to the end of the list; a timed item that is overdue waits for no event but those of
// items ahead of it: so nobody starves.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <string>

#include "runtime/mutex.h"
#include "runtime/pollItem.h"
#include "runtime/thread.h"

namespace runtime {

// How the number of a poll thread is shown in the log.
[[nodiscard]] inline const void* ThreadIdPointer(std::uint64_t id) noexcept {
  return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(id));
}

// Any thread may call, without holding the lock itself. It ends when it is stopped, when a wait fails, and, at its next
// wake, when nobody refers to it any longer.
class TxPollThread : public RCObject {
 public:
  static constexpr std::int32_t kNoSession = -1;

  explicit TxPollThread(const std::string& threadName);
  ~TxPollThread() override;

  // True when the thread runs now, also when it did already.
  bool StartScheduler();
  // The thread of the system; its stop event ends the scheduler.
  [[nodiscard]] TxThread& Thread() noexcept { return thread; }

  // False for no item, and for one of another thread. An item that is here already goes to the end of the list.
  bool AddItem(const RCPtr<TxPollItem>& item);
  // The same; an item that was added has this event and timeout from the start.
  bool AddItem(const RCPtr<TxPollItem>& item, const RCPtr<TxEvent>& event, std::int32_t timeoutMs);
  // With `wait`, a run that is under way has ended when these return, unless the caller is that very run.
  bool RemoveItem(const RCPtr<TxPollItem>& item, bool wait);
  void RemoveAllItems(bool wait);
  // Returns when the item does not run, or with no item when none does; at once on the poll thread itself.
  void WaitForItemToComplete(const RCPtr<TxPollItem>& item);
  void LogAllItems(int level);

  // Before the thread starts, and before it has items. A mutex that takes the place of its own must outlive it.
  void SetMutex(TxMutex* mutexInstead) noexcept { externalMutex = mutexInstead; }
  // The first item that is added starts the thread.
  void SetAutoStart(bool starts) noexcept { autoStart = starts; }
  void SetAlertable(bool waitsAlertably) noexcept { alertable = waitsAlertably; }

  // At any time. The level of the lines that follow what the thread does; and the session whose user the items act as.
  void SetLogLevel(int level) noexcept { logLevel = level; }
  void SetSessionId(std::int32_t session);

  [[nodiscard]] int LogLevel() const noexcept { return logLevel; }
  [[nodiscard]] std::int32_t SessionId() const noexcept { return sessionId; }
  [[nodiscard]] const std::string& Name() const noexcept { return name; }
  [[nodiscard]] std::uint64_t Id() const noexcept { return id; }

  // Empty when there is none of this number any more.
  [[nodiscard]] static RCPtr<TxPollThread> Find(std::uint64_t id);

 private:
  friend class TxPollItem;
  friend class PollScheduler;
  friend class PollWaitSet;

  static bool RunScheduler(void* id);

  // For those that share the lock: items and the scheduler.
  [[nodiscard]] const TxMutex& Lock() const noexcept { return externalMutex != nullptr ? *externalMutex : mutex; }
  void LookAgain() const { dirtyEvent.Set(); }
  // REQUIRES: the lock, held once, so that a wait lets go of it.
  void WaitLocked(const RCPtr<TxPollItem>& item);
  bool RemoveLocked(const RCPtr<TxPollItem>& item, bool wait);
  // REQUIRES: the lock.
  void Queue(const RCPtr<TxPollItem>& item);
  void Unlink(TxPollItem& item);

  // The order of the fields is settled.
  const std::string name;
  TxThread thread;
  TxMutex mutex;
  TxEvent dirtyEvent{false, false};  // Set: the set of what to wait for is to be built anew.
  TxMutex* externalMutex = nullptr;
  TxPollItem* runningItem = nullptr;
  bool autoStart = false;
  bool alertable = false;
  std::atomic<std::int32_t> logLevel = 7;
  std::atomic<std::int32_t> sessionId = kNoSession;
  std::list<RCPtr<TxPollItem>> items;
  std::uint64_t id = 0;
};

}  // namespace runtime
