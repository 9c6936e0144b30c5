#include "runtime/logWriter.h"

#include "runtime/logger.h"

namespace runtime {
namespace {

constexpr int kBatch = 100;

}  // namespace

bool LogWriter::Write(const RCPtr<LogMessage>& message) {
  Slot& slot = slots[activeSlot];
  if (!open) {
    ++slot.dropped;
    return false;
  }
  if (!asynchronous) {
    BeginBatch();
    Emit(message);
    EndBatch();
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

void LogWriter::EmitReport(int level, const char* text) { Emit(logger->NewMessage(level, text)); }

void LogWriter::Flush(Slot& slot, int count) {
  if (slot.queue.empty() || count < 1) return;
  const RCPtr<Logger> owner = logger;  // The writer may be removed within Emit, or may have been before.
  BeginBatch();
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
  EndBatch();
}

}  // namespace runtime
