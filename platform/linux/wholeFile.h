// Files of the host that are read or written in one piece.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

// The file's bytes from where it stands, which are about as many as `expected`. Nothing, with errno set, on failure.
[[nodiscard]] std::optional<std::string> ReadAll(int file, std::size_t expected);
// False, with errno set, when not all could be written.
[[nodiscard]] bool WriteAll(int file, std::string_view bytes) noexcept;

}  // namespace platform
