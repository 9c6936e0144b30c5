#include "settings/ruleDocument.h"

#include <json/value.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "launcher/debugLog.h"
#include "platform/raii.h"
#include "settings/redirectionSettings.h"
#include "settings/registryPaths.h"
#include "settings/textConversion.h"

namespace settings {
namespace {

using debugLog::TraceViaHelper;

constexpr const char* kRulesOperation = "GetUrlRedirectionRules";
constexpr const char* kVersion = "8.18.0";

// The name of a member, which lives as long as the program: the document takes no copy of it.
using Member = Json::StaticString;

// The root whose subkeys are the schemes.
struct Root {
  platform::UniqueNativeKey key;
  bool fromCurrentUser = false;
  bool enabled = false;
};

// A root that leads to no document keeps its key open, as settled.
std::nullopt_t LeaveOpen(Root& root) {
  static_cast<void>(root.key.release());
  return std::nullopt;
}

// The legacy root takes the current one's place where that holds no `Enabled`. It decides only that there is a
// document: enabled stays what the current root said, which is no.
std::optional<Root> MoveOnToLegacyRoot(Root& current) {
  LeaveOpen(current);
  Root legacy;
  if (OpenLegacyRootKey(legacy.key.put(), &legacy.fromCurrentUser) != platform::STATUS_SUCCESS) {
    TraceViaHelper(u"%S: Failed to open legacy Url Redirection root key.\n", kRulesOperation);
    return std::nullopt;
  }
  if (QueryEnabledState(legacy.fromCurrentUser, legacy.key.get(), LegacyRootPath) == EnabledState::Unreadable) {
    return LeaveOpen(legacy);
  }
  TraceViaHelper(u"%S: Legacy Url Redirection is configured.\n", kRulesOperation);
  return legacy;
}

std::optional<Root> OpenConfiguredRoot() {
  Root root;
  if (OpenRootKey(root.key.put(), &root.fromCurrentUser) != platform::STATUS_SUCCESS) {
    TraceViaHelper(u"%S: Failed to open Url Redirection root key.\n", kRulesOperation);
    return std::nullopt;
  }
  const EnabledState state = QueryEnabledState(root.fromCurrentUser, root.key.get(), RootPath);
  if (state == EnabledState::Unreadable) return MoveOnToLegacyRoot(root);
  TraceViaHelper(u"%S: Url Redirection is configured.\n", kRulesOperation);
  root.enabled = state == EnabledState::Enabled;
  return root;
}

// Nothing for a scheme whose key does not open.
std::optional<Json::Value> DescribeProtocol(bool fromCurrentUser, const char16_t* protocol, UrlOrigin origin) {
  std::u16string clientRules;
  std::u16string agentRules;
  std::u16string brokerHostname;
  std::u16string remoteItem;
  if (!GetProtocolRedirectionSettings(fromCurrentUser, protocol, origin, clientRules, agentRules, brokerHostname,
                                      remoteItem)) {
    return std::nullopt;
  }
  Json::Value description;
  description[Member("protocol")] = WStringToString(protocol);
  description[Member("brokerHostname")] = WStringToString(brokerHostname);
  description[Member("remoteItem")] = WStringToString(remoteItem);
  NormalizeRuleList(clientRules);
  NormalizeRuleList(agentRules);
  description[Member("clientRules")] = WStringToString(clientRules);
  description[Member("agentRules")] = WStringToString(agentRules);
  return description;
}

// In the registry's order; the first name that cannot be had ends the list, whatever the cause.
Json::Value DescribeProtocols(const Root& root, UrlOrigin origin) {
  Json::Value protocols(Json::arrayValue);
  char16_t name[platform::MAX_PATH];
  for (platform::DWORD index = 0; platform::RegEnumKeyW(root.key.get(), index, name, platform::MAX_PATH) == 0;
       ++index) {
    if (auto description = DescribeProtocol(root.fromCurrentUser, name, origin))
      protocols.append(*std::move(description));
  }
  return protocols;
}

}  // namespace

std::string GetUrlRedirectionRules(BrowserType browser) {
  const UrlOrigin origin = GetUrlRedirectionOrigin();
  if (origin == UrlOrigin::Unknown) {
    TraceViaHelper(u"%S: Url Redirection origin is unknown.\n", kRulesOperation);
    return {};
  }
  const std::optional<Root> root = OpenConfiguredRoot();
  if (!root) return {};

  Json::Value document;
  document["host"] = "Windows";
  document["version"] = kVersion;
  document["enabled"] = root->enabled ? 1 : 0;  // A number: the extensions test for non-zero.
  document["origin"] = origin == UrlOrigin::Agent ? "Agent" : "Client";
  document["protocols"] = DescribeProtocols(*root, origin);
  if (browser != BrowserType::Firefox) {
    document["enabledIpRule"] = IsSupportIpRules() ? 1 : 0;
    return document.toStyledString();
  }
  std::string text;
  BuildManagedStorageDocument(text, std::move(document));
  return text;
}

void NormalizeRuleList(std::u16string& rules) {
  std::u16string normalized;
  normalized.reserve(rules.size() + rules.size() / 8);
  const auto isEnd = [](char16_t unit) { return unit == u';' || unit == u'\0'; };
  auto rule = rules.cbegin();
  while (rule != rules.cend() && *rule != u'\0') {
    const auto end = std::find_if(rule, rules.cend(), isEnd);
    if (rule != end) {
      if (!normalized.empty()) normalized += u';';
      if (*rule == u'*') normalized += u'.';
      normalized.append(rule, end);
    }
    rule = end != rules.cend() && *end == u';' ? end + 1 : end;
  }
  rules = std::move(normalized);
}

void BuildManagedStorageDocument(std::string& output, Json::Value document) {
  Json::Value envelope;
  envelope["name"] = WStringToString(FirefoxExtensionId);
  envelope["description"] = "ignored";
  envelope["type"] = "storage";
  envelope["data"] = std::move(document);
  output = envelope.toStyledString();
}

}  // namespace settings
