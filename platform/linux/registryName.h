// Names of keys and values: compared without case, the same on every host and in every locale.
#pragma once

#include <cstddef>
#include <string_view>

namespace platform::registry {

inline constexpr std::size_t kMaxKeyName = 256;      // Units.
inline constexpr std::size_t kMaxValueName = 16383;  // Units.
inline constexpr std::size_t kMaxDepth = 512;        // Names in a path.

// The capital of a unit, as the system's own table has it for the Latin, Greek, Cyrillic and Armenian letters; any
// other unit is its own.
[[nodiscard]] char16_t Upcase(char16_t unit) noexcept;
[[nodiscard]] bool SameName(std::u16string_view a, std::u16string_view b) noexcept;

// The order in which subkeys are listed.
struct NameLess {
  using is_transparent = void;
  [[nodiscard]] bool operator()(std::u16string_view a, std::u16string_view b) const noexcept;
};

// Takes the first name off a path, with the backslashes around it; empty at the path's end.
[[nodiscard]] std::u16string_view TakeName(std::u16string_view& path) noexcept;

}  // namespace platform::registry
