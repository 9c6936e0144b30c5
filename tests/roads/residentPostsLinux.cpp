// What the resident helper keeps of its posts, where the system counts its descriptors and threads for us.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <string>
#include <thread>

#include "tests/roads/commandService.h"

namespace roads {
namespace {

constexpr std::uintptr_t kLaunchOrPost = 501;
constexpr int kPosts = 20;  // Of each round.
constexpr int kRounds = 5;

long EntriesOf(const support::Process& process, const std::string& folder) {
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(process.Id()) + "/" + folder);
  return std::distance(entries, std::filesystem::directory_iterator());
}

// Over several posts: with one it may not have closed the connection of its last sender yet.
struct Kept {
  template <class Post>
  Kept(const support::Process& resident, const Post& post) {
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
  const Kept early(machine.Resident(), post);
  for (int i = 0; i < kPosts * kRounds; ++i) post();
  const Kept late(machine.Resident(), post);
  EXPECT_LE(late.fewestDescriptors, early.mostDescriptors);
  // Whenever they were first needed, so many threads of the pool stay.
  EXPECT_LE(late.threads, early.threads + std::thread::hardware_concurrency());
  EXPECT_EQ(machine.EndResident(), 0);
}

}  // namespace
}  // namespace roads
