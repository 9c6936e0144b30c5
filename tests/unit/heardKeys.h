// The keys that windows of the calling thread have heard.
#pragma once

#include <vector>

#include "platform/window.h"

namespace unit {

inline constexpr platform::UINT WM_SYSKEYDOWN = 0x104;
inline constexpr platform::UINT WM_SYSKEYUP = 0x105;

struct HeardKey {
  platform::UINT message;
  platform::WPARAM key;
  platform::HWND window;
};

// All until now, in order. REQUIRES: a window of this thread in the foreground. Presses a key of its own, which comes
// behind all that were pressed before.
[[nodiscard]] std::vector<HeardKey> HeardKeys();

}  // namespace unit
