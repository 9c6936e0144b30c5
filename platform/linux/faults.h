// Where calls of this layer ask whether the tests want them to fail.
//
// Every call that can fail asks once, before it does anything:
//
//   if (FaultInjected("CreateEventW")) return {};
//
// The product's build answers false at compile time. See testHooks.h for the tests' side.
#pragma once

namespace platform {

#if LUMENAR_TEST_HOOKS
// True when the call is to fail now; GetLastError() is then the error that the test chose.
[[nodiscard]] bool FaultInjected(const char* call) noexcept;
#else
[[nodiscard]] constexpr bool FaultInjected(const char*) noexcept { return false; }
#endif

}  // namespace platform
