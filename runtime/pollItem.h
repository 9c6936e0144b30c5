// A small job that a poll thread runs when its event is signalled or its time has come.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <string>

#include "runtime/event.h"
#include "runtime/timer.h"

namespace runtime {

class TxPollThread;

// Belongs to one poll thread at a time, or to none. While it belongs to one, any thread may call; else one at a time.
class TxPollItem : public RCObject {
 public:
  static constexpr std::int32_t kNoTimeout = -1;

  explicit TxPollItem(std::string itemName) : name(std::move(itemName)) {}

  // The job: on the poll thread, with none of its locks held. It may call anything of this item, of others and of the
  // thread. False takes the item off the thread.
  virtual bool Run(bool timedOut) = 0;

  // The thread that it belongs to; empty without one. An item whose thread has gone belongs to none from here on.
  [[nodiscard]] RCPtr<TxPollThread> GetPollThread();

  // Empty for none.
  void SetEvent(const RCPtr<TxEvent>& newEvent);
  // The time from one run to the next; kNoTimeout for none. It begins now with `resetTimer`, or when there was none.
  void SetTimeoutMS(std::int32_t ms, bool resetTimer);

  // A disabled item does not run; it takes as many Enable as there were Disable. With `wait`, a run that is under way
  // has ended when this returns, unless the caller is that very run.
  void Disable(bool wait);
  void Enable();

  // While its timer is paused the item's timeout plays no part, and it does not run. Not guarded: for who has the item
  // to himself, as before it is added.
  [[nodiscard]] TxElapsedTimer& Timer() noexcept { return timer; }
  [[nodiscard]] const std::string& Name() const noexcept { return name; }

 private:
  friend class TxPollThread;
  friend class PollScheduler;
  friend class PollWaitSet;
  class LockedThread;
  // Somebody waits for the item's end: nothing new of it starts meanwhile.
  static constexpr std::int32_t kAwaited = 1'000'000;

  [[nodiscard]] bool Runs() const noexcept { return disableCount <= 0 && !timer.Paused(); }
  // Milliseconds until its time has come, at the tick `now`; below 0 when that is over.
  [[nodiscard]] std::int64_t Remaining(std::int64_t now);
  [[nodiscard]] std::string TimeoutText() const;
  [[nodiscard]] std::string ElapsedText();

  // Guarded by the thread's lock. Their order is settled.
  std::string name;
  RCPtr<TxEvent> event;
  TxEvent doneEvent{true, false};  // Set after a run; reset when the item is queued anew.
  TxElapsedTimer timer;            // Since the last run.
  std::int32_t timeoutMs = kNoTimeout;
  std::int32_t disableCount = 0;
  std::atomic<std::uint64_t> ownerId = 0;  // The thread's; 0 without one.
  std::list<RCPtr<TxPollItem>>::iterator listPosition;
};

}  // namespace runtime
