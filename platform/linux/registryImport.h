// Import of registry text into the machine's hives.
#pragma once

#include <string_view>

namespace platform::registry {

// Merges the text (regFile.h) into both hives: keys and values are added or replaced, deletions carried out, the rest
// stays. False, with the last error set, when a hive cannot be read or written.
bool ImportRegText(std::string_view bytes) noexcept;

}  // namespace platform::registry
