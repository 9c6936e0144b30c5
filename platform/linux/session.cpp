// One session, that of the caller's user, and tokens that all stand for that user.
#include <signal.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/ansi.h"
#include "platform/linux/faults.h"
#include "platform/linux/hostError.h"
#include "platform/linux/machine.h"
#include "platform/linux/testSessions.h"
#include "platform/linux/threadObjects.h"
#include "platform/linux/userName.h"
#include "platform/session.h"

namespace platform {
namespace {

constexpr DWORD kSession = 1;  // 0 is that of services.
constexpr DWORD ERROR_CTX_WINSTATION_NOT_FOUND = 7022;

class Token final : public KernelObject {
 public:
  [[nodiscard]] const char* KindName() const noexcept override { return "Token"; }
};

// What the calling thread acts under; null as a rule.
thread_local std::shared_ptr<Token> impersonated;

// A process of this user, not a child of this one; signalled once it has ended.
class OpenedProcess final : public WaitableObject {
 public:
  explicit OpenedProcess(Descriptor ended) noexcept : ended_(std::move(ended)) {}
  [[nodiscard]] const char* KindName() const noexcept override { return "Process"; }
  [[nodiscard]] int PollDescriptor() const noexcept override { return ended_.get(); }
  [[nodiscard]] bool TryConsume() noexcept override { return IsReadable(PollDescriptor()); }

 private:
  const Descriptor ended_;
};

bool Fail(DWORD error) noexcept {
  SetLastError(error);
  return false;
}

bool GiveToken(TokenHandle* token) noexcept try {
  const TokenHandle added(handleTable::Add(std::make_shared<Token>()));
  if (added) *token = added;
  return static_cast<bool>(added);
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY);
}

bool GiveMemory(const void* from, std::size_t size, void** information, DWORD* bytes) noexcept {
  *information = std::malloc(size);
  if (*information == nullptr) return Fail(ERROR_NOT_ENOUGH_MEMORY);
  std::memcpy(*information, from, size);
  *bytes = static_cast<DWORD>(size);
  return true;
}

// Nothing for a session that there is not.
std::optional<DWORD> StateOf(DWORD session) noexcept {
  return session == kSession ? std::optional(WTSActive) : StateOfTestSession(session);
}

template <class Char>
bool Query(DWORD sessionId, WTS_INFO_CLASS what, const std::basic_string<Char>& user, void** information,
           DWORD* bytes) noexcept {
  const std::optional<DWORD> state = StateOf(sessionId);
  if (!state) return Fail(ERROR_CTX_WINSTATION_NOT_FOUND);
  if (what == WTSConnectState) return GiveMemory(&*state, sizeof *state, information, bytes);
  return GiveMemory(user.c_str(), (user.size() + 1) * sizeof(Char), information, bytes);
}

}  // namespace

bool ProcessIdToSessionId(DWORD processId, DWORD* sessionId) noexcept {
  if (FaultInjected("ProcessIdToSessionId")) return false;
  const auto process = static_cast<pid_t>(processId);
  if (process <= 0 || (kill(process, 0) != 0 && errno == ESRCH)) return Fail(ERROR_INVALID_PARAMETER);
  *sessionId = kSession;
  return true;
}

bool WTSQuerySessionInformationW(std::nullptr_t, DWORD sessionId, WTS_INFO_CLASS what, void** information,
                                 DWORD* bytes) noexcept try {
  if (FaultInjected("WTSQuerySessionInformationW")) return false;
  return Query(sessionId, what, machine::FromHost(UserName()), information, bytes);
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY);
}

bool WTSQuerySessionInformationA(std::nullptr_t, DWORD sessionId, WTS_INFO_CLASS what, void** information,
                                 DWORD* bytes) noexcept try {
  if (FaultInjected("WTSQuerySessionInformationA")) return false;
  return Query(sessionId, what, ansi::FromWide(machine::FromHost(UserName())), information, bytes);
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY);
}

void WTSFreeMemory(void* memory) noexcept { std::free(memory); }

bool WTSQueryUserToken(DWORD sessionId, TokenHandle* token) noexcept {
  if (FaultInjected("WTSQueryUserToken")) return false;
  return StateOf(sessionId) ? GiveToken(token) : Fail(ERROR_CTX_WINSTATION_NOT_FOUND);
}

bool OpenThreadToken(ThreadHandle thread, DWORD, OnlyFalse, TokenHandle* token) noexcept {
  if (FaultInjected("OpenThreadToken")) return false;
  if (thread != kCurrentThread) return Fail(ERROR_INVALID_HANDLE);
  return impersonated ? GiveToken(token) : Fail(ERROR_NO_TOKEN);
}

bool GetTokenInformation(TokenHandle token, TOKEN_INFORMATION_CLASS, DWORD* sessionId, DWORD size,
                         DWORD* needed) noexcept {
  if (FaultInjected("GetTokenInformation")) return false;
  if (!handleTable::FindAs<Token>(token.value())) return false;
  *needed = sizeof *sessionId;
  if (size != sizeof *sessionId) return Fail(ERROR_INSUFFICIENT_BUFFER);
  *sessionId = kSession;
  return true;
}

ProcessHandle OpenProcess(DWORD access, OnlyFalse, DWORD processId) noexcept try {
  if (FaultInjected("OpenProcess")) return {};
  const auto process = static_cast<pid_t>(processId);
  if (access != PROCESS_QUERY_INFORMATION || process <= 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  Descriptor ended;
  if (kill(process, 0) == 0) ended = Descriptor(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
  if (!ended) {
    SetLastError(errno == ESRCH ? ERROR_INVALID_PARAMETER : ErrorFromHost(errno));
    return {};
  }
  return ProcessHandle(handleTable::Add(std::make_shared<OpenedProcess>(std::move(ended))));
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

bool OpenProcessToken(ProcessHandle process, DWORD, TokenHandle* token) noexcept {
  if (FaultInjected("OpenProcessToken")) return false;
  if (process != GetCurrentProcess()) {
    const auto object = handleTable::Find(process.value());
    if (!object || object->KindName() != std::string_view("Process")) return Fail(ERROR_INVALID_HANDLE);
  }
  return GiveToken(token);
}

bool DuplicateTokenEx(TokenHandle token, DWORD access, std::nullptr_t, DWORD level, DWORD type,
                      TokenHandle* duplicate) noexcept {
  if (FaultInjected("DuplicateTokenEx")) return false;
  if (access != TOKEN_FOR_IMPERSONATION || level != SecurityImpersonation || type != TokenPrimary) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  return handleTable::FindAs<Token>(token.value()) != nullptr && GiveToken(duplicate);
}

// A shell is known by the class of its first window.
HWND GetShellWindow() noexcept {
  if (FaultInjected("GetShellWindow")) return {};
  return FindWindowW(u"Progman", nullptr);
}

bool ImpersonateLoggedOnUser(TokenHandle token) noexcept {
  if (FaultInjected("ImpersonateLoggedOnUser")) return false;
  auto found = handleTable::FindAs<Token>(token.value());
  if (!found) return false;
  impersonated = std::move(found);
  return true;
}

bool RevertToSelf() noexcept {
  if (FaultInjected("RevertToSelf")) return false;
  impersonated.reset();
  return true;
}

}  // namespace platform
