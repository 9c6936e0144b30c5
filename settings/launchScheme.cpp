#include "launcher/debugLog.h"
#include "platform/module.h"
#include "platform/raii.h"
#include "settings/defaultHandlers.h"
#include "settings/handlerKeys.h"
#include "settings/registryPaths.h"

namespace settings {
namespace {

using debugLog::LogDirect;
using platform::DWORD;
using platform::HKEY_CURRENT_USER;
using platform::UniqueKey;

constexpr platform::REGSAM kWriteAccess = platform::KEY_WRITE | platform::KEY_WOW64_64KEY;

// Stores a text with its NUL.
void SetText(const UniqueKey& key, const char16_t* name, const std::u16string& text) noexcept {
  platform::RegSetValueExW(key.get(), name, 0, platform::REG_SZ, text.c_str(),
                           static_cast<DWORD>((text.size() + 1) * sizeof(char16_t)));
}

// Unlike the handlers' commands, this one quotes its argument.
std::u16string LaunchCommand() {
  char16_t modulePath[1024] = {};
  platform::GetModuleFileNameW(nullptr, modulePath, static_cast<DWORD>(std::size(modulePath)));
  return std::u16string(u"\"").append(modulePath).append(u"\" \"%1\"");
}

void Register() {
  UniqueKey commandKey;
  if (platform::RegCreateKeyExW(HKEY_CURRENT_USER, CommandKeyPath(CustomLaunchScheme).c_str(), 0, nullptr,
                                platform::REG_OPTION_NON_VOLATILE, kWriteAccess, nullptr, commandKey.put(),
                                nullptr) != 0) {
    LogDirect("Failed to create key for custom protocol url launch\n");
    return;
  }
  SetText(commandKey, nullptr, LaunchCommand());
  UniqueKey schemeKey;
  if (platform::RegOpenKeyExW(HKEY_CURRENT_USER, SchemeKeyPath(CustomLaunchScheme).c_str(), 0, kWriteAccess,
                              schemeKey.put()) != 0) {
    LogDirect("Failed to open key for custom protocol\n");
    return;
  }
  SetText(schemeKey, u"URL Protocol", u"");
}

void Unregister() {
  if (platform::RegDeleteTreeW(HKEY_CURRENT_USER, SchemeKeyPath(CustomLaunchScheme).c_str()) != 0) {
    LogDirect("Failed to delete key for custom protocol url launch\n");
  }
}

}  // namespace

void SetCustomProtocolKey(bool create) { create ? Register() : Unregister(); }

}  // namespace settings
