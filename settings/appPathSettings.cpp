#include "launcher/debugLog.h"
#include "platform/raii.h"
#include "settings/redirectionSettings.h"
#include "settings/registryAccess.h"
#include "settings/registryPaths.h"

namespace settings {
namespace {

using debugLog::TraceViaHelper;
using platform::UniqueNativeKey;

constexpr const char* kAppPathOperation = "CheckAppPathSettings";

// The legacy root counts only where the current one exists and holds no `Enabled` value.
bool IsEnabledByLegacyRoot() {
  UniqueNativeKey key;
  bool fromCurrentUser = false;
  if (OpenLegacyRootKey(key.put(), &fromCurrentUser) != platform::STATUS_SUCCESS) {
    TraceViaHelper(u"%S: Failed to open legacy Url Redirection root key.\n", kAppPathOperation);
    return false;
  }
  const EnabledState state = QueryEnabledState(fromCurrentUser, key.get(), LegacyRootPath);
  key.reset();  // No key is held while the helper may be asked to write.
  if (state != EnabledState::Enabled) return false;
  TraceViaHelper(u"%S: Legacy Url Redirection is enabled.\n", kAppPathOperation);
  return true;
}

bool IsEnabledForAppPaths() {
  UniqueNativeKey key;
  bool fromCurrentUser = false;
  if (OpenRootKey(key.put(), &fromCurrentUser) != platform::STATUS_SUCCESS) {
    TraceViaHelper(u"%S: Failed to open Url Redirection root key.\n", kAppPathOperation);
    return false;
  }
  switch (QueryEnabledState(fromCurrentUser, key.get(), RootPath)) {
    case EnabledState::Unreadable: key.reset(); return IsEnabledByLegacyRoot();
    case EnabledState::Disabled: return false;
    case EnabledState::Enabled: break;
  }
  key.reset();  // As above.
  TraceViaHelper(u"%S: Url Redirection is enabled.\n", kAppPathOperation);
  return true;
}

}  // namespace

bool CheckAppPathSettings(std::u16string& allowlist, std::u16string& brokerHostname, std::u16string& remoteItem,
                          UrlOrigin& origin) {
  origin = GetUrlRedirectionOrigin();
  if (origin == UrlOrigin::Unknown) {
    TraceViaHelper(u"%S: Url Redirection origin is unknown.\n", kAppPathOperation);
    return false;
  }
  if (!IsEnabledForAppPaths()) return false;

  UniqueNativeKey policy;
  if (OpenKeyAbsolute(AppPathPolicyPath, kReadAccess, policy.put()) != platform::STATUS_SUCCESS &&
      OpenKeyAbsolute(LegacyAppPathPolicyPath, kReadAccess, policy.put()) != platform::STATUS_SUCCESS) {
    TraceViaHelper(u"Failed to get app path settings.\n");
    return false;
  }
  ReadStringValue(policy.get(), u"allowlist", platform::REG_MULTI_SZ, &allowlist);
  ReadStringValue(policy.get(), u"brokerHostname", platform::REG_SZ, &brokerHostname);
  ReadStringValue(policy.get(), u"remoteItem", platform::REG_SZ, &remoteItem);
  return true;
}

}  // namespace settings
