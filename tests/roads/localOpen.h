// Where the targets' shells differ.
#pragma once

#include <cstdint>
#include <vector>

#include "tests/support/machine.h"

namespace roads {

// Under which of them a scheme's handler has to be registered so that the shell finds it.
extern const std::vector<support::Hive> kHandlerHives;
// What the shell answers when a scheme has no handler.
extern const std::vector<std::uint32_t> kNoHandlerErrors;

}  // namespace roads
