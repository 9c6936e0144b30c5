#include "runtime/logMessageCache.h"

#include <algorithm>
#include <mutex>
#include <thread>

#include "runtime/countLock.h"
#include "runtime/logCalls.h"
#include "runtime/logLine.h"
#include "runtime/loggerManager.h"
#include "runtime/pollThread.h"
#include "runtime/textFormat.h"

namespace runtime {
namespace {

constexpr std::string_view kSizeReport = "Log message cache size is %d";

}  // namespace

LogMessageBlock::LogMessageBlock(const RCPtr<LogMessageCache>& ofCache) : cache(ofCache) {
  for (std::size_t i = 0; i + 1 < kMessages; ++i) messages[i].nextFree = &messages[i + 1];
  freeHead = &messages.front();
  freeTail = &messages.back();
  freeCount = kMessages;
}

LogMessageBlock::~LogMessageBlock() {
  for (const LogMessage& message : messages) {
    while (message.IsOnItsWay()) std::this_thread::yield();
  }
  // Whoever has set the last count to 0 has let go of the lock of the counts by now.
  const std::lock_guard lock(theCountLock);
}

LogMessage* LogMessageBlock::Take() {
  LogMessage* const message = std::exchange(freeHead, freeHead->nextFree);
  if (freeHead == nullptr) freeTail = nullptr;
  --freeCount;
  message->nextFree = nullptr;
  message->block = this;
  return message;
}

bool LogMessageBlock::TakeBack(LogMessage& message) {
  const RCPtr<LogMessageCache> kept = cache;
  const std::lock_guard lock(kept->mutex);
  if (freeHead == nullptr) {
    freeHead = &message;
  } else {
    freeTail->nextFree = &message;
  }
  freeTail = &message;
  if (++freeCount >= kMessages) {
    idleTimer.Mark(TimerOperation::Start);
    if (listPosition == kept->blocks.end()) return false;
  }
  message.block.Reset();
  return true;
}

bool BlockReleaseTimer::Run(bool /*timedOut*/) {
  cache.OnBlockReleaseTimer();
  return true;
}

LogMessage* LogMessageCache::NewMessage() {
  const std::lock_guard lock(mutex);
  LogMessageBlock& block = BlockWithRoom();
  LogMessage* const message = block.Take();
  // Blocks with room stay in front.
  if (block.freeCount == 0) blocks.splice(blocks.end(), blocks, block.listPosition);
  return message;
}

LogMessageBlock& LogMessageCache::BlockWithRoom() {
  const auto hasRoom = [](const RCPtr<LogMessageBlock>& block) { return block->freeCount != 0; };
  const auto found = std::ranges::find_if(blocks, hasRoom);
  if (found != blocks.end()) return **found;
  if (!releaseTimer && !blocks.empty()) StartReleaseTimer();
  AddBlock();
  return *blocks.front();
}

void LogMessageCache::AddBlock() {
  blocks.push_front(new LogMessageBlock(this));
  blocks.front()->listPosition = blocks.begin();
  const int level = NextReportLevel();
  const platform::formatting::Argument size = platform::formatting::MakeArgument(Size());
  LogInternal("LogMessageCache::NewMessage()", level, kSizeReport, {&size, 1});
}

void LogMessageCache::StartReleaseTimer() {
  releaseTimer = new BlockReleaseTimer(*this);
  if (!LoggerManager::AddsPollItems()) return;
  GetLogPollThread()->AddItem(releaseTimer, {}, BlockReleaseTimer::kEveryMs);
}

std::int32_t LogMessageCache::Size() const noexcept {
  return static_cast<std::int32_t>(blocks.size() * LogMessageBlock::kMessages);
}

std::size_t LogMessageCache::Blocks() const {
  const std::lock_guard lock(mutex);
  return blocks.size();
}

void LogMessageCache::LogInternal(const char* functionName, int level, std::string_view format,
                                  std::span<const platform::formatting::Argument> arguments) noexcept {
  int length = pendingLength;
  if (!LogWanted(level) || length + 1 >= kPendingSize) return;
  length += FormatLinePrefix(&pendingText[static_cast<std::size_t>(length)], kPendingSize - length, level, functionName,
                             true);
  length += SafeVFormat(&pendingText[static_cast<std::size_t>(length)], kPendingSize - length, format, arguments);
  if (pendingText[static_cast<std::size_t>(length) - 1] != '\n') {
    if (length + 1 < kPendingSize) ++length;
    pendingText[static_cast<std::size_t>(length) - 1] = '\n';
    pendingText[static_cast<std::size_t>(length)] = '\0';
  }
  pendingLength = length;
}

void LogMessageCache::TakePendingText(LogMessage& message) {
  if (pendingLength <= 0) return;
  const std::lock_guard lock(mutex);
  if (pendingLength <= 0) return;
  message.Append(pendingText.data(), pendingLength, true);
  pendingLength = 0;
}

void LogMessageCache::OnBlockReleaseTimer() {
  std::unique_lock lock(std::as_const(mutex));
  if (blocks.size() < 2) return;
  const auto found = std::ranges::find_if(blocks, [](const RCPtr<LogMessageBlock>& block) {
    return block->Idle() && block->idleTimer.ElapsedMS() >= kIdleMs;
  });
  if (found == blocks.end()) return;
  const RCPtr<LogMessageBlock> released = *found;
  blocks.erase(found);
  released->listPosition = blocks.end();
  const int level = NextReportLevel();
  const std::int32_t size = Size();
  lock.unlock();
  LogIfWanted("LogMessageCache::OnBlockReleaseTimer()", level, "Log message cache size is %d", size);
}

void LogMessageCache::GiveUp() {
  std::list<RCPtr<LogMessageBlock>> givenUp;
  {
    const std::lock_guard lock(mutex);
    givenUp.swap(blocks);
    for (const RCPtr<LogMessageBlock>& block : givenUp) block->listPosition = blocks.end();
  }
  if (!releaseTimer) return;
  if (const RCPtr<TxPollThread> thread = releaseTimer->GetPollThread()) thread->RemoveItem(releaseTimer, true);
}

LogMessageManager::~LogMessageManager() { cache->GiveUp(); }

RCPtr<LogMessage> LogMessageManager::NewMessage(int level, const char* text, int length) {
  RCPtr<LogMessage> message = cache->NewMessage();
  cache->TakePendingText(*message);
  message->SetLevel(level);
  if (text != nullptr) message->Append(text, length, true);
  return message;
}

}  // namespace runtime
