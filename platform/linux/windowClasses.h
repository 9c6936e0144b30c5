// The window classes of this process. Names are compared without regard to case. Any thread may call.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/window.h"

namespace platform::windowClasses {

// The name as it is compared and looked up, by all processes of the machine. Only the letters A to Z have a case.
[[nodiscard]] std::u16string Folded(std::u16string_view name);

// A number for the class that is not 0; 0 when there is a class of that name.
[[nodiscard]] WORD Add(std::u16string_view name, WNDPROC procedure);
[[nodiscard]] std::optional<WNDPROC> ProcedureOf(std::u16string_view name);

}  // namespace platform::windowClasses
