// Which window is taken for that of a started client, and what is done with it. The process that stands for the client
// is this one, or one whose window is not the client's.
#include "launcher/clientProcess.h"

#include "platform/handles.h"
#include "tests/platform/windowSupport.h"
#include "tests/unit/frontEndTest.h"
#include "tests/unit/heardKeys.h"

namespace unit {
namespace {

using launcher::ActivateLaunchedWindowCB;
using platform::GetForegroundWindow;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using windowTests::TestWindow;

constexpr const char16_t* kClass = u"LumenarTest_ClientProcess";

class LaunchedWindow : public FrontEndTest {
 protected:
  LaunchedWindow() {
    EXPECT_TRUE(platform::SetForegroundWindow(before.get()));
    static_cast<void>(HeardKeys());  // Those of an earlier test's window: a thread keeps them.
  }

  TestWindow before{kClass, {}, platform::HWND()};
};

auto IsAlt(platform::UINT message) {
  return AllOf(Field(&HeardKey::message, message), Field(&HeardKey::key, platform::VK_MENU));
}

TEST_F(LaunchedWindow, OfAnotherProcessIsPassedOverAndNoKeyIsPressed) {
  const support::Process other = windowTests::StartReceiver(true);
  EXPECT_TRUE(ActivateLaunchedWindowCB(windowTests::FindReceiver(), platform::GetCurrentProcessId()));
  EXPECT_TRUE(ActivateLaunchedWindowCB(before.get(), other.Id()));
  EXPECT_EQ(GetForegroundWindow(), before.get());
  EXPECT_THAT(HeardKeys(), IsEmpty());
}

TEST_F(LaunchedWindow, OfTheClientComesForwardAndTheSearchEnds) {
  const TestWindow launched(kClass, {}, platform::HWND());
  EXPECT_FALSE(ActivateLaunchedWindowCB(launched.get(), platform::GetCurrentProcessId()));
  EXPECT_EQ(GetForegroundWindow(), launched.get());
}

TEST_F(LaunchedWindow, OfTheClientComesForwardWithAltPressedOnceAndLetGo) {
  const TestWindow launched(kClass, {}, platform::HWND());
  ActivateLaunchedWindowCB(launched.get(), platform::GetCurrentProcessId());
  EXPECT_THAT(HeardKeys(), ElementsAre(IsAlt(WM_SYSKEYDOWN), IsAlt(WM_SYSKEYUP)));
}

}  // namespace
}  // namespace unit
