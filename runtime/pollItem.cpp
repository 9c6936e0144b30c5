#include "runtime/pollItem.h"

#include <mutex>

#include "runtime/logCalls.h"
#include "runtime/pollThread.h"
#include "runtime/textFormat.h"

namespace runtime {

// The item's thread, locked; where there is none, what stands for it in the log.
class TxPollItem::LockedThread {
 public:
  LockedThread(TxPollItem& item, int levelWithout) : thread_(item.GetPollThread()), levelWithout_(levelWithout) {
    if (thread_) lock_ = std::unique_lock(thread_->Lock());
  }
  [[nodiscard]] TxPollThread* get() const noexcept { return thread_.Get(); }
  [[nodiscard]] std::string Name() const { return thread_ ? thread_->Name() : "---"; }
  [[nodiscard]] int LogLevel() const noexcept { return thread_ ? thread_->LogLevel() : levelWithout_; }
  void LookAgain() const {
    if (thread_) thread_->LookAgain();
  }

 private:
  const RCPtr<TxPollThread> thread_;
  const int levelWithout_;
  std::unique_lock<const TxMutex> lock_;
};

std::int64_t TxPollItem::Remaining(std::int64_t now) {
  const std::int64_t remaining = timeoutMs - timer.ElapsedMS(kOnlyLook, now);
  return remaining == -1 ? 0 : remaining;  // -1 would stand for no timeout.
}

std::string TxPollItem::TimeoutText() const {
  return timeoutMs == kNoTimeout ? "INFINITE" : FormatDuration(timeoutMs / 1000.0, 3);
}

std::string TxPollItem::ElapsedText() { return FormatDuration(timer.ElapsedSeconds(), 3); }

RCPtr<TxPollThread> TxPollItem::GetPollThread() {
  const std::uint64_t owner = ownerId;
  if (owner == 0) return {};
  RCPtr<TxPollThread> thread = TxPollThread::Find(owner);
  if (!thread) {
    std::uint64_t gone = owner;
    if (ownerId.compare_exchange_strong(gone, 0)) {
      Log("TxPollItem::GetPollThread()", 2, "%s: TxPollThread 0x%p has been deleted", name, ThreadIdPointer(owner));
    }
  }
  return thread;
}

void TxPollItem::SetEvent(const RCPtr<TxEvent>& newEvent) {
  constexpr const char* kSetEvent = "TxPollItem::SetEvent()";
  const LockedThread thread(*this, 6);
  if (event == newEvent) return;
  event = newEvent;
  thread.LookAgain();
  if (event) {
    LogIfWanted(kSetEvent, thread.LogLevel(), "%s: Item %s event set to 0x%lx", thread.Name(), name,
                event->GetHandle());
  } else {
    LogIfWanted(kSetEvent, thread.LogLevel(), "%s: Item %s event set to NULL", thread.Name(), name);
  }
}

void TxPollItem::SetTimeoutMS(std::int32_t ms, bool resetTimer) {
  const LockedThread thread(*this, 6);
  const bool begins = resetTimer || timeoutMs == kNoTimeout;
  timeoutMs = ms;
  if (begins) timer.Mark(TimerOperation::Restart);
  thread.LookAgain();
  if (!LogWanted(thread.LogLevel())) return;
  Log("TxPollItem::SetTimeoutMS()", thread.LogLevel(), "%s: Item %s timeout set to %s (%s)", thread.Name(), name,
      TimeoutText(), begins ? "timer reset" : "timer at " + ElapsedText());
}

void TxPollItem::Disable(bool wait) {
  const LockedThread thread(*this, 4);
  if (wait && thread.get() != nullptr) thread.get()->WaitLocked(this);
  if (++disableCount != 1) return;
  thread.LookAgain();
  LogIfWanted("TxPollItem::Disable()", thread.LogLevel(), "%s: Item %s disabled", thread.Name(), name);
}

void TxPollItem::Enable() {
  const LockedThread thread(*this, 4);
  if (--disableCount != 0) return;
  thread.LookAgain();
  LogIfWanted("TxPollItem::Enable()", thread.LogLevel(), "%s: Item %s enabled", thread.Name(), name);
}

}  // namespace runtime
