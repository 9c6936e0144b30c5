// Where calls of this layer ask whether the tests want them to fail.
//
// Every call that can fail asks once, before it does anything:
//
//   if (FaultInjected("CreateEventW")) return {};
//
// The product's build answers false at compile time. See testHooks.h for the tests' side.
#pragma once

#include "platform/types.h"

namespace platform {

#if LUMENAR_TEST_HOOKS
// True when the call is to fail now; GetLastError() is then the error that the test chose.
[[nodiscard]] bool FaultInjected(const char* call) noexcept;
// How long to wait for an answer where the caller would wait so long: at least a minute in a process whose calls are
// counted, so that what becomes of a fault does not depend on how busy the host is.
[[nodiscard]] DWORD PatienceFor(DWORD milliseconds) noexcept;
#else
[[nodiscard]] constexpr bool FaultInjected(const char*) noexcept { return false; }
[[nodiscard]] constexpr DWORD PatienceFor(DWORD milliseconds) noexcept { return milliseconds; }
#endif

}  // namespace platform
