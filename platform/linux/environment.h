// The machine's environment variables: what the host's environment has, and else what an installed machine would have.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform::environment {

// The value of a variable; names compare without case. Nothing when it is not set.
[[nodiscard]] std::optional<std::u16string> ValueOf(std::u16string_view name);

// The text with each %NAME% replaced that is set; others stay as they are.
[[nodiscard]] std::u16string Expand(std::u16string_view text);

// The user's own folder, without a backslash at its end.
[[nodiscard]] std::u16string ProfileFolder();

}  // namespace platform::environment
