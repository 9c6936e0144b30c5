// Running under the identity of the user who has logged on to a session.
#pragma once

#include <cstdint>

#include "platform/session.h"
#include "runtime/rcObject.h"
#include "runtime/xString.h"

namespace runtime {

// Begins empty; holds a session's token from Init to Reset; impersonates from Start to Stop. Impersonation is that of
// the calling thread: start and stop on the same one. Not for several threads at a time. Every failure is logged.
class TxImpersonateSession : public RCObject {
 public:
  static constexpr std::uint32_t kOwnSession = 0xFFFFFFFF;

  TxImpersonateSession() = default;
  ~TxImpersonateSession() override;

  // True when the token of the session's user is held. A session that is held already keeps its token; another one
  // takes its place, but not while impersonating. Session 0, which has no user, is refused.
  bool Init(std::uint32_t session);
  // True when the thread acts as the user, also when it did already.
  bool Start();
  // True when the thread acts as itself.
  bool Stop();
  // Back to empty, whatever fails.
  void Reset();

  [[nodiscard]] std::int32_t SessionId() const noexcept { return sessionId; }
  [[nodiscard]] bool Impersonating() const noexcept { return impersonating; }
  [[nodiscard]] platform::TokenHandle UserToken() const noexcept { return userToken; }

 private:
  // The order of the fields is settled.
  std::int32_t sessionId = -1;
  platform::TokenHandle userToken;
  bool impersonating = false;
  StringUtils::XString userName;
};

}  // namespace runtime
