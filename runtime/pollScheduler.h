// The loop of a poll thread, on that thread's stack.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "runtime/impersonateSession.h"
#include "runtime/pollThread.h"

namespace runtime {

// What one pass waits for: the thread's two events, and those of its items.
class PollWaitSet {
 public:
  static constexpr std::size_t kStop = 0;
  static constexpr std::size_t kDirty = 1;

  explicit PollWaitSet(TxPollThread& ofThread) : thread(ofThread) {}

  // REQUIRES of all but Wait: the thread's lock.

  // Anew from the thread's items, as they stand now.
  void Build();
  // Lets go of all items and their events.
  void Clear();
  // Milliseconds, by a clock read afresh; kNoLimit without a timed item.
  [[nodiscard]] std::uint32_t Timeout() const;
  // As TxEvent::WaitAny; an index is a slot.
  [[nodiscard]] std::int32_t Wait(std::uint32_t timeoutMs);

  // The item whose turn a slot is; the timed one when the time was over. Empty for a slot beyond the last.
  struct Turn {
    RCPtr<TxPollItem> item;
    bool timedOut = false;
  };
  [[nodiscard]] Turn TurnOf(std::int32_t result) const;

  // The timed item that comes first; may be empty.
  [[nodiscard]] const RCPtr<TxPollItem>& Next() const noexcept { return next; }

 private:
  void Consider(const RCPtr<TxPollItem>& item, std::int64_t now);
  void Put(std::size_t slot, const TxEvent& event, const RCPtr<TxPollItem>& item);
  [[nodiscard]] bool IsOfTheClock(std::size_t slot) const;

  TxPollThread& thread;
  const TxEvent alwaysSignalled{true, true};
  std::vector<TxEvent> events;           // Copies: an item may get another event while this one is waited for.
  std::vector<RCPtr<TxPollItem>> items;  // By the same slots.
  std::vector<const TxEvent*> waited;
  std::size_t freeSlot = 0;
  RCPtr<TxPollItem> next;
  std::int64_t nextRemaining = -1;
  bool nextHasEvent = false;  // As the wait sees it; it may get another meanwhile, or none.
  std::optional<std::size_t> prioritySlot;
};

class PollScheduler {
 public:
  explicit PollScheduler(TxPollThread& ofThread) : thread(ofThread), waitSet(ofThread) {}

  // Until there is a reason to end. True when that was that nobody refers to the thread any longer.
  bool Run();

 private:
  enum class End : std::uint8_t { None, Asked, Unreferenced };

  [[nodiscard]] End Pass();
  void FollowSession();
  void LogWait(std::uint32_t timeout) const;
  [[nodiscard]] End Follow(std::int32_t result);
  void RunItem(const PollWaitSet::Turn& turn, std::int32_t result);

  TxPollThread& thread;
  PollWaitSet waitSet;
  TxImpersonateSession session;
};

}  // namespace runtime
