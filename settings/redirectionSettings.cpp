#include "settings/redirectionSettings.h"

#include "launcher/debugLog.h"
#include "platform/raii.h"
#include "settings/registryAccess.h"
#include "settings/registryPaths.h"

namespace settings {
namespace {

using platform::DWORD;
using platform::HKEY;
using platform::NativeKeyHandle;
using platform::NTSTATUS;

NTSTATUS OpenUserElseMachine(const char16_t* userPath, const char16_t* machinePath, NativeKeyHandle* key,
                             bool* fromCurrentUser) noexcept {
  if (fromCurrentUser != nullptr) *fromCurrentUser = false;
  const NTSTATUS status = OpenKeyCurrentUser(userPath, kReadAccess, key);
  if (status != platform::STATUS_SUCCESS) return OpenKeyAbsolute(machinePath, kReadAccess, key);
  if (fromCurrentUser != nullptr) *fromCurrentUser = true;
  return status;
}

// The first root that opens: a user's root of either generation hides both of the machine's.
platform::UniqueKey OpenFirstRoot() noexcept {
  struct Place {
    HKEY hive;
    const char16_t* path;
  };
  constexpr Place kPlaces[] = {{platform::HKEY_CURRENT_USER, RootPath},
                               {platform::HKEY_CURRENT_USER, LegacyRootPath},
                               {platform::HKEY_LOCAL_MACHINE, RootPath},
                               {platform::HKEY_LOCAL_MACHINE, LegacyRootPath}};
  platform::UniqueKey key;
  for (const Place& place : kPlaces) {
    if (platform::RegOpenKeyExW(place.hive, place.path, 0, kReadAccess, key.put()) == 0) return key;
  }
  return {};
}

// Leaves `isAgent` alone when the text does not fit or is not there.
void ReadIsAgent(HKEY key, bool* isAgent) noexcept {
  char16_t origin[32] = {};
  DWORD size = sizeof origin;
  if (platform::RegGetValueW(key, nullptr, u"Origin", platform::RRF_RT_ANY, nullptr, origin, &size) != 0) return;
  const std::u16string_view text(origin, std::size(origin));
  *isAgent = text.substr(0, text.find(u'\0')).find(u"Agent") != text.npos;
}

}  // namespace

UrlOrigin GetUrlRedirectionOrigin() {
  platform::UniqueNativeKey key;
  if (OpenRootKey(key.put(), nullptr) != platform::STATUS_SUCCESS) return UrlOrigin::Unknown;
  std::u16string origin;
  ReadStringValue(key.get(), u"Origin", platform::REG_SZ, &origin);
  if (origin == u"Agent") return UrlOrigin::Agent;
  if (origin == u"Client") return UrlOrigin::Client;
  return UrlOrigin::Unknown;
}

bool IsURLRedirectionEnabled(bool* isAgent) {
  const platform::UniqueKey key = OpenFirstRoot();
  if (!key) {
    debugLog::LogDirect("%s: Failed to open url redirection root key.\n", "IsURLRedirectionEnabled");
    return false;
  }
  if (isAgent != nullptr) ReadIsAgent(key.get(), isAgent);
  DWORD enabled = 0;
  DWORD size = sizeof enabled;
  if (platform::RegGetValueW(key.get(), nullptr, u"Enabled", platform::RRF_RT_ANY, nullptr, &enabled, &size) != 0)
    return false;
  return enabled != 0;
}

NTSTATUS OpenRootKey(NativeKeyHandle* key, bool* fromCurrentUser) noexcept {
  return OpenUserElseMachine(RootPath, RootMachinePath, key, fromCurrentUser);
}

NTSTATUS OpenLegacyRootKey(NativeKeyHandle* key, bool* fromCurrentUser) noexcept {
  return OpenUserElseMachine(LegacyRootPath, LegacyRootMachinePath, key, fromCurrentUser);
}

EnabledState QueryEnabledState(bool fromCurrentUser, NativeKeyHandle key, const char16_t* path) noexcept {
  DWORD enabled = 0;
  if (!ReadNumber(key, u"Enabled", &enabled)) return EnabledState::Unreadable;
  if (!fromCurrentUser && enabled != 0) {
    // A user's value in the 32-bit view can turn off what the machine has turned on, and never the other way about.
    DWORD ofUser = 0;
    DWORD size = sizeof ofUser;
    if (QueryCurrentUserValue(path, u"Enabled", nullptr, &ofUser, &size, true) == platform::STATUS_SUCCESS)
      enabled = ofUser;
  }
  return enabled != 0 ? EnabledState::Enabled : EnabledState::Disabled;
}

bool IsSupportIpRules() {
  platform::UniqueNativeKey key;
  DWORD supported = 0;
  if (OpenRootKey(key.put(), nullptr) == platform::STATUS_SUCCESS &&
      !ReadNumber(key.get(), u"EnabledIPRules", &supported)) {
    NativeKeyHandle legacyKey;
    if (OpenLegacyRootKey(&legacyKey, nullptr) == platform::STATUS_SUCCESS) {
      // The legacy key takes the place of the current one, whose handle stays open, as settled.
      static_cast<void>(key.release());
      key.reset(legacyKey);
      static_cast<void>(ReadNumber(key.get(), u"EnabledIPRules", &supported));
    }
  }
  key.reset();
  debugLog::TraceViaHelper(u"%S: Support IP rules - %s.\n", "IsSupportIpRules", supported != 0 ? u"yes" : u"no");
  return supported != 0;
}

}  // namespace settings
