// The start of a client, and the activation of its window step by step: counted, as only Linux can. Here a key goes to
// the window that is in the foreground while it is pressed, which tells the order.
#include <set>
#include <string>

#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "tests/platform/programOnDrive.h"
#include "tests/unit/clientProcessTest.h"

namespace unit {
namespace {

using launcher::ActivateLaunchedWindowCB;
using platform::GetForegroundWindow;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

// The calls that make up a start and an activation, as they came.
template <class Work>
std::vector<std::string> StepsOf(Work work) {
  static const std::set<std::string> steps{"CreateProcessW",           "WaitForInputIdle", "EnumWindows",
                                           "GetWindowThreadProcessId", "SendInput",        "SetForegroundWindow"};
  platform::test::ArmFaults(0, false, platform::ERROR_SUCCESS);
  work();
  platform::test::DisarmFaults();
  std::vector<std::string> calls = platform::test::CountedCalls();
  std::erase_if(calls, [](const std::string& call) { return !steps.contains(call); });
  return calls;
}

class ClientProcess : public ClientProcessTest {
 protected:
  ~ClientProcess() override { platform::test::DisarmFaults(); }

  void ExpectSilence() const {
    EXPECT_THAT(helper.HandOffs(), IsEmpty());
    EXPECT_THAT(log.Texts(), IsEmpty());
  }
};

TEST_F(ClientProcess, WhoseWindowIsFoundGetsAltAroundItsActivation) {
  const TopLevelWindow launched;
  const auto activate = [&] { ActivateLaunchedWindowCB(launched.get(), platform::GetCurrentProcessId()); };
  EXPECT_THAT(StepsOf(activate),
              ElementsAre("GetWindowThreadProcessId", "SendInput", "SetForegroundWindow", "SendInput"));
  EXPECT_THAT(HeardKeys(),
              ElementsAre(Field(&HeardKey::window, before.get()), Field(&HeardKey::window, launched.get())));
}

TEST_F(ClientProcess, WhoseWindowCannotComeForwardLetsAltGoAllTheSame) {
  const TopLevelWindow launched;
  platform::test::ArmFaultsOf("SetForegroundWindow", platform::ERROR_ACCESS_DENIED);
  EXPECT_FALSE(ActivateLaunchedWindowCB(launched.get(), platform::GetCurrentProcessId()));
  platform::test::DisarmFaults();
  EXPECT_THAT(HeardKeys(),
              ElementsAre(Field(&HeardKey::message, WM_SYSKEYDOWN), Field(&HeardKey::message, WM_SYSKEYUP)));
}

TEST_F(ClientProcess, OfAnotherWindowIsNotTouched) {
  const auto passOver = [&] { ActivateLaunchedWindowCB(before.get(), platform::GetCurrentProcessId() + 1); };
  EXPECT_THAT(StepsOf(passOver), ElementsAre("GetWindowThreadProcessId"));
}

TEST_F(ClientProcess, WithTwoWindowsHasOneOfThemActivated) {
  const TopLevelWindow second;
  const auto search = [] {
    platform::EnumWindows(&ActivateLaunchedWindowCB, static_cast<platform::LPARAM>(platform::GetCurrentProcessId()));
  };
  EXPECT_THAT(StepsOf(search),
              ElementsAre("EnumWindows", "GetWindowThreadProcessId", "SendInput", "SetForegroundWindow", "SendInput"));
}

TEST_F(ClientProcess, IsFoundAmongTheWindowsOfOthers) {
  const support::Process client = windowTests::StartReceiver(true);
  EXPECT_FALSE(platform::EnumWindows(&ActivateLaunchedWindowCB, static_cast<platform::LPARAM>(client.Id())));
  EXPECT_EQ(GetForegroundWindow(), windowTests::FindReceiver());
}

// It has none for good, and nobody looks a second time.
TEST_F(ClientProcess, WithoutAWindowIsSearchedForOnceAndNothingIsActivatedOrSaid) {
  const std::u16string line =
      u'"' + programs::Put(machine, u"client.exe") + u'"' + std::u16string(programs::kEndsAtOnce);
  EXPECT_THAT(StepsOf([&] { launcher::StartClientProcess(line); }),
              ElementsAre("CreateProcessW", "WaitForInputIdle", "EnumWindows", "GetWindowThreadProcessId"));
  EXPECT_EQ(GetForegroundWindow(), before.get());
  EXPECT_THAT(HeardKeys(), IsEmpty());
  ExpectSilence();
}

TEST_F(ClientProcess, ThatCannotBeStartedIsNeitherSearchedForNorReported) {
  EXPECT_THAT(StepsOf([] { launcher::StartClientProcess(u"C:\\no-such-program.exe"); }), ElementsAre("CreateProcessW"));
  EXPECT_EQ(GetForegroundWindow(), before.get());
  ExpectSilence();
}

}  // namespace
}  // namespace unit
