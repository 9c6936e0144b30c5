// A writer of the log that keeps what it is told, and a logger of a test's own.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "runtime/logLine.h"
#include "runtime/logger.h"
#include "runtime/loggerManager.h"
#include "runtime/textFormat.h"

namespace runtimeTests {

class RecordingWriter : public runtime::LogWriter {
 public:
  explicit RecordingWriter(std::string linePrefix = "") : prefix(std::move(linePrefix)) { open = true; }

  bool ShouldDrop(const runtime::RCPtr<runtime::LogMessage>& message) override {
    if (onQuestion) onQuestion();
    return !unwanted.empty() && message->Text().find(unwanted) != std::string_view::npos;
  }
  void Emit(const runtime::RCPtr<runtime::LogMessage>& message) override {
    levels.push_back(message->Level());
    messages.push_back(message.Get());
    texts.emplace_back(message->Text());
    if (onEmit) onEmit();
  }
  void BeginBatch() override { texts.emplace_back("("); }
  void EndBatch() override { texts.emplace_back(")"); }
  int FormatPrefix(char* buffer, int capacity, int level, const char* functionName) override {
    ++prefixes;
    if (prefix == "full") return runtime::FormatLinePrefix(buffer, capacity, level, functionName, true);
    return runtime::SafeFormat(buffer, capacity, "%s", prefix);
  }

  // What a writer sets up for itself.
  using LogWriter::activeSlot;
  using LogWriter::asynchronous;
  using LogWriter::batchMode;
  using LogWriter::batchTimer;
  using LogWriter::flooded;
  using LogWriter::Flush;
  using LogWriter::flushIntervalMs;
  using LogWriter::open;
  using LogWriter::pollItem;
  using LogWriter::slots;
  using LogWriter::threshold;

  // Without the marks of the batches.
  [[nodiscard]] std::vector<std::string> Lines() const {
    std::vector<std::string> lines = texts;
    std::erase_if(lines, [](const std::string& text) { return text == "(" || text == ")"; });
    return lines;
  }

  const std::string prefix;
  std::string unwanted;
  std::function<void()> onQuestion;
  std::function<void()> onEmit;
  std::vector<std::string> texts;  // "(" and ")" stand for the begin and end of a batch.
  std::vector<int> levels;
  std::vector<const runtime::LogMessage*> messages;
  int prefixes = 0;
};

struct OwnLogger {
  // Nothing of it goes to the log's poll thread, which would keep it for a moment longer.
  OwnLogger() { runtime::LoggerManager::Instance().HoldPollItems(); }
  OwnLogger(const OwnLogger&) = delete;
  OwnLogger& operator=(const OwnLogger&) = delete;

  runtime::RCPtr<runtime::LogMessageManager> manager{new runtime::LogMessageManager};
  runtime::RCPtr<runtime::Logger> logger{new runtime::Logger(manager)};

  runtime::RCPtr<RecordingWriter> Add(const std::string& name, const std::string& prefix = "") {
    runtime::RCPtr<RecordingWriter> writer(new RecordingWriter(prefix));
    logger->AddWriter(name, writer);
    added.push_back(name);
    return writer;
  }
  // A writer and its logger keep each other.
  ~OwnLogger() {
    for (const std::string& name : added) logger->RemoveWriter(name);
    runtime::LoggerManager::Instance().AllowPollItems();
  }

 private:
  std::vector<std::string> added;
};

}  // namespace runtimeTests
