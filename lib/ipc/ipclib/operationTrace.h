// The two traces of an operation: one as it begins, one as it ends, with the status that it ends with.
#pragma once

#include <cstddef>
#include <optional>

#include "lib/ipc/ipclib/ipclibStatus.h"
#include "lib/ipc/ipclib/ipclibTrace.h"

namespace quill::ipc {

// A trace on behalf of the operation that stands at `place`.
template <class... Arguments>
void traceFrom(const tracing::Place& place, TraceChannel channel, const char* format,
               const Arguments&... arguments) noexcept {
  log::Logger& logger = *tracing::loggers[static_cast<std::size_t>(channel)];
  if (logger.effectiveLevel() < kTraceLevel) [[likely]]
    return;
  tracing::WriteArguments<Arguments...>(logger, place.file, place.line, place.function, format, arguments...);
}

// `Subject` is what the operation belongs to; it says of itself what stands in each trace:
//
//   static constexpr const char *kTraceBegin, *kTraceEnd, *kTraceEndStatus;
//   auto traceState() const; std::uint64_t traceId() const;    what the formats print first
template <class Subject>
class OperationTrace {
 public:
  OperationTrace(TraceChannel channel, const Subject& subject, const char* file = __builtin_FILE(),
                 unsigned line = __builtin_LINE(), const char* function = __builtin_FUNCTION()) noexcept
      : subject_(subject), channel_(channel), place_{file, line, function} {
    write(Subject::kTraceBegin);
  }
  // For an operation whose first trace says more, and has been written.
  struct Begun {};
  OperationTrace(Begun, TraceChannel channel, const Subject& subject, const char* file = __builtin_FILE(),
                 unsigned line = __builtin_LINE(), const char* function = __builtin_FUNCTION()) noexcept
      : subject_(subject), channel_(channel), place_{file, line, function} {}
  OperationTrace(const OperationTrace&) = delete;
  OperationTrace& operator=(const OperationTrace&) = delete;
  ~OperationTrace() { writeEnd(); }

  // The status that the operation ends with.
  LmIpcStatusCode ends(LmIpcStatusCode status) noexcept {
    status_ = status;
    return status;
  }
  // The same for a failure that is told on another channel.
  LmIpcStatusCode endsOn(TraceChannel channel, LmIpcStatusCode status) noexcept {
    channel_ = channel;
    return ends(status);
  }

 private:
  void write(const char* format) const noexcept {
    traceFrom(place_, channel_, format, subject_.traceState(), subject_.traceId());
  }
  void writeEnd() const noexcept {
    if (status_) {
      traceFrom(place_, channel_, Subject::kTraceEndStatus, subject_.traceState(), subject_.traceId(), *status_);
    } else {
      write(Subject::kTraceEnd);
    }
  }

  const Subject& subject_;
  TraceChannel channel_;
  tracing::Place place_;
  std::optional<LmIpcStatusCode> status_;
};

}  // namespace quill::ipc
