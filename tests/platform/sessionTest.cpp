#include "platform/session.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "platform/error.h"
#include "platform/raii.h"
#include "tests/platform/sessionSupport.h"

namespace {

using namespace platform;
using sessions::OwnSession;

TEST(UserName, IsCountedWithItsNul) {
  char16_t name[260] = {};
  DWORD size = 260;
  ASSERT_TRUE(GetUserNameW(name, &size));
  const std::u16string text = name;
  EXPECT_FALSE(text.empty());
  EXPECT_EQ(size, text.size() + 1);
}

TEST(UserName, ThatDoesNotFitReportsTheSizeAndLeavesTheBuffer) {
  char16_t name[260] = {};
  DWORD needed = 260;
  ASSERT_TRUE(GetUserNameW(name, &needed));
  DWORD size = needed - 1;
  char16_t small[260] = u"untouched";
  EXPECT_FALSE(GetUserNameW(small, &size));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(size, needed);
  size = needed;
  EXPECT_TRUE(GetUserNameW(small, &size));
  EXPECT_EQ(std::u16string(small), std::u16string(name));
}

// A token that the thread can impersonate: a copy of the process's own.
UniqueToken OwnToken() {
  UniqueToken source;
  UniqueToken token;
  EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_DUPLICATE, source.put()));
  EXPECT_TRUE(DuplicateTokenEx(source.get(), TOKEN_FOR_IMPERSONATION, nullptr, SecurityImpersonation, TokenPrimary,
                               token.put()));
  return token;
}

TEST(Session, OfThisProcessIsNotThatOfServices) { EXPECT_GT(OwnSession(), 0u); }

TEST(Session, OfNoProcessCannotBeTold) {
  DWORD session = 77;
  EXPECT_FALSE(ProcessIdToSessionId(0x7FFFFFF1, &session));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(session, 77u);
}

TEST(Session, HasItsUsersName) {
  char16_t name[260] = {};
  DWORD size = 260;
  ASSERT_TRUE(GetUserNameW(name, &size));
  void* information = nullptr;
  DWORD bytes = 0;
  ASSERT_TRUE(WTSQuerySessionInformationW(nullptr, OwnSession(), WTSUserName, &information, &bytes));
  EXPECT_EQ(std::u16string(static_cast<const char16_t*>(information)), std::u16string(name));
  EXPECT_EQ(bytes, size * sizeof(char16_t));
  WTSFreeMemory(information);
}

TEST(ThreadToken, IsThereWhileTheThreadImpersonates) {
  TokenHandle none;
  EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, false, &none));
  EXPECT_EQ(GetLastError(), ERROR_NO_TOKEN);
  const UniqueToken token = OwnToken();
  ASSERT_TRUE(ImpersonateLoggedOnUser(token.get()));
  UniqueToken opened;
  EXPECT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, false, opened.put()));
  EXPECT_TRUE(RevertToSelf());
  EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, false, &none));
  EXPECT_EQ(GetLastError(), ERROR_NO_TOKEN);
}

TEST(ThreadToken, BelongsToOneThread) {
  const UniqueToken token = OwnToken();
  ASSERT_TRUE(ImpersonateLoggedOnUser(token.get()));
  std::thread([] {
    TokenHandle none;
    EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, false, &none));
    EXPECT_EQ(GetLastError(), ERROR_NO_TOKEN);
  }).join();
  EXPECT_TRUE(RevertToSelf());
}

TEST(ThreadToken, TellsItsSession) {
  const UniqueToken token = OwnToken();
  ASSERT_TRUE(ImpersonateLoggedOnUser(token.get()));
  UniqueToken opened;
  ASSERT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, false, opened.put()));
  EXPECT_TRUE(RevertToSelf());
  DWORD session = 0;
  DWORD needed = 0;
  EXPECT_TRUE(GetTokenInformation(opened.get(), TokenSessionId, &session, sizeof session, &needed));
  EXPECT_EQ(needed, sizeof session);
  EXPECT_EQ(session, OwnSession());
}

TEST(Token, OfAnOpenedProcess) {
  const UniqueProcess process(OpenProcess(PROCESS_QUERY_INFORMATION, false, GetCurrentProcessId()));
  ASSERT_TRUE(process);
  UniqueToken token;
  EXPECT_TRUE(OpenProcessToken(process.get(), TOKEN_DUPLICATE, token.put()));
}

TEST(Token, OfNoProcessIsNone) {
  EXPECT_FALSE(OpenProcess(PROCESS_QUERY_INFORMATION, false, 0x7FFFFFF1));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  TokenHandle token;
  EXPECT_FALSE(OpenProcessToken(ProcessHandle(), TOKEN_DUPLICATE, &token));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(Token, ThatIsClosedIsNone) {
  UniqueToken token = OwnToken();
  const TokenHandle closed = token.get();
  token.reset();
  EXPECT_FALSE(ImpersonateLoggedOnUser(closed));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  DWORD session = 0;
  DWORD needed = 0;
  EXPECT_FALSE(GetTokenInformation(closed, TokenSessionId, &session, sizeof session, &needed));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(CloseHandle(closed));
}

}  // namespace
