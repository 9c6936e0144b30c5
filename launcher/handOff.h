// How the program's processes reach the resident helper: its window's class, and the messages that it takes.
#pragma once

#include <cstdint>

#include "platform/types.h"

namespace handOff {

inline constexpr const char16_t* kHelperWindowClass = u"CorvaneLumenar_UrlProtocolLaunchHelperClass";

// The tags of WM_COPYDATA.
enum Tag : std::uintptr_t {
  HELPER_LAUNCH_OR_POST = 501,  // The remote client's command line, or the URL to post; with its NUL.
  HELPER_LOG_TEXT = 502,        // A text for the daily log; its NUL and one unit more.
  HELPER_REFRESH_CONFIG = 503,  // No data.
};

enum class Outcome : std::uint8_t { NoHelper, Sent, Failed };

// Sends one message to the resident helper, if there is one, and waits for its answer for up to 500 ms. In the helper's
// own main thread this calls the window procedure directly. `data` is not changed; the system's struct only says void*.
Outcome SendToHelper(Tag tag, void* data, platform::DWORD size) noexcept;

}  // namespace handOff
