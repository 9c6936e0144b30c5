#include "platform/linux/environment.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "platform/linux/machine.h"
#include "platform/linux/userName.h"

namespace platform::environment {
namespace {

std::string HostName() {
  char name[256] = {};
  gethostname(name, sizeof name - 1);
  return name;
}

// What a Windows machine sets for each of its users, with the folders where this machine has them.
std::optional<std::u16string> MachineValueOf(std::string_view name) {
  if (name == "COMPUTERNAME") return machine::FromHost(HostName());
  if (name == "USERNAME") return machine::FromHost(UserName());
  if (name == "USERPROFILE") return ProfileFolder();
  if (name == "APPDATA") return ProfileFolder() + u"\\AppData\\Roaming";
  if (name == "LOCALAPPDATA") return ProfileFolder() + u"\\AppData\\Local";
  if (name == "PROGRAMDATA") return u"C:\\ProgramData";
  if (name == "PROGRAMFILES") return u"C:\\Program Files";
  if (name == "WINDIR") return u"C:\\windows";
  return std::nullopt;
}

}  // namespace

std::u16string ProfileFolder() { return u"C:\\users\\" + machine::FromHost(UserName()); }

std::optional<std::u16string> ValueOf(std::u16string_view name) {
  std::string hostName = machine::ToHost(name);
  std::ranges::transform(hostName, hostName.begin(), [](char unit) {
    return unit >= 'a' && unit <= 'z' ? static_cast<char>(unit - 'a' + 'A') : unit;
  });
  if (const char* const value = std::getenv(hostName.c_str())) return machine::FromHost(value);
  return MachineValueOf(hostName);
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
