#include "browser/firefoxStorage.h"

#include "launcher/debugLog.h"
#include "platform/raii.h"
#include "settings/browserType.h"

namespace browser {
namespace {

using debugLog::LogDirect;
using platform::HKEY_CURRENT_USER;

// Its place and name are the browser's.
std::u16string KeyPath() {
  return std::u16string(u"Software\\Mozilla\\ManagedStorage\\").append(settings::FirefoxExtensionId);
}

}  // namespace

void SetFirefoxManagedStorageKey(bool create, const std::u16string& file) {
  if (!create) {
    if (platform::RegDeleteTreeW(HKEY_CURRENT_USER, KeyPath().c_str()) != 0) {
      LogDirect("Failed to delete key for Firefox Url extension path.\n");
    }
    return;
  }
  platform::UniqueKey key;
  if (platform::RegCreateKeyExW(HKEY_CURRENT_USER, KeyPath().c_str(), 0, nullptr, platform::REG_OPTION_NON_VOLATILE,
                                platform::KEY_WRITE | platform::KEY_WOW64_64KEY, nullptr, key.put(), nullptr) != 0) {
    LogDirect("Failed to create key for Firefox Url extension path.\n");
    return;
  }
  platform::RegSetValueExW(key.get(), nullptr, 0, platform::REG_SZ, file.c_str(),
                           static_cast<platform::DWORD>((file.size() + 1) * sizeof(char16_t)));
}

}  // namespace browser
