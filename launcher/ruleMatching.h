// Tests an app path request against the administrator's allow list.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace launcher {

// `allowlist` holds regular expressions (ECMAScript, case-sensitive) separated by ";"; empty fields are no rules. True
// when one of them matches anywhere in `path`; the rules are tried in order, and those behind the first match not at
// all. A rule that is no expression throws std::regex_error, which nothing on the road of a URL catches: the process
// ends.
[[nodiscard]] bool IsAppPathAllowed(std::u16string_view path, std::u16string_view allowlist);

// The same for the rules of a list.
[[nodiscard]] bool MatchAppPathRules(std::u16string_view path, std::span<const std::u16string> rules);

}  // namespace launcher
