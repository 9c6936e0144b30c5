// The text of registry files: UTF-8 in which a lone surrogate has its three-byte form, so that every text of UTF-16
// units comes back as it was.
#pragma once

#include <string>
#include <string_view>

namespace platform::registry {

void AppendUtf8(std::string& text, std::u16string_view units);
// A byte that is no UTF-8 becomes U+FFFD.
[[nodiscard]] std::u16string FromUtf8(std::string_view text);

// The file's text as UTF-8 without a byte-order mark, from UTF-16LE with one, or UTF-8 with or without. `storage` holds
// the text when it had to be converted.
[[nodiscard]] std::string_view TextOfFile(std::string_view bytes, std::string& storage);

}  // namespace platform::registry
