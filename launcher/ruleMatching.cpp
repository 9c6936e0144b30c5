#include "launcher/ruleMatching.h"

#include <vector>

#include "launcher/debugLog.h"
#include "launcher/ruleSearch.h"
#include "platform/text.h"

namespace launcher {

bool IsAppPathAllowed(std::u16string_view path, std::u16string_view allowlist) {
  std::u16string buffer(allowlist);
  std::vector<std::u16string> rules;
  char16_t* context = nullptr;
  for (const char16_t* rule = platform::wcstok_s(buffer.data(), u";", &context); rule != nullptr;
       rule = platform::wcstok_s(nullptr, u";", &context)) {
    rules.emplace_back(rule);
  }
  return MatchAppPathRules(path, rules);
}

bool MatchAppPathRules(std::u16string_view path, std::span<const std::u16string> rules) {
  for (const std::u16string& rule : rules) {
    if (!ContainsMatch(path, rule)) continue;
    debugLog::TraceViaHelper(u"Match the rule %s successfully.\n", rule);
    return true;
  }
  return false;
}

}  // namespace launcher
