#include "platform/session.h"

#include <windows.h>

#include <wtsapi32.h>

namespace platform {
namespace {

template <class Handle>
::HANDLE Native(Handle handle) {
  return reinterpret_cast<::HANDLE>(handle.value());
}

// Gives what the system wrote, when it did.
bool Give(BOOL done, ::HANDLE native, TokenHandle* token) {
  if (done != 0) *token = TokenHandle(reinterpret_cast<std::uintptr_t>(native));
  return done != 0;
}

}  // namespace

bool GetUserNameW(char16_t* name, DWORD* size) noexcept {
  ::DWORD nativeSize = *size;
  const bool done = ::GetUserNameW(reinterpret_cast<wchar_t*>(name), &nativeSize) != 0;
  *size = nativeSize;
  return done;
}

bool ProcessIdToSessionId(DWORD processId, DWORD* sessionId) noexcept {
  ::DWORD session = 0;
  if (::ProcessIdToSessionId(processId, &session) == 0) return false;
  *sessionId = session;
  return true;
}

bool WTSQuerySessionInformationW(std::nullptr_t, DWORD sessionId, WTS_INFO_CLASS what, void** information,
                                 DWORD* bytes) noexcept {
  ::DWORD size = 0;
  const bool done = ::WTSQuerySessionInformationW(nullptr, sessionId, static_cast<::WTS_INFO_CLASS>(what),
                                                  reinterpret_cast<wchar_t**>(information), &size) != 0;
  *bytes = size;
  return done;
}

bool WTSQuerySessionInformationA(std::nullptr_t, DWORD sessionId, WTS_INFO_CLASS what, void** information,
                                 DWORD* bytes) noexcept {
  ::DWORD size = 0;
  const bool done = ::WTSQuerySessionInformationA(nullptr, sessionId, static_cast<::WTS_INFO_CLASS>(what),
                                                  reinterpret_cast<char**>(information), &size) != 0;
  *bytes = size;
  return done;
}

void WTSFreeMemory(void* memory) noexcept { ::WTSFreeMemory(memory); }

bool WTSQueryUserToken(DWORD sessionId, TokenHandle* token) noexcept {
  ::HANDLE native = nullptr;
  return Give(::WTSQueryUserToken(sessionId, &native), native, token);
}

bool OpenThreadToken(ThreadHandle thread, DWORD access, OnlyFalse, TokenHandle* token) noexcept {
  ::HANDLE native = nullptr;
  return Give(::OpenThreadToken(Native(thread), access, FALSE, &native), native, token);
}

bool GetTokenInformation(TokenHandle token, TOKEN_INFORMATION_CLASS what, DWORD* sessionId, DWORD size,
                         DWORD* needed) noexcept {
  ::DWORD length = 0;
  const bool done =
      ::GetTokenInformation(Native(token), static_cast<::TOKEN_INFORMATION_CLASS>(what), sessionId, size, &length) != 0;
  *needed = length;
  return done;
}

ProcessHandle OpenProcess(DWORD access, OnlyFalse, DWORD processId) noexcept {
  return ProcessHandle(reinterpret_cast<std::uintptr_t>(::OpenProcess(access, FALSE, processId)));
}

bool OpenProcessToken(ProcessHandle process, DWORD access, TokenHandle* token) noexcept {
  ::HANDLE native = nullptr;
  return Give(::OpenProcessToken(Native(process), access, &native), native, token);
}

bool DuplicateTokenEx(TokenHandle token, DWORD access, std::nullptr_t, DWORD level, DWORD type,
                      TokenHandle* duplicate) noexcept {
  ::HANDLE native = nullptr;
  return Give(::DuplicateTokenEx(Native(token), access, nullptr, static_cast<::SECURITY_IMPERSONATION_LEVEL>(level),
                                 static_cast<::TOKEN_TYPE>(type), &native),
              native, duplicate);
}

HWND GetShellWindow() noexcept { return HWND(reinterpret_cast<std::uintptr_t>(::GetShellWindow())); }

bool ImpersonateLoggedOnUser(TokenHandle token) noexcept { return ::ImpersonateLoggedOnUser(Native(token)) != 0; }

bool RevertToSelf() noexcept { return ::RevertToSelf() != 0; }

}  // namespace platform
