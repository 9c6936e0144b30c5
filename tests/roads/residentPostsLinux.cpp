// What the resident helper keeps of its posts, where the system counts its descriptors and threads for us.
#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <thread>

#include "tests/roads/commandService.h"

namespace roads {
namespace {

constexpr std::uintptr_t kLaunchOrPost = 501;
constexpr int kFirstPosts = 20;
constexpr int kPosts = 100;

long EntriesOf(const support::Process& process, const std::string& folder) {
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(process.Id()) + "/" + folder);
  return std::distance(entries, std::filesystem::directory_iterator());
}

TEST(ResidentThatPosts, OverAndOverKeepsNoDescriptorsOrThreads) {
  RoadMachine machine;
  machine.SetUp(u"Agent");
  machine.StartResident();
  CommandService service;
  const auto post = [&](int count) {
    for (int i = 0; i < count; ++i) {
      ASSERT_EQ(machine.Send(kLaunchOrPost, u"https://example.com/"), 0u);
      ASSERT_THAT(service.UntilEnded(1), testing::SizeIs(7));
    }
  };
  post(kFirstPosts);
  const long descriptors = EntriesOf(machine.Resident(), "fd");
  const long threads = EntriesOf(machine.Resident(), "task");
  post(kPosts);
  EXPECT_LE(EntriesOf(machine.Resident(), "fd"), descriptors);
  // Whenever they were first needed, so many threads of the pool stay.
  EXPECT_LE(EntriesOf(machine.Resident(), "task"), threads + std::thread::hardware_concurrency());
  EXPECT_EQ(machine.EndResident(), 0);
}

}  // namespace
}  // namespace roads
