#include "runtime/impersonateSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/session.h"
#include "runtime/processUtils.h"
#include "tests/runtime/logLines.h"
#include "tests/runtime/noSession.h"

namespace {

using runtime::TxImpersonateSession;
using runtimeTests::kNoSession;
using runtimeTests::LogLines;
using testing::ElementsAre;
using testing::IsEmpty;
namespace ProcessUtils = runtime::ProcessUtils;

TEST(GetSessionID, IsTheOneThatItIsGiven) {
  EXPECT_EQ(ProcessUtils::GetSessionID(true, 0), 0u);
  EXPECT_EQ(ProcessUtils::GetSessionID(false, 0xFFFFFFFE), 0xFFFFFFFEu);
}

TEST(GetSessionID, IsElseThatOfTheProcessAndSaysNothing) {
  const LogLines lines;
  platform::DWORD own = 0;
  ASSERT_TRUE(platform::ProcessIdToSessionId(platform::GetCurrentProcessId(), &own));
  EXPECT_EQ(ProcessUtils::GetSessionID(false, kNoSession), own);
  EXPECT_EQ(ProcessUtils::GetSessionID(true, kNoSession), own);
  EXPECT_THAT(lines.All(), IsEmpty());
}

TEST(GetUserName, IsThatOfTheProcesssUser) {
  char16_t name[260] = {};
  platform::DWORD size = 260;
  ASSERT_TRUE(platform::GetUserNameW(name, &size));
  EXPECT_EQ(ProcessUtils::GetUserName(kNoSession), std::u16string(name));
}

TEST(TxImpersonateSession, BeginsEmpty) {
  const TxImpersonateSession session;
  EXPECT_EQ(session.SessionId(), -1);
  EXPECT_FALSE(session.UserToken());
  EXPECT_FALSE(session.Impersonating());
}

TEST(TxImpersonateSession, ThatHoldsNoSessionDoesNotStart) {
  const LogLines lines;
  TxImpersonateSession session;
  EXPECT_FALSE(session.Start());
  EXPECT_THAT(lines.All(), ElementsAre("W TxImpersonateSession::Start(): Not initialized on session -1"));
}

TEST(TxImpersonateSession, ThatHasNotStartedStopsAndIsReset) {
  const LogLines lines;
  TxImpersonateSession session;
  EXPECT_TRUE(session.Stop());
  session.Reset();
  EXPECT_THAT(lines.All(), IsEmpty());
}

TEST(TxImpersonateSession, OfASessionThatThereIsNotIsRefused) {
  const LogLines lines;
  TxImpersonateSession session;
  EXPECT_FALSE(session.Init(54'321));
  EXPECT_THAT(lines.All(),
              ElementsAre(testing::StartsWith("E TxImpersonateSession::Init(): Invalid session ID 54321; (")));
  EXPECT_EQ(session.SessionId(), -1);
}

}  // namespace
