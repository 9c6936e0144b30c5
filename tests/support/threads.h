// What tests ask of the thread that they run on, beside what the platform has for the program.
#pragma once

#include <string>

namespace support {

// As debuggers or the host's tools show it; the host may have cut it to 15 characters.
[[nodiscard]] std::string NameOfThisThread();

// Ends the thread without a return from its function.
[[noreturn]] void EndThisThread();

}  // namespace support
