#include "platform/handles.h"

#include <windows.h>

#include <cstddef>

namespace platform {

static_assert(sizeof(STARTUPINFOW) == sizeof(::STARTUPINFOW));
static_assert(offsetof(STARTUPINFOW, dwFlags) == offsetof(::STARTUPINFOW, dwFlags));
static_assert(offsetof(STARTUPINFOW, hStdInput) == offsetof(::STARTUPINFOW, hStdInput));

bool CreateProcessW(std::nullptr_t, char16_t* commandLine, std::nullptr_t, std::nullptr_t, OnlyFalse, DWORD flags,
                    std::nullptr_t, std::nullptr_t, const STARTUPINFOW* startup,
                    PROCESS_INFORMATION* information) noexcept {
  // The system asks for a writable structure, but only reads it.
  auto* const nativeStartup = reinterpret_cast<::STARTUPINFOW*>(const_cast<STARTUPINFOW*>(startup));
  ::PROCESS_INFORMATION native{};
  if (!::CreateProcessW(nullptr, reinterpret_cast<wchar_t*>(commandLine), nullptr, nullptr, FALSE, flags, nullptr,
                        nullptr, nativeStartup, &native)) {
    return false;
  }
  *information = {.hProcess = ProcessHandle(reinterpret_cast<std::uintptr_t>(native.hProcess)),
                  .hThread = ThreadHandle(reinterpret_cast<std::uintptr_t>(native.hThread)),
                  .dwProcessId = native.dwProcessId,
                  .dwThreadId = native.dwThreadId};
  return true;
}

DWORD WaitForInputIdle(ProcessHandle process, DWORD milliseconds) noexcept {
  return ::WaitForInputIdle(reinterpret_cast<::HANDLE>(process.value()), milliseconds);
}

DWORD GetCurrentProcessId() noexcept { return ::GetCurrentProcessId(); }

}  // namespace platform
