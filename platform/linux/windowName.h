// What the name of a window's socket file says about the window:
//
//   m.corvane_class.4711.4712.1c2f0a1b2c3
//   | |             |    |    when it was made, in nanoseconds since the machine started
//   | |             |    thread
//   | |             process
//   | class, folded and made safe
//   m: receives messages only, t: top-level
//
// A name is never used a second time.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

struct WindowName {
  bool topLevel = false;
  std::string safeClass;
  pid_t process = 0;
  pid_t thread = 0;
  std::uint64_t made = 0;

  [[nodiscard]] std::string Text() const;
  // Nothing when the text is no name of a window.
  [[nodiscard]] static std::optional<WindowName> Parse(std::string_view text);
};

// A name for a window that the calling thread is about to make.
[[nodiscard]] WindowName NewWindowName(bool topLevel, std::u16string_view className);
// The class as it stands in names: at most 24 bytes, none of them a dot or a slash.
[[nodiscard]] std::string SafeClassName(std::u16string_view className);

}  // namespace platform
