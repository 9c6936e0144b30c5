// Whole lives of an impersonation, and each way in which the system can refuse one. Wine knows no session's state and
// gives nobody's token, so that the machine in a folder has to do.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/linux/testHooks.h"
#include "platform/session.h"
#include "platform/window.h"
#include "runtime/impersonateSession.h"
#include "runtime/processUtils.h"
#include "runtime/textFormat.h"
#include "tests/runtime/logLines.h"
#include "tests/runtime/noSession.h"
#include "tests/support/machine.h"

namespace {

using runtime::Format;
using runtime::TxImpersonateSession;
using runtimeTests::kNoSession;
using runtimeTests::LogLines;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
namespace ProcessUtils = runtime::ProcessUtils;

constexpr const char* kToken = "TxImpersonateSession::GetUserToken()";

class Impersonation : public testing::Test {
 protected:
  ~Impersonation() override {
    platform::test::DisarmFaults();
    platform::test::SetOtherSessions({});
  }

  static void Fail(const char* call, platform::DWORD error = platform::ERROR_PRIVILEGE_NOT_HELD) {
    platform::test::ArmFaultsOf(call, error);
  }

  const support::Machine machine;
  const std::uint32_t own = ProcessUtils::GetSessionID(false, kNoSession);
  const std::u16string user = ProcessUtils::GetUserName(own);
  TxImpersonateSession session;
};

bool ThreadHasToken() {
  platform::TokenHandle token;
  if (!platform::OpenThreadToken(platform::GetCurrentThread(), platform::TOKEN_QUERY, false, &token)) return false;
  platform::CloseHandle(token);  // closes by hand: nobody owns what the call gives out
  return true;
}

// What stands where the user's shell would: a first window of its class.
class Shell {
 public:
  Shell() {
    platform::WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.lpfnWndProc = &platform::DefWindowProcW;
    windowClass.lpszClassName = u"Progman";
    platform::RegisterClassExW(&windowClass);
    window_ = platform::CreateWindowExW(0, u"Progman", nullptr, 0, 0, 0, 0, 0, {}, nullptr, {}, nullptr);
    EXPECT_TRUE(window_);
  }
  ~Shell() { platform::DestroyWindow(window_); }
  Shell(const Shell&) = delete;
  Shell& operator=(const Shell&) = delete;
  [[nodiscard]] platform::HWND Window() const { return window_; }

 private:
  platform::HWND window_;
};

TEST_F(Impersonation, StartsAndStopsAndIsReset) {
  const LogLines lines;
  ASSERT_TRUE(session.Init(own));
  EXPECT_EQ(session.SessionId(), static_cast<std::int32_t>(own));
  EXPECT_THAT(lines.All(),
              ElementsAre("V " + Format("%s: SessionID(%d) - user token 0x%p [OK]", kToken, own, session.UserToken())));
  EXPECT_TRUE(session.Start());
  EXPECT_TRUE(ThreadHasToken());
  EXPECT_TRUE(session.Start());
  EXPECT_TRUE(session.Stop());
  EXPECT_FALSE(ThreadHasToken());
  EXPECT_TRUE(session.Stop());
  EXPECT_THAT(lines.Of("D "),
              ElementsAre(Format("D TxImpersonateSession::Start(): Impersonating %S on session %d started", user, own),
                          Format("D TxImpersonateSession::Stop(): Impersonating %S on session %d stopped", user, own)));
  session.Reset();
  EXPECT_EQ(session.SessionId(), -1);
  EXPECT_FALSE(session.UserToken());
}

TEST_F(Impersonation, OfNoSessionInParticularIsThatOfTheProcess) {
  ASSERT_TRUE(session.Init(kNoSession));
  EXPECT_EQ(session.SessionId(), static_cast<std::int32_t>(own));
}

TEST_F(Impersonation, EndsWithItsObject) {
  const LogLines lines;
  {
    TxImpersonateSession other;
    ASSERT_TRUE(other.Init(own));
    ASSERT_TRUE(other.Start());
  }
  EXPECT_FALSE(ThreadHasToken());
  EXPECT_THAT(lines.Of("D TxImpersonateSession::Stop()"), testing::SizeIs(1));
}

TEST_F(Impersonation, OfSessionZeroIsRefused) {
  platform::test::SetOtherSessions({{0, platform::WTSDisconnected}});
  const LogLines lines;
  EXPECT_FALSE(session.Init(0));
  EXPECT_THAT(lines.All(), ElementsAre(Format("W %s: SessionID(0) - Impersonating session 0 not allowed", kToken),
                                       "E TxImpersonateSession::Init(): Failed to get user token for session 0"));
}

TEST_F(Impersonation, OfASessionWhereNobodyIsLoggedOnIsRefused) {
  constexpr platform::DWORD kListening = 6;
  platform::test::SetOtherSessions({{9, kListening}});
  const LogLines lines;
  EXPECT_FALSE(session.Init(9));
  EXPECT_THAT(lines.All(), ElementsAre(Format("W %s: SessionID(9) - Nobody is logged on", kToken),
                                       "E TxImpersonateSession::Init(): Failed to get user token for session 9"));
}

TEST_F(Impersonation, OfAUserWhoIsDisconnectedIsGranted) {
  platform::test::SetOtherSessions({{9, platform::WTSDisconnected}});
  EXPECT_TRUE(session.Init(9));
  EXPECT_EQ(session.SessionId(), 9);
}

TEST_F(Impersonation, TakesAnotherSessionInTheFirstOnesPlace) {
  platform::test::SetOtherSessions({{9, platform::WTSActive}});
  ASSERT_TRUE(session.Init(own));
  EXPECT_TRUE(session.Init(9));
  EXPECT_EQ(session.SessionId(), 9);
}

TEST_F(Impersonation, OfAnotherSessionIsRefusedWhileImpersonating) {
  platform::test::SetOtherSessions({{9, platform::WTSActive}});
  ASSERT_TRUE(session.Init(own));
  ASSERT_TRUE(session.Start());
  const LogLines lines;
  EXPECT_FALSE(session.Init(9));
  EXPECT_THAT(lines.All(),
              ElementsAre(Format("E TxImpersonateSession::Init(): Attempt to impersonate session 9 ignored, already "
                                 "impersonating session %d",
                                 own)));
  EXPECT_TRUE(session.Stop());
}

TEST_F(Impersonation, HasNothingToFallBackOnInAnotherSession) {
  const Shell shell;
  platform::test::SetOtherSessions({{9, platform::WTSActive}});
  const LogLines lines;
  Fail("WTSQueryUserToken");
  EXPECT_FALSE(session.Init(9));
  EXPECT_THAT(lines.All(),
              ElementsAre(StartsWith(Format("E %s: SessionID(9) - WTSQueryUserToken() failed; (1314) ", kToken)),
                          "E TxImpersonateSession::Init(): Failed to get user token for session 9"));
}

TEST_F(Impersonation, OfTheSessionThatIsHeldKeepsTheTokenAndSaysSo) {
  ASSERT_TRUE(session.Init(own));
  const platform::TokenHandle token = session.UserToken();
  const LogLines lines;
  EXPECT_TRUE(session.Init(own));
  EXPECT_EQ(session.UserToken(), token);
  EXPECT_THAT(lines.All(),
              ElementsAre(Format("W TxImpersonateSession::Init(): Already impersonating session %d", own)));
}

TEST_F(Impersonation, OfAnObjectThatImpersonatesStaysWithASessionThatThereIsNot) {
  ASSERT_TRUE(session.Init(own));
  ASSERT_TRUE(session.Start());
  EXPECT_FALSE(session.Init(own + 1));
  EXPECT_TRUE(session.Impersonating());
  EXPECT_TRUE(session.Stop());
}

TEST_F(Impersonation, FallsBackOnTheShellsTokenInTheProcesssOwnSession) {
  const Shell shell;
  const LogLines lines;
  Fail("WTSQueryUserToken");
  EXPECT_TRUE(session.Init(own));
  platform::test::DisarmFaults();
  EXPECT_THAT(lines.All(),
              ElementsAre(StartsWith(Format("E %s: SessionID(%d) - WTSQueryUserToken() failed; (1314) ", kToken, own)),
                          StartsWith(Format("V %s: SessionID(%d) - user token 0x", kToken, own))));
  EXPECT_TRUE(session.Start());
  EXPECT_TRUE(session.Stop());
}

TEST_F(Impersonation, HasNothingToFallBackOnWithoutAShell) {
  const LogLines lines;
  Fail("WTSQueryUserToken");
  EXPECT_FALSE(session.Init(own));
  EXPECT_THAT(lines.All(),
              ElementsAre(StartsWith(Format("E %s: SessionID(%d) - WTSQueryUserToken() failed; (1314) ", kToken, own)),
                          StartsWith(Format("E %s: SessionID(%d) - GetShellWindow() failed; (", kToken, own)),
                          Format("E TxImpersonateSession::Init(): Failed to get user token for session %d", own)));
  EXPECT_EQ(session.SessionId(), -1);
}

TEST_F(Impersonation, OfAUserWithoutATokenToCopyFails) {
  const LogLines lines;
  Fail("DuplicateTokenEx");
  EXPECT_FALSE(session.Init(own));
  EXPECT_THAT(lines.All(),
              ElementsAre(testing::ContainsRegex(Format("E TxImpersonateSession::GetUserToken.*SessionID.%d. - "
                                                        "DuplicateTokenEx.0x[0-9A-F]+. failed; .1314. ",
                                                        own)),
                          Format("E TxImpersonateSession::Init(): Failed to get user token for session %d", own)));
}

TEST_F(Impersonation, ThatTheSystemRefusesToStartHasNotStarted) {
  ASSERT_TRUE(session.Init(own));
  const LogLines lines;
  Fail("ImpersonateLoggedOnUser");
  EXPECT_FALSE(session.Start());
  EXPECT_FALSE(session.Impersonating());
  EXPECT_THAT(lines.All(),
              ElementsAre(StartsWith(Format(
                  "W TxImpersonateSession::Start(): SessionID(%d) - ImpersonateLoggedOnUser() failed; (1314) ", own))));
}

TEST_F(Impersonation, ThatTheSystemRefusesToStopGoesOn) {
  ASSERT_TRUE(session.Init(own));
  ASSERT_TRUE(session.Start());
  const LogLines lines;
  Fail("RevertToSelf");
  EXPECT_FALSE(session.Stop());
  EXPECT_TRUE(session.Impersonating());
  platform::test::DisarmFaults();
  EXPECT_THAT(lines.All(),
              ElementsAre(StartsWith(
                  Format("W TxImpersonateSession::Stop(): SessionID(%d) - RevertToSelf() failed; (1314) ", own))));
  EXPECT_TRUE(session.Stop());
}

TEST_F(Impersonation, IsEmptyAfterAResetThatCouldNotRevert) {
  ASSERT_TRUE(session.Init(own));
  ASSERT_TRUE(session.Start());
  Fail("RevertToSelf");
  session.Reset();
  platform::test::DisarmFaults();
  EXPECT_EQ(session.SessionId(), -1);
  EXPECT_FALSE(session.Impersonating());
  EXPECT_FALSE(session.UserToken());
  EXPECT_TRUE(platform::RevertToSelf());
}

TEST_F(Impersonation, IsSeenByGetSessionID) {
  ASSERT_TRUE(session.Init(own));
  ASSERT_TRUE(session.Start());
  Fail("ProcessIdToSessionId");
  EXPECT_EQ(ProcessUtils::GetSessionID(true, kNoSession), own);
  platform::test::DisarmFaults();
  EXPECT_TRUE(session.Stop());
}

// The steps of the way over the shell, and the line that each one's failure leaves.
struct Step {
  const char* call;
  const char* line;
};

class ShellsToken : public testing::TestWithParam<Step> {
 protected:
  ~ShellsToken() override { platform::test::DisarmFaults(); }
};

INSTANTIATE_TEST_SUITE_P(, ShellsToken,
                         testing::Values(Step{"GetShellWindow", "GetShellWindow() failed; ("},
                                         Step{"GetWindowThreadProcessId", "GetWindowThreadProcessId(0x"},
                                         Step{"OpenProcess", "OpenProcess(0x"},
                                         Step{"OpenProcessToken", "OpenProcessToken(0x"}),
                         [](const auto& test) { return test.param.call; });

TEST_P(ShellsToken, IsNotHadWhenAStepToItFails) {
  const support::Machine machine;
  const Shell shell;
  const std::uint32_t own = ProcessUtils::GetSessionID(false, kNoSession);
  TxImpersonateSession session;
  const LogLines lines;
  platform::test::ArmFaultsOf({"WTSQueryUserToken", GetParam().call}, 5);
  EXPECT_FALSE(session.Init(own));
  ASSERT_EQ(lines.All().size(), 3u);
  EXPECT_THAT(lines.All()[1], StartsWith(Format("E %s: SessionID(%d) - %s", kToken, own, GetParam().line)));
  EXPECT_THAT(lines.All()[1], testing::HasSubstr(" failed; (5) Access is denied"));
}

class SessionFaults : public Impersonation {};

TEST_F(SessionFaults, OfTheThreadsTokenAreLoggedAndTheProcesssSessionIsTaken) {
  const LogLines lines;
  Fail("OpenThreadToken", 5);
  EXPECT_EQ(ProcessUtils::GetSessionID(true, kNoSession), own);
  EXPECT_THAT(lines.All(),
              ElementsAre(StartsWith("E ProcessUtils::GetSessionID(): OpenThreadToken(0xfffffffe) failed; (5) ")));
}

TEST_F(SessionFaults, OfATokenThatTellsNothingAreLoggedAndTheProcesssSessionIsTaken) {
  ASSERT_TRUE(session.Init(own));
  ASSERT_TRUE(session.Start());
  const LogLines lines;
  Fail("GetTokenInformation", 5);
  EXPECT_EQ(ProcessUtils::GetSessionID(true, kNoSession), own);
  platform::test::DisarmFaults();
  EXPECT_THAT(lines.All(), ElementsAre(StartsWith("E ProcessUtils::GetSessionID(): GetTokenInformation(0x")));
  EXPECT_TRUE(session.Stop());
}

TEST_F(SessionFaults, OfTheProcessAreLoggedAndThereIsNone) {
  const LogLines lines;
  Fail("ProcessIdToSessionId", 5);
  EXPECT_EQ(ProcessUtils::GetSessionID(false, kNoSession), kNoSession);
  EXPECT_THAT(lines.All(),
              ElementsAre(StartsWith(Format("E ProcessUtils::GetSessionID(): ProcessIdToSessionId(%d) failed; (5) ",
                                            platform::GetCurrentProcessId()))));
}

TEST_F(SessionFaults, OfTheUsersNameLeaveItEmpty) {
  Fail("WTSQuerySessionInformationW", 5);
  EXPECT_EQ(ProcessUtils::GetUserName(own), u"");
}

}  // namespace
