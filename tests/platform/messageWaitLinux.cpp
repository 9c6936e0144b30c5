#include <gtest/gtest.h>

#include "tests/platform/windowSupport.h"
#include "tests/support/machine.h"

namespace {

using namespace platform;

// Windows documents it so: a wait has looked at the queue, and what it saw is not new any more. Wine tells again until
// the message is taken.
TEST(MessageWaitOnLinux, TellsOfAMessageThatStaysOnlyOnce) {
  const support::Machine machine;
  const windowTests::TestWindow window(u"LumenarTest_Window");
  ASSERT_TRUE(PostMessageW(window.get(), WM_USER, 0, 0));
  EXPECT_EQ(MsgWaitForMultipleObjects(0, nullptr, false, INFINITE, QS_ALLINPUT), WAIT_OBJECT_0);
  EXPECT_EQ(MsgWaitForMultipleObjects(0, nullptr, false, 0, QS_ALLINPUT), WAIT_TIMEOUT);
  MSG message{};
  EXPECT_GT(GetMessageW(&message, nullptr, 0, 0), 0);
}

}  // namespace
