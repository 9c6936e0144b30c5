// Where messages of the log come from: blocks of 100 that are made once. Blocks that have been idle for ten minutes go,
// but the last one stays.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <list>
#include <span>
#include <string_view>

#include "runtime/logMessage.h"
#include "runtime/mutex.h"
#include "runtime/pollItem.h"
#include "runtime/timer.h"

namespace runtime {

class LogMessageCache;

// One allocation. Everything is guarded by the cache's mutex.
class LogMessageBlock : public RCObject {
 public:
  static constexpr std::size_t kMessages = 100;

  explicit LogMessageBlock(const RCPtr<LogMessageCache>& ofCache);
  // Returns when no message is still on its way back on another thread.
  ~LogMessageBlock() override;

  [[nodiscard]] bool Idle() const noexcept { return freeCount >= kMessages; }
  // REQUIRES: the mutex, and a free message.
  [[nodiscard]] LogMessage* Take();
  // For a message that nobody refers to any longer. False when it was the last of a block that the cache has given up:
  // then the message is to go, and the block with it.
  [[nodiscard]] bool TakeBack(LogMessage& message);

 private:
  friend class LogMessageCache;
  using Position = std::list<RCPtr<LogMessageBlock>>::iterator;

  // The order of the fields is settled.
  std::array<LogMessage, kMessages> messages;
  LogMessage* freeHead = nullptr;
  LogMessage* freeTail = nullptr;
  std::uint32_t freeCount = 0;
  TxElapsedTimer idleTimer;
  RCPtr<LogMessageCache> cache;
  Position listPosition;  // The list's end when the cache has given it up.
};

// Looks for a block to give back, once a minute.
class BlockReleaseTimer : public TxPollItem {
 public:
  static constexpr std::int32_t kEveryMs = 60'000;

  explicit BlockReleaseTimer(LogMessageCache& ofCache)
      : TxPollItem("LogMessageCache::BlockReleaseTimer"), cache(ofCache) {}
  bool Run(bool timedOut) override;

 private:
  LogMessageCache& cache;
};

// Any thread may take and drop messages. The lock of the log (loggerManager.h) comes ahead of the cache's own; messages
// of the process's own cache are taken with it held.
class LogMessageCache : public RCObject {
 public:
  // With no reference to it yet. Throws std::bad_alloc.
  [[nodiscard]] LogMessage* NewMessage();
  // Adds a line to the text that goes ahead of the next message. REQUIRES: the mutex.
  void LogInternal(const char* functionName, int level, std::string_view format,
                   std::span<const platform::formatting::Argument> arguments) noexcept;
  // Moves that text into a message.
  void TakePendingText(LogMessage& message);

  void OnBlockReleaseTimer();
  // Gives up all blocks: those whose messages are all back go at once, the others with their last message.
  void GiveUp();

  [[nodiscard]] std::size_t Blocks() const;

 private:
  friend class LogMessageBlock;
  static constexpr int kPendingSize = 1024;
  static constexpr std::int64_t kIdleMs = 600'000;

  [[nodiscard]] LogMessageBlock& BlockWithRoom();
  void AddBlock();
  void StartReleaseTimer();
  // The level of the next report of the cache's size, and the size in messages.
  [[nodiscard]] int NextReportLevel() noexcept { return ++sizeReports == 1 ? 6 : 5; }
  [[nodiscard]] std::int32_t Size() const noexcept;

  // The order of the fields is settled.
  TxMutex mutex;
  std::list<RCPtr<LogMessageBlock>> blocks;  // Those with free messages first.
  RCPtr<BlockReleaseTimer> releaseTimer;     // Comes with the second block.
  std::atomic<std::int32_t> pendingLength = 0;
  std::array<char, kPendingSize> pendingText{};
  std::uint32_t sizeReports = 0;
};

// The cache as the loggers see it.
class LogMessageManager : public RCObject {
 public:
  ~LogMessageManager() override;

  // `text` may be null; a length of -1 is up to the NUL. A text that is given gets a newline at its end. Throws
  // std::bad_alloc.
  [[nodiscard]] RCPtr<LogMessage> NewMessage(int level, const char* text, int length);
  [[nodiscard]] LogMessageCache& Cache() const noexcept { return *cache; }

 private:
  const RCPtr<LogMessageCache> cache{new LogMessageCache};
};

}  // namespace runtime
