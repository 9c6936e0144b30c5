// Two small operations on URLs. They are not inverses of each other.
#pragma once

#include <string>
#include <string_view>

namespace launcher {

// Percent-encodes blank " % + ? & : / \ , [ ] # and nothing else, for embedding in the query of another URL.
[[nodiscard]] std::u16string GetEncodedUrl(std::u16string_view text);

// Repairs the scheme separator of a URL that arrived encoded: one "%3A" (or "%3a") among the first ten units becomes
// ":". No other escape is touched. A text that is empty, longer than 2084 units, or needs no repair is returned as it
// is.
[[nodiscard]] std::u16string GetDecodedUrl(std::u16string_view url);

}  // namespace launcher
