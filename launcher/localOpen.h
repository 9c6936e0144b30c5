// Opening a URL on this machine, by the switch "--url".
#pragma once

#include <span>

namespace launcher {

using Arguments = std::span<const char16_t* const>;  // Of the command line, the program first. At least two.

// Hands the URL to the user's handler for it. Without the switch, or without a URL, the user is told that nothing is
// associated with the first argument: the only message that a user can ever see.
void OpenLocally(Arguments arguments);

}  // namespace launcher
