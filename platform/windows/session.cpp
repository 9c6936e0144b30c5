#include "platform/session.h"

#include <windows.h>

#include <wtsapi32.h>

namespace platform {
namespace {

template <class Handle>
::HANDLE Native(Handle handle) {
  return reinterpret_cast<::HANDLE>(handle.value());
}

// Calls with a place for the token, and gives what the system wrote there.
template <class Call>
bool Give(TokenHandle* token, const Call& call) {
  ::HANDLE native = nullptr;
  if (call(&native) == 0) return false;
  *token = TokenHandle(reinterpret_cast<std::uintptr_t>(native));
  return true;
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
  return Give(token, [&](::HANDLE* native) { return ::WTSQueryUserToken(sessionId, native); });
}

bool OpenThreadToken(ThreadHandle thread, DWORD access, OnlyFalse, TokenHandle* token) noexcept {
  return Give(token, [&](::HANDLE* native) { return ::OpenThreadToken(Native(thread), access, FALSE, native); });
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
  return Give(token, [&](::HANDLE* native) { return ::OpenProcessToken(Native(process), access, native); });
}

bool DuplicateTokenEx(TokenHandle token, DWORD access, std::nullptr_t, DWORD level, DWORD type,
                      TokenHandle* duplicate) noexcept {
  return Give(duplicate, [&](::HANDLE* native) {
    return ::DuplicateTokenEx(Native(token), access, nullptr, static_cast<::SECURITY_IMPERSONATION_LEVEL>(level),
                              static_cast<::TOKEN_TYPE>(type), native);
  });
}

HWND GetShellWindow() noexcept { return HWND(reinterpret_cast<std::uintptr_t>(::GetShellWindow())); }

bool ImpersonateLoggedOnUser(TokenHandle token) noexcept { return ::ImpersonateLoggedOnUser(Native(token)) != 0; }

bool RevertToSelf() noexcept { return ::RevertToSelf() != 0; }

}  // namespace platform
