// What the tests of a client's start and activation share: a window in the foreground that has nothing to do with it.
#pragma once

#include "launcher/clientProcess.h"
#include "platform/handles.h"
#include "tests/platform/windowSupport.h"
#include "tests/unit/frontEndTest.h"
#include "tests/unit/heardKeys.h"

namespace unit {

class TopLevelWindow : public windowTests::TestWindow {
 public:
  TopLevelWindow() : TestWindow(u"LumenarTest_ClientProcess", {}, platform::HWND()) {}
};

class ClientProcessTest : public TracedTest {
 protected:
  ClientProcessTest() {
    EXPECT_TRUE(platform::SetForegroundWindow(before.get()));
    static_cast<void>(HeardKeys());  // Those of an earlier test's window: a thread keeps them.
  }

  TopLevelWindow before;
};

}  // namespace unit
