// Launchers of an agent whose calls fail on the way to a service that lives, next to a resident helper whose calls do
// not. Whatever fails, a launcher's URL is posted once or not at all.
//
// Some failures leave a link that does not end by itself, and such a launcher waits for it twice ten seconds before it
// cuts it off. So there are always a number of launchers on their way, each with a URL of its own.
#include <deque>
#include <set>

#include "tests/fault/faultWalkLinux.h"
#include "tests/fault/liveServiceLinux.h"

namespace fault {
namespace {

constexpr std::size_t kAtATime = 16;

class Post : public FaultWalk {
 protected:
  struct Launch {
    unsigned at;
    FaultedProcess process;
  };

  static std::string UrlOf(unsigned at) { return AppPath() + "-" + std::to_string(at); }

  Launch Start(const FaultMachine& machine, unsigned at) {
    return {at, FaultedProcess({LaunchUrl(UrlOf(at))}, FaultAt(at), machine.ReportPath(std::to_string(at)))};
  }

  // Whether a call has failed.
  bool Judge(Launch& launch) {
    Outcome outcome{.ending = launch.process.AwaitEnd(), .log = {}};
    ShowIfWanted(launch.at, outcome);
    CheckEnd(outcome, {.log = {}, .unless = {}, .residentIsUp = true});
    if (HasFailure()) ADD_FAILURE() << Told(launch.at, outcome.ending);
    const bool failed = !outcome.ending.FirstFailedCall().empty();
    if (!failed) flawless_.insert(UrlOf(launch.at));
    return failed;
  }

  // Until nothing has failed in a launch, or something has gone wrong.
  void WalkLaunches(const FaultMachine& machine) {
    std::deque<Launch> launches;
    const auto only = OnlyCall();
    unsigned next = only.value_or(1);
    bool goesOn = true;
    do {
      for (; goesOn && launches.size() < (only ? 1 : kAtATime); next += kStep) launches.push_back(Start(machine, next));
      goesOn = Judge(launches.front()) && !only && !HasFailure() && goesOn;
      launches.pop_front();
    } while (goesOn || !launches.empty());
  }

  void ExpectPosted(const std::map<std::string, int>& posted) const {
    for (const auto& [url, times] : posted) EXPECT_EQ(times, 1) << url;
    for (const std::string& url : flawless_) EXPECT_TRUE(posted.contains(url)) << url;
  }

 private:
  std::set<std::string> flawless_;  // The URLs of those launches in which nothing failed.
};

TEST_P(Post, ByLaunchers) {
  const FaultMachine machine(u"Agent");
  Healthy resident(machine);
  ASSERT_TRUE(resident.AwaitServing());
  LiveService service;
  WalkLaunches(machine);
  ExpectPosted(service.End());
  ASSERT_TRUE(EndResident());
  EXPECT_EQ(resident.AwaitEnd().exitCode, 0);
}

INSTANTIATE_TEST_SUITE_P(Calls, Post, testing::Values(Mode::Once, Mode::FromThereOn), ModeName);

}  // namespace
}  // namespace fault
