// The integer names and the handle type that every family of the platform layer shares.
//
// The layer declares the calls that the program uses, under the names and with the semantics that Windows gives them.
// It differs where a type can rule out a mistake: wide text is char16_t, every kind of handle is a type of its own, and
// a parameter that this program never uses takes nothing but its neutral value.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace platform {

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using HRESULT = std::int32_t;
using LSTATUS = std::int32_t;
using NTSTATUS = std::int32_t;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;
using REGSAM = std::uint32_t;

struct GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::array<std::uint8_t, 8> Data4;

  friend constexpr bool operator==(const GUID&, const GUID&) noexcept = default;
};
static_assert(sizeof(GUID) == 16);

// One handle value of the system. `Kind` only tells the types apart; the value has the size and the representation of
// a pointer, so that a struct of the system may hold one. A handle value owns nothing: see raii.h.
template <class Kind>
class HandleOf {
 public:
  constexpr HandleOf() noexcept = default;
  constexpr HandleOf(std::nullptr_t) noexcept {}
  constexpr explicit HandleOf(std::uintptr_t value) noexcept : value_(value) {}

  [[nodiscard]] constexpr std::uintptr_t value() const noexcept { return value_; }
  constexpr explicit operator bool() const noexcept { return value_ != 0; }
  friend constexpr bool operator==(HandleOf, HandleOf) noexcept = default;

 private:
  std::uintptr_t value_ = 0;
};

// A parameter for which this program only ever passes false. Any other value does not compile.
struct OnlyFalse {
  consteval OnlyFalse(bool value) {
    if (value) throw "only false is supported";
  }
};

// The same for true.
struct OnlyTrue {
  consteval OnlyTrue(bool value) {
    if (!value) throw "only true is supported";
  }
};

// The same for any one value.
template <auto Value>
struct Only {
  consteval Only(decltype(Value) value) {
    if (value != Value) throw "only one value is supported";
  }
};

inline constexpr std::size_t MAX_PATH = 260;
inline constexpr DWORD INFINITE = 0xFFFFFFFF;

}  // namespace platform
