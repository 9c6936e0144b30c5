// The daily log: one text file per user and day, for whoever has to find out why a URL did not open.
//
//   AppendDebugLogLine  a finished text, written by the calling process
//   LogDirect           a narrow format, written by the calling process, whether logging is on or not
//   TraceViaHelper      a wide format, written by the resident helper, when the DebugLog setting is on
//
// Texts bring their own line end; one without it runs on into the next stamp. Logging never fails its caller: what
// cannot be written is lost, and so is everything while the folder "corvane-<user>" under the temporary folder does not
// exist. Threading: may be used from any thread and any number of processes at once; no lock is taken.
#pragma once

#include <array>
#include <atomic>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "platform/format.h"

namespace debugLog {

// The log's state in this process. Unguarded by design: threads that race store equal values.
struct State {
  std::array<std::atomic<char16_t>, platform::MAX_PATH> path{};  // Empty until the first text.
  std::atomic<int> day{-1};                                      // The day of the month that `path` is for.
  std::atomic<bool> enabled{false};
  std::atomic<bool> enabledUnread{true};  // The setting is read once in a process's life.
};
extern State state;

// Whether the DebugLog setting is on: of the user's root key if there is one, else of the machine's.
[[nodiscard]] bool IsDebugLogEnabled() noexcept;

void AppendDebugLogLine(std::u16string_view text) noexcept;

namespace detail {
void WriteNarrow(const std::optional<std::string>& text);
void SendToHelper(std::u16string text);
}  // namespace detail

// Narrow text is not decoded: each byte becomes one unit.
template <class... Arguments>
void LogDirect(platform::NarrowFormat<Arguments...> format, const Arguments&... arguments) noexcept try {
  detail::WriteNarrow(platform::FormatNarrow<Arguments...>(format, arguments...));
} catch (const std::bad_alloc&) {
  return;  // Lost, as all that cannot be written.
}

template <class... Arguments>
void TraceViaHelper(platform::WideFormat<Arguments...> format, const Arguments&... arguments) noexcept try {
  if (!IsDebugLogEnabled()) return;
  detail::SendToHelper(platform::Format<Arguments...>(format, arguments...));
} catch (const std::bad_alloc&) {
  return;
}

}  // namespace debugLog
