// The traces of the library: five channels, which by default go nowhere and then cost next to nothing.
//
//   Trace(TraceChannel::Msg, "- srcStreamId: {:#x}, msgId: {}", source, id);
//
// A format knows two conversions: "{}" for whatever has a printed form, "{:#x}" for integers. A conversion or argument
// that does not fit does not compile.
//
// To watch the library at work, attach a sink (lineSink.h is one that collects):
//
//   ipcTrace->attach(std::make_shared<log::LineSink>());
#pragma once

#include <fmt/core.h>

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <type_traits>

#include "lib/ipc/ipclib/traceLogger.h"

namespace quill::ipc {

enum class TraceChannel : std::uint8_t { Lib, Listener, Link, Stream, Msg };
inline constexpr std::size_t kTraceChannels = 5;

// The level of every trace of the library.
inline constexpr std::int32_t kTraceLevel = 6;

// Threading: every member may be called from any thread without a lock.
class LmIpcTrace {
 public:
  LmIpcTrace();

  [[nodiscard]] std::shared_ptr<log::Logger> lib() const { return loggers_[0]; }
  [[nodiscard]] std::shared_ptr<log::Logger> listener() const { return loggers_[1]; }
  [[nodiscard]] std::shared_ptr<log::Logger> link() const { return loggers_[2]; }
  [[nodiscard]] std::shared_ptr<log::Logger> stream() const { return loggers_[3]; }
  [[nodiscard]] std::shared_ptr<log::Logger> msg() const { return loggers_[4]; }

  // Adds the sink to every channel, and raises each to the level of the traces.
  void attach(const std::shared_ptr<log::Sink>& sink) const;
  // From then on nothing is formatted until a sink is attached again. The levels stay.
  void removeAllSinks() const;

 private:
  std::array<std::shared_ptr<log::Logger>, kTraceChannels> loggers_;
};

// The one of this process, made before main begins.
extern const std::shared_ptr<LmIpcTrace> ipcTrace;

namespace tracing {

// The loggers of ipcTrace, within reach of a trace that must cost nothing. They outlive everything that traces.
extern const std::array<log::Logger*, kTraceChannels> loggers;

// Where a trace stands, as the compiler tells it.
struct Place {
  const char* file;
  unsigned line;
  const char* function;
};

void Write(log::Logger& logger, const Place& place, fmt::string_view format, fmt::format_args arguments) noexcept;

// Not defined: reaching one of these is what the compiler reports for a format that does not fit.
void unknownConversion();
void moreConversionsThanArguments();
void moreArgumentsThanConversions();
void onlyIntegersPrintInHexadecimal();

consteval void CheckFormat(std::string_view format, std::initializer_list<bool> isInteger) {
  const auto* argument = isInteger.begin();
  for (std::size_t at = 0; at < format.size(); ++at) {
    const std::string_view rest = format.substr(at);
    if (rest.starts_with("{{") || rest.starts_with("}}")) {
      ++at;
    } else if (rest.starts_with("{}") || rest.starts_with("{:#x}")) {
      if (argument == isInteger.end()) moreConversionsThanArguments();
      if (rest[1] == ':' && !*argument) onlyIntegersPrintInHexadecimal();
      ++argument;
      at += rest.find('}');
    } else if (rest[0] == '{' || rest[0] == '}') {
      unknownConversion();
    }
  }
  if (argument != isInteger.end()) moreArgumentsThanConversions();
}

}  // namespace tracing

// A format that fits its arguments, and the place where it stands.
template <class... Arguments>
struct TraceFormat {
  static_assert((fmt::is_formattable<Arguments>::value && ...), "an argument that has no printed form");

  consteval TraceFormat(const char* format, const char* inFile = __builtin_FILE(), unsigned atLine = __builtin_LINE(),
                        const char* inFunction = __builtin_FUNCTION())
      : text(format), file(inFile), line(atLine), function(inFunction) {
    tracing::CheckFormat(format, {(std::integral<Arguments> && !std::same_as<Arguments, bool>)...});
  }

  const char* text;
  const char* file;
  unsigned line;
  const char* function;
};

namespace tracing {

// Out of line and with plain parameters, so that a silent trace leaves nothing in the function that has it but the look
// at the level.
template <class... Arguments>
[[gnu::noinline, gnu::cold]] void WriteArguments(log::Logger& logger, const char* file, unsigned line,
                                                 const char* function, const char* format,
                                                 const Arguments&... arguments) noexcept {
  Write(logger, {file, line, function}, format, fmt::make_format_args(arguments...));
}

}  // namespace tracing

template <class... Arguments>
inline void Trace(TraceChannel channel, TraceFormat<std::type_identity_t<Arguments>...> format,
                  const Arguments&... arguments) noexcept {
  log::Logger& logger = *tracing::loggers[static_cast<std::size_t>(channel)];
  if (logger.effectiveLevel() < kTraceLevel) [[likely]]
    return;
  tracing::WriteArguments<Arguments...>(logger, format.file, format.line, format.function, format.text, arguments...);
}

}  // namespace quill::ipc
