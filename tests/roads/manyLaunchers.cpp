// Launchers, and the resident helper, that post at the same time.
#include <gmock/gmock.h>

#include <algorithm>
#include <deque>
#include <string>

#include "tests/roads/commandService.h"

namespace roads {
namespace {

using testing::UnorderedElementsAreArray;

std::u16string UrlOf(int number) { return u"https://example.com/" + support::Wide(std::to_string(number)); }

class ManyLaunchers : public testing::Test {
 protected:
  ManyLaunchers() { machine.SetUp(u"Agent"); }

  void StartLauncher() {
    const std::u16string url = UrlOf(static_cast<int>(expected.size()));
    launchers.push_back(machine.Start({kLaunchPrefix + url}));
    expected.push_back(CommandLine(url));
  }
  void ExpectAllArriveOnce() {
    EXPECT_THAT(Beginning(service.UntilEnded(static_cast<int>(expected.size())), "command "),
                UnorderedElementsAreArray(expected));
    for (support::Process& launcher : launchers) EXPECT_EQ(Await(launcher), 0);
    EXPECT_THAT(service.End(), testing::IsEmpty());
    EXPECT_EQ(service.Wait(), 0);
  }

  RoadMachine machine;
  CommandService service;
  Texts expected;
  std::deque<support::Process> launchers;
};

TEST_F(ManyLaunchers, TwoAtOnceBothArrive) {
  for (int i = 0; i < 2; ++i) StartLauncher();
  ExpectAllArriveOnce();
}

TEST_F(ManyLaunchers, EightAtOnceAllArrive) {
  for (int i = 0; i < 8; ++i) StartLauncher();
  ExpectAllArriveOnce();
}

TEST_F(ManyLaunchers, AndAResidentThatPostsMeanwhileAllArrive) {
  machine.StartResident();
  static_cast<void>(machine.NewLog());
  Texts posted;
  for (int i = 0; i < 4; ++i) {
    StartLauncher();
    StartLauncher();
    const std::u16string url = UrlOf(static_cast<int>(expected.size()));
    expected.push_back(CommandLine(url));
    posted.push_back(support::Narrow(url));
    EXPECT_EQ(machine.Send(kLaunchOrPost, url), 0u);
  }
  ExpectAllArriveOnce();
  EXPECT_THAT(machine.NewLog(), testing::IsSupersetOf(posted)) << "the resident logs what it has posted";
  EXPECT_EQ(machine.EndResident(), 0);
}

}  // namespace
}  // namespace roads
