// For tests that need some endpoint.
#pragma once

#include "platform/types.h"

namespace ipcTests {

inline constexpr platform::GUID kEndpoint{0x875AC244, 0xB80A, 0x420E, {0x90, 0xA2, 0x9C, 0x69, 0xDF, 0xD8, 0xE7, 0x28}};

}  // namespace ipcTests
