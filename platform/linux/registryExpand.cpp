#include "platform/linux/registryExpand.h"

#include <unistd.h>

#include <optional>

#include "platform/linux/machine.h"
#include "platform/linux/registryName.h"

namespace platform::registry {
namespace {

std::optional<std::u16string> VariableOf(std::u16string_view name) {
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    const std::size_t equals = text.find('=');
    if (equals != std::string_view::npos && SameName(machine::FromHost(text.substr(0, equals)), name)) {
      return machine::FromHost(text.substr(equals + 1));
    }
  }
  return std::nullopt;
}

}  // namespace

std::u16string Expanded(std::u16string_view text) {
  std::u16string expanded;
  while (!text.empty()) {
    const std::size_t percent = text.find(u'%');
    expanded += text.substr(0, percent);
    if (percent == std::u16string_view::npos) break;
    text.remove_prefix(percent);
    const std::size_t end = text.find(u'%', 1);
    if (end == std::u16string_view::npos) return expanded.append(text);
    if (const auto value = VariableOf(text.substr(1, end - 1))) {
      expanded += *value;
      text.remove_prefix(end + 1);
    } else {
      expanded += text.substr(0, end);
      text.remove_prefix(end);
    }
  }
  return expanded;
}

}  // namespace platform::registry
