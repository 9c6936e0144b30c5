// What the RPC runtime is told of the interface by which a client sets up a link: the parameters of its two procedures,
// written down once, and the tables that both transfer syntaxes make of them.
#pragma once

#include <windows.h>

#include <rpc.h>
#include <rpcndr.h>

#include <ndr64types.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace platform::linkTables {

enum class Type : std::uint8_t {
  Int32,
  Int64,
  NameLength,  // An Int32 in the range of a sized name's length.
  SizedName,   // A wide string whose room the NameLength tells.
  Name,        // A wide string.
  Event,       // Handles that pass through the call.
  Section,
  Process,
  Pipe,
  Status,
};

struct Parameter {
  bool isOut;
  Type type;
};

// Behind the binding, which is the first argument; the result is the last.
inline constexpr std::size_t kParameters = 28;
using Procedure = std::array<Parameter, kParameters>;

inline constexpr std::size_t kByValues = 0;
inline constexpr std::size_t kByHandles = 1;
extern const std::array<Procedure, 2> procedures;

inline constexpr std::int32_t kLeastNameLength = 1;
inline constexpr std::int32_t kMostNameLength = 0x20000;

// What NdrClientCall3 takes.
extern const MIDL_STUBLESS_PROXY_INFO proxyInfo;

}  // namespace platform::linkTables
