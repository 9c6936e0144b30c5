// Sets of the bits that an enumeration names.
#pragma once

#include <cstdint>

namespace quill::ipc {

template <class Bit>
class Flags {
 public:
  constexpr Flags() noexcept = default;
  constexpr Flags(Bit bit) noexcept : bits_(static_cast<std::uint32_t>(bit)) {}
  // Also bits that have no name.
  constexpr explicit Flags(std::uint32_t bits) noexcept : bits_(bits) {}

  [[nodiscard]] constexpr std::uint32_t bits() const noexcept { return bits_; }
  [[nodiscard]] constexpr bool has(Bit bit) const noexcept { return (bits_ & static_cast<std::uint32_t>(bit)) != 0; }

  friend constexpr Flags operator|(Flags left, Flags right) noexcept { return Flags(left.bits_ | right.bits_); }
  friend constexpr Flags operator&(Flags left, std::uint32_t mask) noexcept { return Flags(left.bits_ & mask); }
  friend constexpr bool operator==(Flags, Flags) noexcept = default;

 private:
  std::uint32_t bits_ = 0;
};

// The low half says how a stream is to be connected, and never leaves the process; the high half is the peers' own.
enum class LmIpclibStreamFlag : std::uint32_t {
  Shareable = 0x01,      // May share its link with other streams.
  Exclusive = 0x02,      // Must not.
  ByConnector = 0x08,    // Connects through a connector.
  SystemHandles = 0x80,  // Handles pass through the system's own transport.
  Authenticate = 0x100,  // The service must prove that it is the system's.
  Control = 0x8000,      // The control stream of a link; and a link that has been made by connect.
};

using StreamFlags = Flags<LmIpclibStreamFlag>;

}  // namespace quill::ipc
