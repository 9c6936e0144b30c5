#include "platform/clock.h"

#include <windows.h>

namespace platform {

static_assert(sizeof(SYSTEMTIME) == sizeof(::SYSTEMTIME));

void GetLocalTime(SYSTEMTIME* time) noexcept { ::GetLocalTime(reinterpret_cast<::SYSTEMTIME*>(time)); }

}  // namespace platform
