#include <string>

#include "tests/service/serviceProcess.h"

namespace service {
namespace {

using testing::StartsWith;

constexpr auto kSystemHandles = StreamFlags(0x89);

// Here alone, as Wine 8 has no way for handles to pass through its RPC runtime.
CHILD_BODY(CallsWithAPipe) {
  Caller caller(standIn::ParseGuid(arguments.at(0)).value());
  if (caller.Connect(kSystemHandles) != Status::Success) return 1;
  support::Say("connected");
  static_cast<void>(support::Hear());
  return 0;
}

TEST_F(ServiceOfItsOwn, WatchesAClientByItsPipe) {
  ServiceProcess process(endpoint);
  process.AwaitReady();
  support::Process client = support::StartChild("CallsWithAPipe", {standIn::GuidText(endpoint)});
  EXPECT_EQ(client.Hear(), "connected");
  EXPECT_EQ(process.Next(), "connect stream talk procedure 1");
  EXPECT_THAT(process.Next(), StartsWith("asks version 1 "));
  EXPECT_THAT(process.Next(), StartsWith("connected link "));
  client.Kill();
  EXPECT_THAT(process.Next(), StartsWith("client gone link "));
}

// Here alone, as Wine 8 takes every local caller for one that has authenticated.
TEST_F(ServiceOfItsOwn, TellsWhoHasNotAuthenticated) {
  ServiceProcess process(endpoint);
  process.AwaitReady();
  Caller caller(endpoint);
  ASSERT_EQ(caller.Connect(), Status::Success);
  EXPECT_EQ(process.Next(), "connect stream talk procedure 0");
}

// Here alone, as Wine 8 lets several processes listen at one endpoint.
TEST_F(ServiceOfItsOwn, DoesNotShareItsEndpoint) {
  ServiceProcess process(endpoint);
  process.AwaitReady();
  ServiceProcess second(endpoint);
  EXPECT_EQ(second.Next(), "");
  EXPECT_EQ(second.Wait(), 1);
  EXPECT_THAT(second.ErrorOutput(), StartsWith("standInService: "));
}

}  // namespace
}  // namespace service
