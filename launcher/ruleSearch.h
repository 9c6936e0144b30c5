// Searching a text of any length for a regular expression, with the standard library's matcher.
#pragma once

#include <string_view>

namespace launcher {

// Whether `rule`, an expression of the ECMAScript grammar, matches anywhere in `text`. Throws std::regex_error for a
// text that is no such expression.
//
// The matcher recurses, about once a character: a text that needs more stack than any caller has is searched on a
// thread of its own. Where no such thread can be had the answer is false, for a rule that is an expression.
[[nodiscard]] bool ContainsMatch(std::u16string_view text, std::u16string_view rule);

// Whether a search for the rule may try the starts of lines alone, with the same answer: the rule begins with a run of
// any characters, so that whatever matches further on in a line matches from its start as well.
[[nodiscard]] bool MatchesFromLineStartsAlone(std::u16string_view rule) noexcept;

}  // namespace launcher
