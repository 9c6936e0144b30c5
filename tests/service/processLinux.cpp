#include <string>

#include "tests/service/serviceProcess.h"

namespace service {
namespace {

using testing::StartsWith;

constexpr auto kSystemHandles = StreamFlags(0x89);

// Here alone, as Wine 8 has no way for handles to pass through its RPC runtime.
CHILD_BODY(CallsWithAPipe) {
  Caller caller;
  if (caller.Connect(kSystemHandles) != Status::Success) return 1;
  support::Say("connected");
  static_cast<void>(support::Hear());
  return 0;
}

TEST_F(ServiceOfItsOwn, WatchesAClientByItsPipe) {
  ServiceProcess process;
  process.AwaitReady();
  support::Process client = support::StartChild("CallsWithAPipe");
  EXPECT_EQ(client.Hear(), "connected");
  EXPECT_EQ(process.Next(), "connect stream talk procedure 1");
  EXPECT_THAT(process.Next(), StartsWith("asks version 1 "));
  EXPECT_THAT(process.Next(), StartsWith("connected link "));
  client.Kill();
  EXPECT_THAT(process.Next(), StartsWith("client gone link "));
}

}  // namespace
}  // namespace service
