// Prints an endpoint as "{875AC244-B80A-420E-90A2-9C69DFD8E728}".
#pragma once

#include <fmt/format.h>

#include "platform/types.h"

template <>
struct fmt::formatter<platform::GUID> {
  constexpr auto parse(format_parse_context& context) { return context.begin(); }
  template <class Context>
  auto format(const platform::GUID& id, Context& context) const {
    const auto& tail = id.Data4;
    return fmt::format_to(context.out(), "{{{:08X}-{:04X}-{:04X}-{:02X}{:02X}-{:02X}{:02X}{:02X}{:02X}{:02X}{:02X}}}",
                          id.Data1, id.Data2, id.Data3, tail[0], tail[1], tail[2], tail[3], tail[4], tail[5], tail[6],
                          tail[7]);
  }
};
