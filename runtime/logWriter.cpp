#include "runtime/logWriter.h"

#include "runtime/logger.h"

namespace runtime {
namespace {

constexpr int kBatch = 100;

// Begun and ended in pairs, whatever a writer throws between.
class Batch {
 public:
  explicit Batch(LogWriter& writer) : writer_(writer) { writer_.BeginBatch(); }
  ~Batch() {
    try {
      writer_.EndBatch();
    } catch (...) {  // Dropped, as what the others throw.
    }
  }
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;

 private:
  LogWriter& writer_;
};

}  // namespace

bool LogWriter::Write(const RCPtr<LogMessage>& message) {
  Slot& slot = slots[activeSlot];
  if (!open) {
    ++slot.dropped;
    return false;
  }
  if (!asynchronous) {
    const Batch batch(*this);
    Emit(message);
    return true;
  }
  if (flooded || ShouldDrop(message)) {
    ++slot.dropped;
    return false;
  }
  slot.queue.push_back(message);
  if (batchMode) {
    WriteOutBatch(slot);
  } else if (!batchTimer.Paused() || slot.queue.size() >= threshold) {
    EnterBatchMode();
  }
  return true;
}

void LogWriter::WriteOutBatch(Slot& slot) {
  const bool full = slot.queue.size() % kBatch == 0;
  if (!full && batchTimer.ElapsedMS() < flushIntervalMs) return;
  Flush(slot, full ? 2 * kBatch : kBatch);
  batchTimer.Mark(TimerOperation::Restart);
}

bool LogWriter::EnterBatchMode() {
  if (batchTimer.Paused()) {
    batchTimer.Mark(TimerOperation::Restart);
    if (pollItem) pollItem->Disable(false);
  }
  if (pollItem && pollItem->flushing) return false;
  EmitReport(0, "\n***** BATCH MODE ENABLED *****\n\n");
  batchMode = true;
  return true;
}

void LogWriter::EmitReport(int level, const char* text) {
  const RCPtr<Logger> owner = logger;  // None when the writer was removed, also by what itself has just done.
  if (owner) Emit(owner->NewMessage(level, text));
}

void LogWriter::Flush(Slot& slot, int count) {
  if (slot.queue.empty() || count < 1) return;
  const RCPtr<Logger> owner = logger;  // The writer may be removed within Emit, or may have been before.
  const Batch batch(*this);
  for (int written = 0; written < count && !slot.queue.empty();) {
    const RCPtr<LogMessage> message = std::move(slot.queue.front());
    slot.queue.pop_front();
    if (!message) continue;
    Emit(message);
    ++written;
  }
  if (slot.dropped > 0 && owner) {
    const std::uint32_t dropped = std::exchange(slot.dropped, 0);
    const RCPtr<LogMessage> report = owner->NewMessage(3, nullptr);
    report->AppendFormat("\n%s Dropped %d messages %s\n\n", "*******", dropped, "*******");
    Emit(report);
  }
}

}  // namespace runtime
