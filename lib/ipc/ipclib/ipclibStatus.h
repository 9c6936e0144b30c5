// What the operations of the library return, and the names under which traces print it.
#pragma once

#include <fmt/format.h>

#include <concepts>
#include <cstdint>
#include <string_view>

namespace quill::ipc {

enum class LmIpcStatusCode : std::uint32_t {
  Success = 0,
  Unexpected = 1,
  NotImplemented = 2,
  OutOfMemory = 3,
  InvalidHandle = 4,
  InvalidParam = 5,
  BufferTooSmall = 6,
  AccessDenied = 7,
  InvalidState = 8,
  AlreadyExists = 9,
  NotFound = 10,
  ProtocolError = 11,
  StreamClosed = 12,
  TimedOut = 13,
  Abort = 14,
  FunctionNotFound = 15,
};

// The state of the library as a whole.
enum class LmIpclibState : std::uint32_t { Init = 0, Started = 1, Stopping = 2 };

// "unknown" for a number that is none of the codes. A time-out prints as "StreamClosed" too.
[[nodiscard]] std::string_view NameOf(LmIpcStatusCode status) noexcept;
[[nodiscard]] std::string_view NameOf(LmIpclibState state) noexcept;

// An enumeration of this library whose values have printed names.
template <class Enumeration>
concept Named = requires(Enumeration value) {
  { NameOf(value) } -> std::same_as<std::string_view>;
};

}  // namespace quill::ipc

// Prints the name, to the rules of a text.
template <quill::ipc::Named Enumeration>
struct fmt::formatter<Enumeration> : fmt::formatter<fmt::string_view> {
  template <class Context>
  auto format(Enumeration value, Context& context) const {
    const std::string_view name = NameOf(value);
    return fmt::formatter<fmt::string_view>::format({name.data(), name.size()}, context);
  }
};
