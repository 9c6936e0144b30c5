// Who may use an event of Windows.
#pragma once

#include <cstdint>

namespace ipcTests {

// Whether the event, by its handle's value, has a list of who may use it, and that list is not there: everybody may.
[[nodiscard]] bool IsForEverybody(std::uintptr_t event);

}  // namespace ipcTests
