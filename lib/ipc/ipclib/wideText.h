// Prints wide text in a trace: as UTF-8, with U+FFFD for what is no text.
#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>

#include "platform/text.h"

namespace quill::ipc {

struct WideText {
  std::u16string_view units;
};

}  // namespace quill::ipc

template <>
struct fmt::formatter<quill::ipc::WideText> : fmt::formatter<fmt::string_view> {
  template <class Context>
  auto format(quill::ipc::WideText text, Context& context) const {
    using namespace platform;
    constexpr std::size_t kBytesOfAUnitAtMost = 3;
    std::string bytes(text.units.size() * kBytesOfAUnitAtMost, '\0');
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.units.data(), static_cast<int>(text.units.size()),
                                           bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr);
    bytes.resize(static_cast<std::size_t>(length));
    return fmt::formatter<fmt::string_view>::format({bytes.data(), bytes.size()}, context);
  }
};
