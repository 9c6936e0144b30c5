// A message of the log: one text, formatted once, that all writers share. Messages come from a cache, and go back to it
// with their last reference.
#pragma once

#include <array>
#include <cstdint>
#include <new>
#include <span>
#include <string_view>

#include "platform/format.h"
#include "runtime/rcPtr.h"

namespace runtime {

class LogMessageBlock;

// The text always ends with a NUL, which `Length` does not count. Text that has no room, inline or for want of memory,
// is cut. Not for several threads at a time while it is written.
class LogMessage : public RCObject {
 public:
  LogMessage() = default;
  ~LogMessage() override;
  bool OnLastRelease() override;
  // A message lies in its block: the last one of a block that its cache has given up takes the block with it.
  static void operator delete(LogMessage* message, std::destroying_delete_t);

  [[nodiscard]] std::string_view Text() const noexcept { return {Data(), static_cast<std::size_t>(length)}; }
  [[nodiscard]] int Length() const noexcept { return length; }
  [[nodiscard]] int Level() const noexcept { return level; }
  void SetLevel(int newLevel) noexcept { level = newLevel; }

  // -1 stands for the length up to the NUL. With `newline` the text ends in one from here on, unless it does already.
  void Append(const char* text, int textLength, bool newline) noexcept;
  // A format that cannot be followed leaves the text as it was.
  void AppendFormat(std::string_view format, std::span<const platform::formatting::Argument> arguments,
                    bool newline) noexcept;
  template <class... Arguments>
  void AppendFormat(platform::NarrowFormat<Arguments...> format, const Arguments&... arguments) noexcept {
    const platform::formatting::Argument list[] = {platform::formatting::MakeArgument(arguments)..., {}};
    AppendFormat(format.text(), std::span(list).first(sizeof...(Arguments)), false);
  }

  // The buffer, from its beginning or from the text's end on, and how many bytes it has from there. SetLength tells
  // what was written there.
  char* GetBuffer(int* capacity, bool atEnd) noexcept;
  // False when the length would be negative or has no room. `relative`: to the present length.
  bool SetLength(int newLength, bool relative) noexcept;
  // Room for so many bytes, the NUL included; `relative`: beyond the text. False, with everything as it was, when there
  // is no memory.
  bool Reserve(int size, bool relative) noexcept;

 private:
  friend class LogMessageBlock;
  static constexpr int kInlineSize = 256;
  static constexpr int kLongestText = 0x3FFFFFFF;

  // Nobody refers to it any longer, but a thread is still about to say so in its count.
  [[nodiscard]] bool IsOnItsWay() const noexcept { return counted && Count() != 0; }
  [[nodiscard]] const char* Data() const noexcept { return heapText != nullptr ? heapText : inlineText.data(); }
  [[nodiscard]] char* Data() noexcept { return heapText != nullptr ? heapText : inlineText.data(); }
  [[nodiscard]] int Capacity() const noexcept { return heapText != nullptr ? heapCapacity : kInlineSize; }
  [[nodiscard]] int Room(bool newline) const noexcept { return Capacity() - length - 1 - (newline ? 1 : 0); }
  // In the place of the last byte when there is no room.
  void EndWithNewline() noexcept;
  void Clear() noexcept;

  // The order of the fields is settled.
  std::array<char, kInlineSize> inlineText{};
  std::int32_t length = 0;
  std::int32_t level = 0;
  char* heapText = nullptr;
  std::int32_t heapCapacity = 0;
  RCPtr<LogMessageBlock> block;  // While the message is out.
  LogMessage* nextFree = nullptr;
};

}  // namespace runtime
