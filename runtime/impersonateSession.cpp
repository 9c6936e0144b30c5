#include "runtime/impersonateSession.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "platform/error.h"
#include "platform/raii.h"
#include "runtime/logCalls.h"
#include "runtime/processUtils.h"

namespace runtime {
namespace {

using platform::DWORD;
using platform::UniqueProcess;
using platform::UniqueToken;

constexpr const char* kGetUserToken = "TxImpersonateSession::GetUserToken()";

// Nothing for a session that there is not.
std::optional<DWORD> ConnectState(DWORD session) {
  void* information = nullptr;
  DWORD bytes = 0;
  if (!platform::WTSQuerySessionInformationA(nullptr, session, platform::WTSConnectState, &information, &bytes)) {
    return std::nullopt;
  }
  const DWORD state = *static_cast<const DWORD*>(information);
  platform::WTSFreeMemory(information);
  return state;
}

bool HasUser(DWORD session) {
  constexpr std::array kWithUser = {platform::WTSActive, platform::WTSDisconnected};
  const std::optional<DWORD> state = ConnectState(session);
  return state && std::ranges::find(kWithUser, *state) != kWithUser.end();
}

// The token of the user's shell. Serves the process's own session, for whose token only trusted callers may ask.
UniqueToken ShellsToken(DWORD session) {
  const platform::HWND shell = platform::GetShellWindow();
  if (!shell) {
    LogLastError(kGetUserToken, 1, "SessionID(%d) - GetShellWindow() failed", session);
    return {};
  }
  DWORD processId = 0;
  if (platform::GetWindowThreadProcessId(shell, &processId) == 0) {
    LogLastError(kGetUserToken, 1, "SessionID(%d) - GetWindowThreadProcessId(0x%p) failed", session, shell);
    return {};
  }
  const UniqueProcess process(platform::OpenProcess(platform::PROCESS_QUERY_INFORMATION, false, processId));
  if (!process) {
    LogLastError(kGetUserToken, 1, "SessionID(%d) - OpenProcess(0x%x) failed", session, processId);
    return {};
  }
  UniqueToken token;
  if (!platform::OpenProcessToken(process.get(), platform::TOKEN_DUPLICATE, token.put())) {
    LogLastError(kGetUserToken, 1, "SessionID(%d) - OpenProcessToken(0x%x,0x%p) failed", session, processId,
                 process.get());
  }
  return token;
}

UniqueToken SourceToken(DWORD session) {
  UniqueToken token;
  if (platform::WTSQueryUserToken(session, token.put())) return token;
  LogLastError(kGetUserToken, 1, "SessionID(%d) - WTSQueryUserToken() failed", session);
  const bool ownSession = ProcessUtils::GetSessionID(true, TxImpersonateSession::kOwnSession) == session;
  return ownSession ? ShellsToken(session) : UniqueToken();
}

UniqueToken GetUserToken(DWORD session) {
  if (session == 0) {
    Log(kGetUserToken, 2, "SessionID(%d) - Impersonating session 0 not allowed", session);
    return {};
  }
  if (!HasUser(session)) {
    Log(kGetUserToken, 2, "SessionID(%d) - Nobody is logged on", session);
    return {};
  }
  const UniqueToken source = SourceToken(session);
  if (!source) return {};
  UniqueToken token;
  if (platform::DuplicateTokenEx(source.get(), platform::TOKEN_FOR_IMPERSONATION, nullptr,
                                 platform::SecurityImpersonation, platform::TokenPrimary, token.put())) {
    Log(kGetUserToken, 6, "SessionID(%d) - user token 0x%p [OK]", session, token.get());
  } else {
    LogLastError(kGetUserToken, 1, "SessionID(%d) - DuplicateTokenEx(0x%p) failed", session, source.get());
  }
  return token;
}

}  // namespace

TxImpersonateSession::~TxImpersonateSession() { Reset(); }

bool TxImpersonateSession::Init(std::uint32_t session) {
  constexpr const char* kInit = "TxImpersonateSession::Init()";
  const DWORD id = ProcessUtils::GetSessionID(true, session);
  if (!ConnectState(id)) {
    LogLastError(kInit, 1, "Invalid session ID %d", session);
    return false;
  }
  if (userToken) {
    if (std::cmp_equal(sessionId, id)) {
      Log(kInit, 2, "Already impersonating session %d", id);
      return true;
    }
    if (impersonating) {
      Log(kInit, 1, "Attempt to impersonate session %d ignored, already impersonating session %d", id, sessionId);
      return false;
    }
    Reset();
  }
  UniqueToken token = GetUserToken(id);
  if (!token) {
    Log(kInit, 1, "Failed to get user token for session %d", id);
    return false;
  }
  userName.SetWide(ProcessUtils::GetUserName(id).c_str());
  userToken = token.release();
  sessionId = static_cast<std::int32_t>(id);
  return true;
}

bool TxImpersonateSession::Start() {
  constexpr const char* kStart = "TxImpersonateSession::Start()";
  if (impersonating) return true;
  if (!userToken) {
    Log(kStart, 2, "Not initialized on session %d", sessionId);
    return false;
  }
  impersonating = platform::ImpersonateLoggedOnUser(userToken);
  if (impersonating) {
    Log(kStart, 4, "Impersonating %S on session %d started", userName.GetWide(), sessionId);
  } else {
    LogLastError(kStart, 2, "SessionID(%d) - ImpersonateLoggedOnUser() failed", sessionId);
  }
  return impersonating;
}

bool TxImpersonateSession::Stop() {
  constexpr const char* kStop = "TxImpersonateSession::Stop()";
  if (!impersonating) return true;
  if (!platform::RevertToSelf()) {
    LogLastError(kStop, 2, "SessionID(%d) - RevertToSelf() failed", sessionId);
    return false;
  }
  Log(kStop, 4, "Impersonating %S on session %d stopped", userName.GetWide(), sessionId);
  impersonating = false;
  return true;
}

void TxImpersonateSession::Reset() {
  Stop();
  const platform::TokenHandle token = std::exchange(userToken, platform::TokenHandle());
  if (token) platform::CloseHandle(token);  // closes by hand: the field is a plain handle
  sessionId = -1;
  userName.SetNarrow("", false);
  impersonating = false;
}

}  // namespace runtime
