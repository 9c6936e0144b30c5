// The clock that a test has set. The product's build knows at compile time that there is none.
#pragma once

#include <optional>

#include "platform/clock.h"

namespace platform {

#if LUMENAR_TEST_HOOKS
[[nodiscard]] std::optional<SYSTEMTIME> TimeSetByTest() noexcept;
#else
[[nodiscard]] constexpr std::optional<SYSTEMTIME> TimeSetByTest() noexcept { return std::nullopt; }
#endif

}  // namespace platform
