// Where messages of the log go: what every writer is built on.
//
// A writer takes messages at once, or puts them into a queue that a timed item of the log's poll thread writes out. A
// queue that grows too long is written out in batches by those who log; a flood is dropped, counted and reported.
#pragma once

#include <array>
#include <cstdint>
#include <deque>

#include "runtime/logMessage.h"
#include "runtime/pollItem.h"
#include "runtime/timer.h"

namespace runtime {

class Logger;

// The writer's timed flush; what it does is the writer's affair.
class LogFlushItem : public TxPollItem {
 public:
  using TxPollItem::TxPollItem;
  bool flushing = false;
};

// Everything runs under the lock of the log (loggerManager.h).
class LogWriter : public RCObject {
 public:
  // What is dropped instead of queued.
  virtual bool ShouldDrop(const RCPtr<LogMessage>& message) = 0;
  // Between BeginBatch and EndBatch. What it logs itself is lost; what any of these throws is dropped, and the message
  // with it.
  virtual void Emit(const RCPtr<LogMessage>& message) = 0;
  virtual void BeginBatch() = 0;
  virtual void EndBatch() = 0;
  // What stands in front of the text of a message that this writer is the first to get. Returns the length written,
  // below `capacity`. FormatLinePrefix (logLine.h) is the usual form.
  virtual int FormatPrefix(char* buffer, int capacity, int level, const char* functionName) = 0;

  // True if taken, false if dropped.
  bool Write(const RCPtr<LogMessage>& message);

  [[nodiscard]] bool Enabled() const noexcept { return enabled; }
  void SetEnabled(bool takesMessages) noexcept { enabled = takesMessages; }

 protected:
  static constexpr std::size_t kSlots = 2;
  struct Slot {
    std::deque<RCPtr<LogMessage>> queue;
    std::uint32_t dropped = 0;
  };

  // Writes out up to so many messages from the front of a slot, and then what was dropped since the last report.
  void Flush(Slot& slot, int count);
  // False when a flush is under way.
  bool EnterBatchMode();

  // The order of the fields is settled.
  std::uint32_t threshold = 0;  // The length of a queue that is too long for the timed flush alone.
  std::uint32_t flushIntervalMs = 0;
  bool asynchronous = false;
  bool enabled = true;
  bool flooded = false;  // Everything is dropped.
  bool open = false;
  RCPtr<Logger> logger;       // That the writer belongs to.
  TxElapsedTimer batchTimer;  // Paused while the timed flush is in charge.
  bool batchMode = false;
  RCPtr<LogFlushItem> pollItem;
  std::array<Slot, kSlots> slots;
  std::size_t activeSlot = 0;

 private:
  friend class Logger;
  void EmitReport(int level, const char* text);
  void WriteOutBatch(Slot& slot);
};

}  // namespace runtime
