#include "runtime/logger.h"

#include <array>
#include <mutex>
#include <new>
#include <string>

#include "runtime/loggerManager.h"
#include "runtime/textFormat.h"

namespace runtime {
namespace {

// Empty when there is no memory for it: the line goes without.
std::string ErrorTextOf(const LogCall& call) noexcept try { return call.ErrorText(); } catch (const std::bad_alloc&) {
  return {};
}

}  // namespace

void Logger::Send(const LogCall& call) noexcept {
  const std::lock_guard lock(GlobalLogMutex());
  if (gLogReentry.fetch_add(1) + 1 < 2) Write(call);
  --gLogReentry;
}

bool Logger::AddWriter(const std::string& name, const RCPtr<LogWriter>& writer) {
  const std::lock_guard lock(GlobalLogMutex());
  RCPtr<LogWriter>& place = writers[name];
  if (place) return false;
  place = writer;
  writer->logger = this;
  return true;
}

bool Logger::RemoveWriter(const std::string& name) {
  const std::lock_guard lock(GlobalLogMutex());
  const auto found = writers.find(name);
  if (found == writers.end() || !found->second) return false;
  found->second->logger.Reset();
  found->second.Reset();
  if (!writing) Sweep();
  return true;
}

void Logger::Sweep() {
  std::erase_if(writers, [](const auto& entry) { return !entry.second; });
}

void Logger::Write(const LogCall& call) {
  if (!Passes(call.level)) return;
  writing = true;
  const std::string errorText = ErrorTextOf(call);
  RCPtr<LogMessage> message;
  for (const auto& [name, place] : writers) {
    const RCPtr<LogWriter> writer = place;
    if (!writer || !writer->Enabled()) continue;
    try {
      if (!message) message = MessageOf(call, errorText, *writer);
      writer->Write(message);
    } catch (...) {
      // A line that a writer cannot take is lost for it alone.
    }
  }
  writing = false;
  Sweep();  // Writers may have removed each other.
}

// The first writer's prefix is the one that counts.
RCPtr<LogMessage> Logger::MessageOf(const LogCall& call, const std::string& errorText, LogWriter& first) {
  if (call.lastError) {
    std::array<char, 10240> text;
    const int capacity = static_cast<int>(text.size());
    int length = first.FormatPrefix(text.data(), capacity, call.level, call.functionName);
    length += SafeVFormat(text.data() + length, capacity - length, call.format, call.arguments);
    if (length > 0 && text[static_cast<std::size_t>(length) - 1] == '\n') --length;
    SafeFormat(text.data() + length, capacity - length, "; (%d) %s", *call.lastError, errorText);
    return NewMessage(call.level, text.data());
  }
  RCPtr<LogMessage> message = NewMessage(call.level, nullptr);
  int capacity = 0;
  char* const room = message->GetBuffer(&capacity, true);
  message->SetLength(first.FormatPrefix(room, capacity, call.level, call.functionName), true);
  message->AppendFormat(call.format, call.arguments, true);
  return message;
}

RCPtr<LogMessage> Logger::NewMessage(int messageLevel, const char* text) {
  return messageManager->NewMessage(messageLevel, text, -1);
}

}  // namespace runtime
