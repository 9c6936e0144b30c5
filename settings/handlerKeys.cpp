#include "settings/handlerKeys.h"

#include <array>

#include "platform/raii.h"
#include "settings/launchHelperPath.h"
#include "settings/registryAccess.h"

namespace settings {
namespace {
constexpr std::u16string_view ClassesRootPath = u"Software\\Classes\\";
constexpr std::u16string_view OpenCommandSuffix = u"\\shell\\open\\command";
constexpr platform::DWORD kCommandBytes = 16383;
}  // namespace

std::u16string SchemeKeyPath(std::u16string_view scheme) { return std::u16string(ClassesRootPath).append(scheme); }

std::u16string CommandKeyPath(std::u16string_view scheme) { return SchemeKeyPath(scheme).append(OpenCommandSuffix); }

std::optional<std::u16string> ReadCommand(platform::HKEY commandKey) {
  std::array<char16_t, kCommandBytes / 2 + 2> command{};
  platform::DWORD size = kCommandBytes;
  if (platform::RegGetValueW(commandKey, nullptr, nullptr, platform::RRF_RT_REG_SZ, nullptr, command.data(), &size) !=
      0) {
    return std::nullopt;
  }
  return command.data();
}

std::optional<std::u16string> ReadCommandOf(platform::HKEY hive, std::u16string_view scheme) {
  platform::UniqueKey key;
  if (platform::RegOpenKeyExW(hive, CommandKeyPath(scheme).c_str(), 0, kReadAccess, key.put()) != 0)
    return std::nullopt;
  return ReadCommand(key.get());
}

bool IsOwnCommand(std::u16string_view command) { return command.find(HelperExecutableName) != command.npos; }

}  // namespace settings
