#include "runtime/logMessage.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

#include "runtime/logMessageCache.h"

namespace runtime {

LogMessage::~LogMessage() { std::free(heapText); }

bool LogMessage::OnLastRelease() {
  Clear();
  return block->TakeBack(*this);
}

void LogMessage::operator delete(LogMessage* message, std::destroying_delete_t) {
  message->counted = false;
  message->block.Reset();
}

void LogMessage::Clear() noexcept {
  level = 0;
  length = 0;
  inlineText[0] = '\0';
  std::free(std::exchange(heapText, nullptr));
  heapCapacity = 0;
}

void LogMessage::EndWithNewline() noexcept {
  char* const data = Data();
  if (length > 0 && data[length - 1] == '\n') return;
  length = std::min(length, Capacity() - 2);
  data[length++] = '\n';
  data[length] = '\0';
}

void LogMessage::Append(const char* text, int textLength, bool newline) noexcept {
  const std::size_t whole = textLength < 0 ? std::strlen(text) : static_cast<std::size_t>(textLength);
  const auto needed = static_cast<int>(std::min<std::size_t>(whole, kLongestText));
  if (needed > Room(newline)) Reserve(needed + 1 + (newline ? 1 : 0), true);
  const int copied = std::max(0, std::min(needed, Room(newline)));
  std::memcpy(Data() + length, text, static_cast<std::size_t>(copied));
  length += copied;
  Data()[length] = '\0';
  if (newline) EndWithNewline();
}

void LogMessage::AppendFormat(std::string_view format, std::span<const platform::formatting::Argument> arguments,
                              bool newline) noexcept {
  const auto formatIntoRoom = [&] {
    const std::size_t room = static_cast<std::size_t>(std::max(0, Room(newline)));
    const auto whole = platform::formatting::FormatInto({Data() + length, room}, format, arguments);
    return static_cast<int>(std::min<std::size_t>(whole.value_or(0), kLongestText));
  };
  int whole = formatIntoRoom();
  if (whole > Room(newline) && Reserve(whole + 1 + (newline ? 1 : 0), true)) whole = formatIntoRoom();
  length += std::min(whole, std::max(0, Room(newline)));
  Data()[length] = '\0';
  if (newline) EndWithNewline();
}

char* LogMessage::GetBuffer(int* capacity, bool atEnd) noexcept {
  const int from = atEnd ? length : 0;
  if (capacity != nullptr) *capacity = Capacity() - from;
  return Data() + from;
}

bool LogMessage::SetLength(int newLength, bool relative) noexcept {
  const std::int64_t wanted = std::int64_t{newLength} + (relative ? length : 0);
  if (wanted < 0 || wanted >= Capacity()) return false;
  length = static_cast<std::int32_t>(wanted);
  Data()[length] = '\0';
  return true;
}

bool LogMessage::Reserve(int size, bool relative) noexcept {
  const std::int64_t wanted = std::int64_t{size} + (relative ? length : 0);
  if (wanted <= length + 1 || wanted <= Capacity()) return true;
  const std::int64_t capacity = heapText == nullptr ? wanted : wanted + kInlineSize;
  if (capacity > std::numeric_limits<std::int32_t>::max()) return false;
  auto* const grown = static_cast<char*>(std::realloc(heapText, static_cast<std::size_t>(capacity)));
  if (grown == nullptr) return false;
  if (heapText == nullptr) std::memcpy(grown, inlineText.data(), static_cast<std::size_t>(length) + 1);
  heapText = grown;
  heapCapacity = static_cast<std::int32_t>(capacity);
  return true;
}

}  // namespace runtime
