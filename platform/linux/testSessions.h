// The sessions that a test has added to the machine's one. The product's build knows at compile time that there is
// none.
#pragma once

#include <optional>

#include "platform/types.h"

namespace platform {

// The connect state of such a session; nothing when there is none.
#if LUMENAR_TEST_HOOKS
[[nodiscard]] std::optional<DWORD> StateOfTestSession(DWORD session) noexcept;
#else
[[nodiscard]] constexpr std::optional<DWORD> StateOfTestSession(DWORD) noexcept { return std::nullopt; }
#endif

}  // namespace platform
