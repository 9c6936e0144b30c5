#include <gtest/gtest.h>

#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "platform/raii.h"
#include "platform/session.h"
#include "tests/platform/sessionSupport.h"

namespace {

using namespace platform;
using sessions::OwnSession;

// Wine cannot tell a session's state, and fails without an error.
TEST(SessionOnLinux, OfAUserIsActive) {
  void* information = nullptr;
  DWORD bytes = 0;
  ASSERT_TRUE(WTSQuerySessionInformationA(nullptr, OwnSession(), WTSConnectState, &information, &bytes));
  EXPECT_EQ(bytes, sizeof(DWORD));
  EXPECT_EQ(*static_cast<const DWORD*>(information), WTSActive);
  WTSFreeMemory(information);
}

TEST(SessionOnLinux, ThatThereIsNotHasNoState) {
  void* information = nullptr;
  DWORD bytes = 0;
  EXPECT_FALSE(WTSQuerySessionInformationA(nullptr, 7, WTSConnectState, &information, &bytes));
  EXPECT_EQ(GetLastError(), 7022u);
}

// Wine says that it has given one, and gives none.
TEST(SessionOnLinux, GivesItsUsersToken) {
  UniqueToken token;
  EXPECT_TRUE(WTSQueryUserToken(OwnSession(), token.put()));
  EXPECT_TRUE(token);
  TokenHandle none;
  EXPECT_FALSE(WTSQueryUserToken(7, &none));
  EXPECT_EQ(GetLastError(), 7022u);
}

TEST(SessionOnLinux, MayBeJoinedByOthersInATest) {
  test::SetOtherSessions({{7, WTSDisconnected}});
  void* information = nullptr;
  DWORD bytes = 0;
  ASSERT_TRUE(WTSQuerySessionInformationA(nullptr, 7, WTSConnectState, &information, &bytes));
  test::SetOtherSessions({});
  EXPECT_EQ(*static_cast<const DWORD*>(information), WTSDisconnected);
  WTSFreeMemory(information);
}

}  // namespace
