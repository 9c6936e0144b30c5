// A resident helper that posts for a long time: to services that come and go, and with what the system counts for us.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "tests/roads/commandService.h"

namespace roads {
namespace {

constexpr int kPosts = 20;  // Of each round.
constexpr int kRounds = 5;

long EntriesOf(const support::Process& process, const std::string& folder) {
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(process.Id()) + "/" + folder);
  return std::distance(entries, std::filesystem::directory_iterator());
}

// Over several posts: with one it may not have closed the connection of its last sender yet.
struct KeptByResident {
  template <class Post>
  KeptByResident(const support::Process& resident, const Post& post) {
    for (int i = 0; i < kPosts; ++i) {
      post();
      const long descriptors = EntriesOf(resident, "fd");
      fewestDescriptors = std::min(fewestDescriptors, descriptors);
      mostDescriptors = std::max(mostDescriptors, descriptors);
    }
    threads = EntriesOf(resident, "task");
  }

  long fewestDescriptors = std::numeric_limits<long>::max();
  long mostDescriptors = 0;
  long threads = 0;
};

TEST(ResidentThatPosts, OverAndOverKeepsNoDescriptorsOrThreads) {
  RoadMachine machine;
  machine.SetUp(u"Agent");
  machine.StartResident();
  CommandService service;
  const auto post = [&] {
    EXPECT_EQ(machine.Send(kLaunchOrPost, u"https://example.com/"), 0u);
    EXPECT_THAT(service.UntilEnded(1), testing::SizeIs(7));
  };
  for (int i = 0; i < kPosts; ++i) post();
  const KeptByResident early(machine.Resident(), post);
  for (int i = 0; i < kPosts * kRounds; ++i) post();
  const KeptByResident late(machine.Resident(), post);
  EXPECT_LE(late.fewestDescriptors, early.mostDescriptors);
  // Whenever they were first needed, so many threads of the pool stay.
  EXPECT_LE(late.threads, early.threads + std::thread::hardware_concurrency());
  EXPECT_EQ(machine.EndResident(), 0);
}

// Here alone, as a process under Wine 8 keeps its connection to a service that has ended, and calls the next one by it.
TEST(ResidentThatPosts, DoesSoAgainAfterServicesThatFailed) {
  RoadMachine machine;
  machine.SetUp(u"Agent");
  machine.StartResident();
  const auto post = [&](std::u16string_view url) { EXPECT_EQ(machine.Send(kLaunchOrPost, url), 0u); };
  const std::vector<std::vector<std::string>> faults{
      {"--refuse", "7"}, {"--die", "before-answer"}, {"--die", "in-transaction"}, {"--error"}, {"--wrong-crc"}};
  for (const std::vector<std::string>& switches : faults) {
    SCOPED_TRACE(testing::PrintToString(switches));
    {
      CommandService fails(switches);
      post(u"https://example.com/lost");
    }
    post(u"https://example.com/nobody");
    CommandService service;
    post(u"https://example.com/again");
    EXPECT_THAT(Beginning(service.UntilEnded(1), "command "),
                testing::ElementsAre("command 2 url https://example.com/again"));
  }
  EXPECT_EQ(machine.EndResident(), 0);
}

}  // namespace
}  // namespace roads
