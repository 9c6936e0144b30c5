// The library from its connect to its uninit, with a service that is a process of its own.
#include <gmock/gmock.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/roads/libraryUser.h"

namespace roads {
namespace {

using service::kAuthenticated;
using service::ServiceProcess;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

constexpr platform::DWORD kLongestWait = 60'000;

class LibraryRoad : public service::ServiceOfItsOwn {
 protected:
  LibraryUser user;
};

TEST_F(LibraryRoad, LeadsThroughConnectSendAndClose) {
  for (const StreamFlags flags : {kPlain, kAuthenticated}) {
    const platform::GUID other = NewEndpoint();
    ServiceProcess process(other, {"--bytes"});
    process.AwaitReady();
    LibraryUser another;
    ASSERT_EQ(another.Connect(other, flags), Status::Success);
    process.AwaitConnected();
    EXPECT_EQ(another.Post("hello"), Status::Success);
    EXPECT_THAT(process.Next(), AllOf(StartsWith("message stream "), EndsWith(" bytes 5 68656c6c6f")));
    EXPECT_THAT(process.Next(), StartsWith("no command: "));
    another.Close();
    EXPECT_THAT(process.Next(), StartsWith("close stream "));
    EXPECT_EQ(another.End(), Status::Success);
    EXPECT_THAT(process.Next(), StartsWith("closed link "));
    EXPECT_EQ(another.Fates().sent, 1);
  }
}

TEST_F(LibraryRoad, CarriesMessagesOfManyTransactionsInTheirOrder) {
  ServiceProcess process(endpoint, {"--channel-size", "1000"});
  process.AwaitReady();
  ASSERT_EQ(user.Connect(endpoint), Status::Success);
  process.AwaitConnected();
  const std::vector<std::size_t> sizes{1, 931, 932, 933, 100'000, 2, 1'000'000, 3};
  for (const std::size_t size : sizes) EXPECT_EQ(user.Post(std::string(size, 'x')), Status::Success);
  for (const std::size_t size : sizes) {
    EXPECT_THAT(process.Next(), EndsWith(" bytes " + std::to_string(size)));
    EXPECT_THAT(process.Next(), StartsWith("no command: "));
  }
  user.Close();
  EXPECT_EQ(user.End(), Status::Success);
  EXPECT_EQ(user.Fates().sent, static_cast<int>(sizes.size()));
}

TEST_F(LibraryRoad, GivesStreamsToOneEndpointOneLink) {
  ServiceProcess process(endpoint);
  process.AwaitReady();
  ASSERT_EQ(user.Connect(endpoint), Status::Success);
  process.AwaitConnected();
  service::Heard heard;
  const auto other = user.Library().connect(endpoint, u"another", kPlain, heard.Callback(), 0, nullptr);
  ASSERT_TRUE(other);
  EXPECT_THAT(process.Next(), AllOf(StartsWith("open "), EndsWith(" stream another")));
  EXPECT_EQ((*other)->completeConnect(), Status::Success);
  user.Close();
  EXPECT_THAT(process.Next(), StartsWith("close stream "));
  EXPECT_EQ((*other)->close(kNoLimit), Status::Success);
  heard.end.Await();
  EXPECT_THAT(process.Next(), StartsWith("close stream "));
  EXPECT_EQ(user.End(), Status::Success);
  EXPECT_THAT(process.Next(), StartsWith("closed link "));
}

TEST_F(LibraryRoad, LetsTheServiceSendAndCloseFirst) {
  ServiceProcess process(endpoint);
  process.AwaitReady();
  ASSERT_EQ(user.Connect(endpoint), Status::Success);
  process.AwaitConnected();
  process.Say("send " + std::string(100'000, 'b'));
  user.heard.one.Await();
  EXPECT_THAT(user.heard.texts, ElementsAre(std::string(100'000, 'b')));
  process.Say("close");
  user.heard.end.Await();
  EXPECT_EQ(user.End(), Status::Success);
}

TEST_F(LibraryRoad, WaitsForAServiceThatStartsLate) {
  ServiceProcess process(endpoint, {"--listen-after-line"});
  EXPECT_EQ(process.Next(), "waiting");
  std::thread starter([&] { process.Say("now"); });
  EXPECT_EQ(user.Connect(endpoint, kPlain, kLongestWait), Status::Success);
  starter.join();
  process.AwaitReady();
  process.AwaitConnected();
}

TEST_F(LibraryRoad, WaitsForNobodyOnceItIsToldToAbort) {
  const platform::UniqueEvent abort(platform::CreateEventW(nullptr, true, true, nullptr));
  EXPECT_EQ(user.Connect(endpoint, kPlain, platform::INFINITE, abort.get()), Status::Abort);
}

TEST_F(LibraryRoad, EndsWhereNobodyListens) {
  EXPECT_EQ(user.Connect(endpoint), Status::NotFound);
  EXPECT_EQ(user.End(), Status::Success);
}

TEST_F(LibraryRoad, TakesUpAgainWithAServiceThatHasStartedAnew) {
  for (int i = 0; i < 2; ++i) {
    ServiceProcess process(endpoint);
    process.AwaitReady();
    LibraryUser another;
    ASSERT_EQ(another.Connect(endpoint), Status::Success);
    process.AwaitConnected();
    process.Kill();
    another.heard.end.Await();
    EXPECT_EQ(another.End(), Status::Success);
  }
}

}  // namespace
}  // namespace roads
