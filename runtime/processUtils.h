// What the runtime asks about its process and threads.
#pragma once

#include <cstdint>
#include <string>

namespace runtime::ProcessUtils {

inline constexpr std::uint32_t kCallersThread = 0xFFFFFFFF;

// The name is what debuggers show. Logs how it went; the thread itself does not notice.
void SetThreadName(std::uint32_t threadId, const char* name);

// The session to act in: `sessionId` itself, unless it is 0xFFFFFFFF; then, with `checkThreadToken`, that of the user
// whom the thread impersonates; then the process's own. 0xFFFFFFFF when that cannot be told.
[[nodiscard]] std::uint32_t GetSessionID(bool checkThreadToken, std::uint32_t sessionId);
// The name of a session's user, of the session that the call above gives; empty when there is none.
[[nodiscard]] std::u16string GetUserName(std::uint32_t sessionId);

// The path of the running program's file, or with `ownModule` of the module that holds this code, in the ANSI code
// page. Empty when it is longer than 259 bytes, or cannot be told.
[[nodiscard]] std::string GetModulePath(bool ownModule);

}  // namespace runtime::ProcessUtils
