// Which window is taken for that of a started client, and what is done with it. This process stands for the client.
#include "tests/unit/clientProcessTest.h"

namespace unit {
namespace {

using launcher::ActivateLaunchedWindowCB;
using platform::GetForegroundWindow;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using LaunchedWindow = ClientProcessTest;

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
  const TopLevelWindow launched;
  EXPECT_FALSE(ActivateLaunchedWindowCB(launched.get(), platform::GetCurrentProcessId()));
  EXPECT_EQ(GetForegroundWindow(), launched.get());
}

TEST_F(LaunchedWindow, OfTheClientComesForwardWithAltPressedOnceAndLetGo) {
  const TopLevelWindow launched;
  ActivateLaunchedWindowCB(launched.get(), platform::GetCurrentProcessId());
  EXPECT_THAT(HeardKeys(), ElementsAre(IsAlt(WM_SYSKEYDOWN), IsAlt(WM_SYSKEYUP)));
}

}  // namespace
}  // namespace unit
