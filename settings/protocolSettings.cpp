#include "platform/raii.h"
#include "settings/redirectionSettings.h"
#include "settings/registryAccess.h"
#include "settings/registryPaths.h"

namespace settings {
namespace {

platform::NTSTATUS OpenProtocolKey(bool fromCurrentUser, bool legacy, std::u16string_view protocol,
                                   platform::NativeKeyHandle* key) {
  if (fromCurrentUser) {
    const std::u16string path = std::u16string(legacy ? LegacyRootPath : RootPath).append(u"\\").append(protocol);
    return OpenKeyCurrentUser(path.c_str(), kReadAccess, key);
  }
  const std::u16string path =
      std::u16string(legacy ? LegacyRootMachinePath : RootMachinePath).append(u"\\").append(protocol);
  return OpenKeyAbsolute(path.c_str(), kReadAccess, key);
}

}  // namespace

bool GetProtocolRedirectionSettings(bool fromCurrentUser, std::u16string_view protocol, UrlOrigin origin,
                                    std::u16string& clientRules, std::u16string& agentRules,
                                    std::u16string& brokerHostname, std::u16string& remoteItem) {
  platform::UniqueNativeKey key;
  if (OpenProtocolKey(fromCurrentUser, false, protocol, key.put()) != platform::STATUS_SUCCESS &&
      OpenProtocolKey(fromCurrentUser, true, protocol, key.put()) != platform::STATUS_SUCCESS) {
    return false;
  }
  // One list of rules for both sides is meant for the other side of the session.
  std::u16string& ownSide = origin == UrlOrigin::Client ? clientRules : agentRules;
  std::u16string& otherSide = origin == UrlOrigin::Client ? agentRules : clientRules;
  if (ReadStringValue(key.get(), u"rules", platform::REG_SZ, &otherSide) == platform::STATUS_SUCCESS) {
    ownSide.clear();
  } else {
    ReadStringValue(key.get(), u"clientRules", platform::REG_MULTI_SZ, &clientRules);
    ReadStringValue(key.get(), u"agentRules", platform::REG_MULTI_SZ, &agentRules);
  }
  ReadStringValue(key.get(), u"brokerHostname", platform::REG_SZ, &brokerHostname);
  ReadStringValue(key.get(), u"remoteItem", platform::REG_SZ, &remoteItem);
  return true;
}

}  // namespace settings
