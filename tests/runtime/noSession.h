// For tests of what is done for a session.
#pragma once

#include <cstdint>

namespace runtimeTests {

// Who gives this for a session names none.
inline constexpr std::uint32_t kNoSession = 0xFFFFFFFF;

}  // namespace runtimeTests
