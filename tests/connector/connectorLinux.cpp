#include <fmt/format.h>

#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "tests/connector/connectorFixture.h"

namespace connector {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class LinkConnectorOnLinux : public ConnectorFixture {
 protected:
  ~LinkConnectorOnLinux() override { platform::test::DisarmFaults(); }
};

TEST_F(LinkConnectorOnLinux, WithoutAPipeMakesNoCallAndKeepsTheBinding) {
  platform::test::ArmFaultsOf("CreatePipe", platform::ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(Connect(kByHandles), Status::Unexpected);
  EXPECT_THAT(rpc.calls, ElementsAre(HasSubstr("StringFromGUID2"), HasSubstr("RpcStringBindingComposeW"),
                                     HasSubstr("RpcBindingFromStringBindingW"), HasSubstr("RpcBindingSetObject")));
  EXPECT_EQ(rpc.texts, 1u) << "this is meant";
  EXPECT_EQ(rpc.bindings, 1u) << "and so is this";
  EXPECT_EQ(errorCode, 4711u) << "nothing is told";
  const auto traces = Traces();
  EXPECT_EQ(traces.back(), "< status: Unexpected");
  EXPECT_THAT(traces,
              testing::Contains(fmt::format("- m_state: Connecting, linkId: {:#x}}}, errorCode: 8", link->linkId())));
}

TEST_F(LinkConnectorOnLinux, LeavesNoHandleWhicheverSecondOneFails) {
  for (unsigned failAt = 1; failAt <= 11; ++failAt) {
    rpc.answer = [&](platform::LinkReply& reply) {
      Grant(reply);
      platform::test::ArmFaults(failAt, false, platform::ERROR_NOT_ENOUGH_MEMORY);
      return platform::RPC_S_OK;
    };
    EXPECT_EQ(Connect(kPlain), Status::Unexpected) << failAt;
    platform::test::DisarmFaults();
    EXPECT_EQ(errorCode, platform::ERROR_NOT_ENOUGH_MEMORY) << failAt;
    EXPECT_EQ(link->state(), LmIpclibLink::State::Error) << failAt;
    ExpectNothingLeft();
  }
}

}  // namespace
}  // namespace connector
