// A service, or a client, that is killed at any moment of a stream of messages: how the other side takes it. Here
// alone, as a process costs up to a second elsewhere; tests of both targets kill one of each.
#include <gmock/gmock.h>

#include <filesystem>
#include <random>
#include <string>
#include <thread>

#include "tests/roads/libraryUser.h"

namespace roads {
namespace {

using service::ServiceProcess;
using testing::StartsWith;

constexpr int kMoments = 50;
constexpr int kSettled = 10;  // From here on a service keeps no more than it has, but for what is on its way out.
constexpr unsigned kSeed = 20;
constexpr int kMostOutstanding = 64;
constexpr int kKilled = 128 + 9;

using Random = std::mt19937;

int Draw(Random& random, int from, int to) { return std::uniform_int_distribution(from, to)(random); }

// Posts small messages, and some that take several transactions, until the stream takes no more.
void PostUntilRefused(LibraryUser& user, Random random) {
  Status status = Status::Success;
  while (status == Status::Success) {
    const int size = Draw(random, 0, 15) == 0 ? Draw(random, 50'000, 200'000) : Draw(random, 1, 200);
    status = user.Post(std::string(static_cast<std::size_t>(size), 'x'));
    user.AwaitOutstanding(kMostOutstanding);
  }
  EXPECT_EQ(status, Status::InvalidState);
}

// Waits for so many lines: each stands for a call, a transaction, a block or a message.
void AwaitLines(ServiceProcess& process, int lines) {
  for (int i = 0; i < lines; ++i) static_cast<void>(process.Next());
}

long DescriptorsOf(std::uint32_t processId) {
  const std::string folder = "/proc/" + std::to_string(processId) + "/fd";
  return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

class KilledPeer : public service::ServiceOfItsOwn {};

TEST_F(KilledPeer, LeavesAClientWithEveryMessageSentOrGivenUp) {
  Random random(kSeed);
  int givenUp = 0;
  for (int i = 0; i < kMoments && !HasFailure(); ++i) {
    SCOPED_TRACE("moment " + std::to_string(i));
    const int moment = Draw(random, 0, 300);
    const platform::GUID own = NewEndpoint();
    ServiceProcess process(own, {"--blocks"});
    process.AwaitReady();
    LibraryUser user;
    ASSERT_EQ(user.Connect(own), Status::Success);
    std::thread killer([&] {
      AwaitLines(process, moment);
      process.Kill();
    });
    PostUntilRefused(user, Random(random()));
    killer.join();
    EXPECT_EQ(process.Wait(), kKilled);
    user.heard.end.Await();
    EXPECT_EQ(user.End(), Status::Success);
    const Posted fates = user.Fates();
    EXPECT_EQ(fates.failed, 0);
    EXPECT_EQ(fates.Completed(), fates.accepted);
    givenUp += fates.givenUp;
  }
  EXPECT_GT(givenUp, 0) << "no moment was one at which messages waited";
}

// Until it is killed.
CHILD_BODY(Posts) {
  LibraryUser user;
  if (user.Connect(standIn::ParseGuid(arguments.at(0)).value()) != Status::Success) return 1;
  PostUntilRefused(user, Random(static_cast<unsigned>(std::stoul(arguments.at(1)))));
  return 2;
}

TEST_F(KilledPeer, LeavesAServiceThatServesOthers) {
  Random random(kSeed);
  ServiceProcess process(endpoint, {"--blocks"});
  process.AwaitReady();
  long settled = 0;
  long last = 0;
  for (int i = 0; i < kMoments && !HasFailure(); ++i) {
    SCOPED_TRACE("moment " + std::to_string(i));
    const int moment = Draw(random, 0, 300);
    support::Process client = support::StartChild("Posts", {standIn::GuidText(endpoint), std::to_string(random())});
    process.AwaitConnected();
    last = DescriptorsOf(process.Id());
    if (i == kSettled) settled = last;
    AwaitLines(process, moment);
    client.Kill();
    EXPECT_EQ(client.Wait(), kKilled);
    std::string line = process.Next();
    while (line.starts_with("transaction ") || line.starts_with("block ") || line.starts_with("message ") ||
           line.starts_with("no command: ")) {
      line = process.Next();
    }
    EXPECT_THAT(line, StartsWith("client gone link "));
  }
  EXPECT_LT(last, settled + (kMoments - kSettled) / 2) << "clients leave some behind";
  process.Say("end");
  EXPECT_EQ(process.Next(), "") << "no link is left";
  EXPECT_EQ(process.Wait(), 0);
}

}  // namespace
}  // namespace roads
