#include <gtest/gtest.h>
#include "tests/platform/windowSupport.h"
#include "tests/support/machine.h"

using namespace platform;
using namespace windowTests;

TEST(MessageBox, IsALineOfErrorOutput) {
  const support::Machine machine;
  support::Process child = support::StartChild("ShowsAMessage");
  EXPECT_EQ(child.Wait(), 1);
  EXPECT_EQ(child.ErrorOutput(), "--url: No \xC3\xA4pp.\n");
}

TEST(ForegroundWindow, IsNoneOnceItsProcessHasEnded) {
  const support::Machine machine;
  EXPECT_FALSE(GetForegroundWindow());
  support::Process receiver = StartReceiver(true);
  const HWND window = FindReceiver();
  ASSERT_TRUE(SetForegroundWindow(window));
  EXPECT_EQ(GetForegroundWindow(), window);
  receiver.Kill();
  receiver.Wait();
  EXPECT_FALSE(GetForegroundWindow());
}
