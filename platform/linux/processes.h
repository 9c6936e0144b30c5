// Starting processes, for the calls of this layer that do.
#pragma once

#include <string_view>

#include "platform/handles.h"

namespace platform {

// What CreateProcessW does, without the tests' faults. May throw std::bad_alloc.
[[nodiscard]] bool StartProcess(std::u16string_view commandLine, PROCESS_INFORMATION* information);

}  // namespace platform
