#include "settings/defaultHandlers.h"

#include "launcher/debugLog.h"
#include "platform/raii.h"
#include "settings/handlerKeys.h"
#include "settings/launchHelperPath.h"
#include "settings/redirectionSettings.h"
#include "settings/registryAccess.h"
#include "settings/registryPaths.h"

namespace settings {
namespace {

using debugLog::LogDirect;
using platform::DWORD;
using platform::HKEY;
using platform::HKEY_CURRENT_USER;
using platform::HKEY_LOCAL_MACHINE;
using platform::UniqueKey;

constexpr platform::REGSAM kCreateAccess = platform::KEY_READ | platform::KEY_WRITE | platform::KEY_WOW64_64KEY;
constexpr DWORD kNameUnits = 255;

// 0 as well when the key cannot be asked.
DWORD SubKeyCount(HKEY key) noexcept {
  DWORD count = 0;
  const platform::LSTATUS status = platform::RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &count, nullptr, nullptr,
                                                              nullptr, nullptr, nullptr, nullptr, nullptr);
  return status == 0 ? count : 0;
}

// Calls `take` with the name of each subkey; a name that cannot be had is logged, and the next one follows.
template <class Take>
void ForEachSubKey(HKEY key, DWORD count, const char* operation, Take take) {
  for (DWORD index = 0; index < count; ++index) {
    char16_t name[kNameUnits];
    DWORD length = kNameUnits;
    if (platform::RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr) != 0) {
      LogDirect("%s: RegEnumKeyEx failed.\n", operation);
      continue;
    }
    take(std::u16string(name, length));
  }
}

// An empty command of the machine claims nothing.
bool IsUnclaimed(const std::u16string& scheme) {
  const auto ofMachine = ReadCommandOf(HKEY_LOCAL_MACHINE, scheme);
  if (ofMachine && !ofMachine->empty()) return false;
  const auto ofUser = ReadCommandOf(HKEY_CURRENT_USER, scheme);
  return !ofUser || IsOwnCommand(*ofUser);
}

// Stores a text without its NUL: readers have always found these values so.
platform::LSTATUS SetUnterminated(HKEY key, const std::u16string& text) noexcept {
  return platform::RegSetValueExW(key, nullptr, 0, platform::REG_SZ, text.data(),
                                  static_cast<DWORD>(text.size() * sizeof(char16_t)));
}

void RegisterScheme(const std::u16string& scheme, const std::u16string& command) {
  if (ReadCommandOf(HKEY_CURRENT_USER, scheme)) return;  // Of whichever program: it is not overwritten.
  UniqueKey key;
  if (platform::RegCreateKeyExW(HKEY_CURRENT_USER, SchemeKeyPath(scheme).c_str(), 0, nullptr,
                                platform::REG_OPTION_NON_VOLATILE, kCreateAccess, nullptr, key.put(), nullptr) != 0) {
    LogDirect("%s: RegCreateKeyEx failed.\n", "SetListOfDefaultHandlers");
    return;
  }
  const std::u16string description = std::u16string(u"URL:").append(scheme).append(u" Protocol");
  if (SetUnterminated(key.get(), description) != 0 ||
      platform::RegSetValueExW(key.get(), u"URL Protocol", 0, platform::REG_SZ, u"", sizeof(char16_t)) != 0) {
    static_cast<void>(key.release());  // Half done, without a message, and the key stays open, as settled.
    return;
  }
  if (platform::RegCreateKeyExW(HKEY_CURRENT_USER, CommandKeyPath(scheme).c_str(), 0, nullptr,
                                platform::REG_OPTION_NON_VOLATILE, kCreateAccess, nullptr, key.put(), nullptr) != 0) {
    LogDirect("%s: RegCreateKeyEx-2 failed.\n", "SetListOfDefaultHandlers");
    return;
  }
  SetUnterminated(key.get(), command);
}

void RemoveScheme(const std::u16string& scheme) {
  UniqueKey key;
  if (platform::RegOpenKeyExW(HKEY_CURRENT_USER, CommandKeyPath(scheme).c_str(), 0, kReadAccess, key.put()) != 0) {
    LogDirect("%s: RegOpenKeyEx failed.\n", "RemoveListOfDefaultHandlers");
    return;
  }
  const auto command = ReadCommand(key.get());
  if (!command || !IsOwnCommand(*command)) return;
  key.reset();
  if (platform::RegDeleteTreeW(HKEY_CURRENT_USER, SchemeKeyPath(scheme).c_str()) != 0) {
    // The thread's last error, which the registry calls do not set: kept so.
    const DWORD error = platform::GetLastError();
    LogDirect("%s: RegDeleteTree failed. Err = %u\n", "RemoveListOfDefaultHandlers", error);
  }
}

}  // namespace

bool SyncDefaultHandlers() {
  if (!IsURLRedirectionEnabled(nullptr)) return false;
  HandlerList registered;
  HandlerList supported;
  EnumerateDefaultHandlers(registered);
  GetSupportedProtocols(supported, 1);
  if (registered == supported) return true;
  RemoveListOfDefaultHandlers(registered);
  SetListOfDefaultHandlers(supported);
  return true;
}

bool RemoveAllDefaultHandlers() {
  HandlerList registered;
  return EnumerateDefaultHandlers(registered) && RemoveListOfDefaultHandlers(registered);
}

bool EnumerateDefaultHandlers(HandlerList& list) {
  constexpr const char16_t* kClasses = u"SOFTWARE\\Classes";
  UniqueKey classes;
  if (platform::RegOpenKeyExW(HKEY_CURRENT_USER, kClasses, 0, kReadAccess, classes.put()) != 0) return false;
  const DWORD count = SubKeyCount(classes.get());
  if (count == 0) {
    LogDirect("%s: RegQueryInfoKey failed for key '%S'.\n", "EnumerateDefaultHandlers", kClasses);
    return true;
  }
  ForEachSubKey(classes.get(), count, "EnumerateDefaultHandlers", [&list](std::u16string name) {
    if (name.starts_with(u'.')) return;  // A file type.
    const auto command = ReadCommandOf(HKEY_CURRENT_USER, name);
    if (command && IsOwnCommand(*command)) list.push_back(std::move(name));
  });
  return true;
}

bool GetSupportedProtocols(HandlerList& list, int filter) {
  UniqueKey root;
  if (platform::RegOpenKeyExW(HKEY_CURRENT_USER, RootPath, 0, kReadAccess, root.put()) != 0 &&
      platform::RegOpenKeyExW(HKEY_LOCAL_MACHINE, RootPath, 0, kReadAccess, root.put()) != 0) {
    LogDirect("%s: Failed to open url redirection root key.\n", "GetSupportedProtocols");
    return false;
  }
  const DWORD count = SubKeyCount(root.get());
  if (count == 0) {
    LogDirect("%s: RegQueryInfoKey failed.\n", "GetSupportedProtocols");
    return true;
  }
  ForEachSubKey(root.get(), count, "GetSupportedProtocols", [&list, filter](std::u16string name) {
    if (filter != 1 || IsUnclaimed(name)) list.push_back(std::move(name));
  });
  return true;
}

bool RemoveListOfDefaultHandlers(const HandlerList& list) {
  for (const std::u16string& scheme : list) RemoveScheme(scheme);
  return true;
}

bool SetListOfDefaultHandlers(const HandlerList& list) {
  std::u16string path;
  GetLaunchHelperPath(path);
  const std::u16string command = std::u16string(u"\"").append(path).append(u"\" %1");
  for (const std::u16string& scheme : list) RegisterScheme(scheme, command);
  return true;
}

}  // namespace settings
