// The document from which the browsers' extensions learn the redirection rules: the settings as a JSON text.
//
//   {"enabled": 1, "enabledIpRule": 0, "host": "Windows", "origin": "Agent",
//    "protocols": [{"agentRules": "", "brokerHostname": "", "clientRules": ".*x;y", "protocol": "http", "remoteItem":
//    ""}], "version": "8.18.0"}
//
// For Firefox the same, without "enabledIpRule", stands as "data" in the envelope of that browser's managed storage.
// The text is plain ASCII, members in the order of their names, indented by tabs, with a newline at its end.
#pragma once

#include <string>

#include "settings/browserType.h"

namespace Json {
class Value;
}

namespace settings {

// The whole document. Empty when the settings do not allow one: traced, unless it is `Enabled` that both roots lack;
// and keys that were opened stay open, as settled. A document that is read from the legacy root always says that
// redirection is off, and leaves the current root's key open.
[[nodiscard]] std::string GetUrlRedirectionRules(BrowserType browser);

// Rewrites a list of rules separated by ";" without its empty elements, and with a dot ahead of a leading asterisk, so
// that a wildcard becomes an expression. No other character is touched, and no rule is checked.
void NormalizeRuleList(std::u16string& rules);

// Puts the plain document into Firefox's envelope, as text.
void BuildManagedStorageDocument(std::string& output, Json::Value document);

}  // namespace settings
