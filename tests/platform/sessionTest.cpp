#include "platform/session.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/error.h"

namespace {

using namespace platform;

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

}  // namespace
