// Sessions, their users, and the tokens by which a thread acts as one of them.
//
// The program's own session is where its user has logged on. Any thread may call; impersonation is the calling
// thread's.
#pragma once

#include "platform/handles.h"
#include "platform/types.h"
#include "platform/window.h"

namespace platform {

// The name of the calling thread's user. `size` is in units with the NUL, on entry and on return; false with
// ERROR_INSUFFICIENT_BUFFER and the needed size when the name does not fit.
bool GetUserNameW(char16_t* name, DWORD* size) noexcept;

// The session that a process runs in.
bool ProcessIdToSessionId(DWORD processId, DWORD* sessionId) noexcept;

enum class WTS_INFO_CLASS : int { WTSUserName = 5, WTSConnectState = 8 };
using enum WTS_INFO_CLASS;
inline constexpr DWORD WTSActive = 0;
inline constexpr DWORD WTSDisconnected = 4;
// What is asked of a session, in memory for WTSFreeMemory: a text with its NUL, or the number of the connect state.
// False when there is no such session.
bool WTSQuerySessionInformationW(std::nullptr_t server, DWORD sessionId, WTS_INFO_CLASS what, void** information,
                                 DWORD* bytes) noexcept;
bool WTSQuerySessionInformationA(std::nullptr_t server, DWORD sessionId, WTS_INFO_CLASS what, void** information,
                                 DWORD* bytes) noexcept;
void WTSFreeMemory(void* memory) noexcept;

// The token of the session's user. For trusted callers: others fail with ERROR_PRIVILEGE_NOT_HELD on Windows.
bool WTSQueryUserToken(DWORD sessionId, TokenHandle* token) noexcept;

inline constexpr DWORD TOKEN_DUPLICATE = 2;
inline constexpr DWORD TOKEN_QUERY = 8;
// To assign as a process's own, duplicate, impersonate, query and adjust.
inline constexpr DWORD TOKEN_FOR_IMPERSONATION = 143;

// The token that the thread acts under; false with ERROR_NO_TOKEN when it acts as its process does.
inline constexpr DWORD ERROR_NO_TOKEN = 1008;
inline constexpr DWORD ERROR_PRIVILEGE_NOT_HELD = 1314;
bool OpenThreadToken(ThreadHandle thread, DWORD access, OnlyFalse openAsSelf, TokenHandle* token) noexcept;

enum class TOKEN_INFORMATION_CLASS : int { TokenSessionId = 12 };
using enum TOKEN_INFORMATION_CLASS;
// The session of the token's user: a DWORD.
bool GetTokenInformation(TokenHandle token, TOKEN_INFORMATION_CLASS what, DWORD* sessionId, DWORD size,
                         DWORD* needed) noexcept;

inline constexpr DWORD PROCESS_QUERY_INFORMATION = 1024;
// A handle to a running process of this user, good for OpenProcessToken. Null on failure.
[[nodiscard]] ProcessHandle OpenProcess(DWORD access, OnlyFalse inheritHandle, DWORD processId) noexcept;
bool OpenProcessToken(ProcessHandle process, DWORD access, TokenHandle* token) noexcept;

inline constexpr DWORD SecurityImpersonation = 2;
inline constexpr DWORD TokenPrimary = 1;
bool DuplicateTokenEx(TokenHandle token, DWORD access, std::nullptr_t attributes, DWORD level, DWORD type,
                      TokenHandle* duplicate) noexcept;

// The window of the user's shell; null when no shell runs.
[[nodiscard]] HWND GetShellWindow() noexcept;

// From now on the calling thread acts as the token's user, until RevertToSelf.
bool ImpersonateLoggedOnUser(TokenHandle token) noexcept;
bool RevertToSelf() noexcept;

}  // namespace platform
