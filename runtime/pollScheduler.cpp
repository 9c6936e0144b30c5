#include "runtime/pollScheduler.h"

#include <algorithm>
#include <mutex>

#include "runtime/functionTrace.h"
#include "runtime/logCalls.h"
#include "runtime/textFormat.h"

namespace runtime {
namespace {

constexpr const char* kScheduler = "TxPollThread::Scheduler()";

}  // namespace

void PollWaitSet::Build() {
  const std::size_t most = thread.items.size() + 4;
  events.resize(most);
  items.resize(most);
  Put(kStop, thread.thread.GetStopEvent(), {});
  Put(kDirty, thread.dirtyEvent, {});
  freeSlot = 2;
  next.Reset();
  nextRemaining = -1;
  prioritySlot.reset();
  const std::int64_t now = TxElapsedTimer().Now();
  for (const RCPtr<TxPollItem>& item : thread.items) Consider(item, now);
  if (prioritySlot) {
    nextHasEvent = static_cast<bool>(next->event);
    Put(*prioritySlot, nextHasEvent ? *next->event : alwaysSignalled, next);
    Put(*prioritySlot + 1, alwaysSignalled, next);
    LogIfWanted(kScheduler, thread.logLevel, "%s: Prioritized timed item %s @ %d", thread.name, next->Name(),
                static_cast<std::int32_t>(*prioritySlot));
  }
  events.resize(freeSlot);
  items.resize(freeSlot);
  thread.dirtyEvent.Reset();
}

void PollWaitSet::Clear() {
  events.clear();
  items.clear();
  next.Reset();
}

// An overdue item is ready at once, and only the events of items ahead of it are looked at first.
void PollWaitSet::Consider(const RCPtr<TxPollItem>& item, std::int64_t now) {
  if (item->disableCount > 0) return;
  if (!item->timer.Paused() && item->timeoutMs != TxPollItem::kNoTimeout) {
    const std::int64_t remaining = item->Remaining(now);
    if (!next || remaining < nextRemaining) {
      next = item;
      nextRemaining = remaining;
      if (remaining <= 0 && !prioritySlot) {
        prioritySlot = freeSlot;
        freeSlot += 2;
      }
    }
  }
  if (item->event) Put(freeSlot++, *item->event, item);
}

void PollWaitSet::Put(std::size_t slot, const TxEvent& event, const RCPtr<TxPollItem>& item) {
  events[slot] = event;
  items[slot] = item;
}

std::uint32_t PollWaitSet::Timeout() const {
  if (!next) return TxEvent::kNoLimit;
  if (nextRemaining <= 0) return 0;
  return static_cast<std::uint32_t>(std::max<std::int64_t>(0, next->Remaining(0)));
}

std::int32_t PollWaitSet::Wait(std::uint32_t timeoutMs) {
  waited.clear();
  for (const TxEvent& event : events) waited.push_back(&event);
  return TxEvent::WaitAny(waited, false, timeoutMs, false, thread.alertable);
}

bool PollWaitSet::IsOfTheClock(std::size_t slot) const {
  return prioritySlot && (slot == *prioritySlot + 1 || (slot == *prioritySlot && !nextHasEvent));
}

PollWaitSet::Turn PollWaitSet::TurnOf(std::int32_t result) const {
  const auto slot = static_cast<std::size_t>(result);
  if (result == kWaitTimedOut || IsOfTheClock(slot)) return {.item = next, .timedOut = true};
  return {.item = slot < items.size() ? items[slot] : nullptr, .timedOut = false};
}

bool PollScheduler::Run() {
  const FunctionTrace trace(3, kScheduler, {}, "%s: 0x%p", thread.name, &thread);
  const std::lock_guard lock(thread.Lock());
  End end = End::None;
  while (end == End::None) end = Pass();
  session.Reset();
  waitSet.Clear();
  return end == End::Unreferenced;
}

PollScheduler::End PollScheduler::Pass() {
  if (thread.Count() <= 1) {
    LogIfWanted(kScheduler, thread.logLevel, "%s: I'm the last reference", thread.name);
    return End::Unreferenced;
  }
  FollowSession();
  waitSet.Build();
  const std::uint32_t timeout = waitSet.Timeout();
  if (LogWanted(thread.logLevel)) LogWait(timeout);
  const std::int32_t result = [&] {
    const Unlocked unlocked(thread.Lock());
    return waitSet.Wait(timeout);
  }();
  return Follow(result);
}

// Items run as the user of the session that the thread is set to; what fails is told once.
void PollScheduler::FollowSession() {
  const std::int32_t wanted = thread.sessionId;
  const std::int32_t current = session.SessionId();
  if (wanted == current) return;
  if (session.Impersonating()) {
    if (session.Stop()) {
      LogIfWanted(kScheduler, thread.logLevel, "%s: Stopped impersonating session %d", thread.name, current);
    } else {
      Log(kScheduler, 1, "%s: Failed to stop impersonating session %d", thread.name, current);
    }
  }
  session.Reset();
  if (wanted != TxPollThread::kNoSession) {
    if (session.Init(static_cast<std::uint32_t>(wanted)) && session.Start()) {
      LogIfWanted(kScheduler, thread.logLevel, "%s: Started impersonating session %d", thread.name, wanted);
    } else {
      Log(kScheduler, 1, "%s: Failed to impersonate session %d", thread.name, wanted);
    }
  }
  thread.sessionId = session.SessionId();
}

void PollScheduler::LogWait(std::uint32_t timeout) const {
  const std::string time = timeout == TxEvent::kNoLimit ? "INFINITE" : FormatDuration(timeout / 1000.0, 3);
  if (waitSet.Next()) {
    Log(kScheduler, thread.logLevel, "%s: Waiting for %s (%s)", thread.name, waitSet.Next()->Name(), time);
  } else {
    Log(kScheduler, thread.logLevel, "%s: Waiting for %s", thread.name, time);
  }
  thread.LogAllItems(thread.logLevel);
}

PollScheduler::End PollScheduler::Follow(std::int32_t result) {
  switch (result) {
    case kWaitError: Log(kScheduler, 1, "%s: Error while waiting", thread.name); return End::Asked;
    case PollWaitSet::kStop:
      LogIfWanted(kScheduler, thread.logLevel, "%s: Exit event signaled", thread.name);
      return End::Asked;
    case PollWaitSet::kDirty:
      LogIfWanted(kScheduler, thread.logLevel, "%s: Dirty event signaled", thread.name);
      return End::None;
    case kWaitAlert: LogIfWanted(kScheduler, thread.logLevel, "%s: alertable signaled", thread.name); return End::None;
    default: RunItem(waitSet.TurnOf(result), result); return End::None;
  }
}

void PollScheduler::RunItem(const PollWaitSet::Turn& turn, std::int32_t result) {
  const RCPtr<TxPollItem>& item = turn.item;
  if (!item || !item->Runs() || item->ownerId != thread.id) return;
  if (LogWanted(thread.logLevel)) {
    Log(kScheduler, thread.logLevel, "%s: Item %s %s(%d); last run %s ago", thread.name, item->Name(),
        turn.timedOut ? "timed out" : "signaled", result, item->ElapsedText());
  }
  item->doneEvent.Reset();
  thread.runningItem = item.Get();
  double seconds = 0;
  const bool again = [&] {
    const Unlocked unlocked(thread.Lock());
    TxElapsedTimer taken;
    taken.Mark(TimerOperation::Start);
    const bool wanted = item->Run(turn.timedOut);
    seconds = taken.ElapsedSeconds();
    return wanted;
  }();
  thread.runningItem = nullptr;
  item->doneEvent.Set();
  if (LogWanted(thread.logLevel)) {
    Log(kScheduler, thread.logLevel, "%s: Item %s took %s", thread.name, item->Name(), FormatDuration(seconds, 3));
  }
  if (item->ownerId != thread.id) return;
  if (again) {
    thread.Queue(item);
  } else {
    thread.RemoveItem(item, false);
  }
}

}  // namespace runtime
