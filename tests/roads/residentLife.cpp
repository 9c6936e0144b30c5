// The resident helper from its start to its end, among other residents.
#include <gmock/gmock.h>

#include "tests/roads/roadMachine.h"
#include "tests/roads/watchedProcess.h"

namespace roads {
namespace {

using testing::Contains;
using testing::IsEmpty;

// As it is logged: without a line end.
constexpr const char* kAlreadyRunning = "WinMain: URL redirection helper is already running. Exiting now.";
constexpr int kLooks = 10000;

// Waits until one of the two has ended; null when neither does.
support::Process* FirstToEnd(support::Process& one, support::Process& other) {
  for (int i = 0; i < kLooks; ++i) {
    if (EndsWithin(one, kBetweenLooks)) return &one;
    if (EndsWithin(other, 0)) return &other;
  }
  return nullptr;
}

// Waits until the process's window is there.
bool BecomesResident(const support::Process& process) {
  for (int i = 0; i < kLooks; ++i) {
    platform::DWORD owner = 0;
    if (const platform::HWND window = FindResident()) platform::GetWindowThreadProcessId(window, &owner);
    if (owner == process.Id()) return true;
    if (EndsWithin(process, kBetweenLooks)) return false;
  }
  return false;
}

TEST(Resident, EndsWithCodeZeroAndFreesItsMutex) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  machine.StartResident();
  EXPECT_EQ(machine.EndResident(), 0);
  EXPECT_FALSE(FindResident());
  machine.StartResident();
  EXPECT_EQ(machine.EndResident(), 0);
  EXPECT_THAT(machine.NewLog(), testing::Not(Contains(kAlreadyRunning)));
}

TEST(Resident, RunsOnAMachineWithoutAnySetting) {
  RoadMachine machine;
  machine.StartResident();
  EXPECT_EQ(machine.EndResident(), 0);
}

TEST(Resident, StartedASecondTimeLeavesTheFirstUntouched) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  machine.StartResident();
  const platform::HWND window = FindResident();
  static_cast<void>(machine.NewLog());

  EXPECT_EQ(machine.Run({}), 0);

  EXPECT_EQ(machine.NewLog(), Texts{kAlreadyRunning});
  EXPECT_EQ(FindResident(), window);
  EXPECT_EQ(machine.Launch(u"apppathrd/path=x"), 0);
  EXPECT_NE(machine.NextClient().find(u"path=x"), std::u16string::npos);
  EXPECT_EQ(machine.EndResident(), 0);
}

TEST(Resident, KilledKeepsNoOtherFromStarting) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  machine.StartResident();
  machine.KillResident();
  EXPECT_FALSE(FindResident());
  machine.StartResident();
  EXPECT_EQ(machine.Launch(u"apppathrd/path=x"), 0);
  EXPECT_NE(machine.NextClient().find(u"path=x"), std::u16string::npos);
  EXPECT_EQ(machine.EndResident(), 0);
}

TEST(Resident, OfTwoStartedAtOnceOneRuns) {
  for (int i = 0; i < kRepetitions; ++i) {
    RoadMachine machine;
    machine.SetUp(u"Client");
    support::Process one = machine.Start({});
    support::Process other = machine.Start({});

    support::Process* const ended = FirstToEnd(one, other);
    ASSERT_NE(ended, nullptr);
    EXPECT_EQ(ended->Wait(), 0);
    EXPECT_THAT(machine.NewLog(), Contains(kAlreadyRunning).Times(1));
    support::Process& resident = ended == &one ? other : one;
    ASSERT_TRUE(BecomesResident(resident));

    platform::PostMessageW(FindResident(), platform::WM_DESTROY, 0, 0);
    EXPECT_EQ(Await(resident), 0);
  }
}

// It does not answer within the time that launchers have.
TEST(BusyResident, LosesWhatLaunchersSendAndTheyEndAllTheSame) {
  RoadMachine machine;
  machine.SetUp(u"Client", u"nothing");
  machine.StartResident();
  static_cast<void>(machine.NewLog());

  Suspend(machine.Resident());
  EXPECT_EQ(machine.Launch(u"#createConfigData"), 0);
  EXPECT_EQ(machine.Launch(u"apppathrd/path=x"), 0);
  Resume(machine.Resident());

  EXPECT_TRUE(machine.Settle());
  EXPECT_THAT(machine.NewLog(), IsEmpty());
  machine.SetAllowlist(u".");
  EXPECT_EQ(machine.Launch(u"apppathrd/path=y"), 0);
  EXPECT_NE(machine.NextClient().find(u"path=y"), std::u16string::npos);
  EXPECT_EQ(machine.EndResident(), 0);
}

}  // namespace
}  // namespace roads
