#include "platform/linux/environment.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/linux/machine.h"
#include "platform/linux/registryName.h"
#include "platform/linux/userName.h"

namespace platform::environment {
namespace {

std::string HostName() {
  char name[256] = {};
  gethostname(name, sizeof name - 1);
  return name;
}

// What the host's environment has.
std::optional<std::u16string> HostValueOf(std::u16string_view name) {
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    const std::size_t equals = text.find('=');
    if (equals != text.npos && registry::SameName(machine::FromHost(text.substr(0, equals)), name)) {
      return machine::FromHost(text.substr(equals + 1));
    }
  }
  return std::nullopt;
}

// What a Windows machine sets for each of its users, with the folders where this machine has them.
std::optional<std::u16string> MachineValueOf(std::u16string_view name) {
  const auto is = [name](std::u16string_view variable) { return registry::SameName(name, variable); };
  if (is(u"COMPUTERNAME")) return machine::FromHost(HostName());
  if (is(u"USERNAME")) return machine::FromHost(UserName());
  if (is(u"USERPROFILE")) return ProfileFolder();
  if (is(u"APPDATA")) return ProfileFolder() + u"\\AppData\\Roaming";
  if (is(u"LOCALAPPDATA")) return ProfileFolder() + u"\\AppData\\Local";
  if (is(u"PROGRAMDATA")) return u"C:\\ProgramData";
  if (is(u"PROGRAMFILES")) return u"C:\\Program Files";
  if (is(u"WINDIR")) return u"C:\\windows";
  return std::nullopt;
}

}  // namespace

std::u16string ProfileFolder() { return u"C:\\users\\" + machine::FromHost(UserName()); }

std::optional<std::u16string> ValueOf(std::u16string_view name) {
  auto value = HostValueOf(name);
  return value ? std::move(value) : MachineValueOf(name);
}

std::u16string Expand(std::u16string_view text) {
  std::u16string result;
  while (!text.empty()) {
    const std::size_t open = std::min(text.find(u'%'), text.size());
    result += text.substr(0, open);
    text.remove_prefix(open);
    if (text.empty()) break;
    const std::size_t close = text.find(u'%', 1);
    const auto value = close == text.npos ? std::nullopt : ValueOf(text.substr(1, close - 1));
    if (value) {
      result += *value;
      text.remove_prefix(close + 1);
    } else {
      result += text.front();
      text.remove_prefix(1);
    }
  }
  return result;
}

}  // namespace platform::environment
