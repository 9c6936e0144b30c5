// The connector, over an RPC runtime that notes what it is asked.
#include <fmt/format.h>

#include "lib/ipc/ipclib/linkConnectorRpcWin.h"
#include "platform/error.h"
#include "tests/connector/connectorFixture.h"

namespace connector {
namespace {

using platform::LinkReply;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using LinkConnector = ConnectorFixture;

std::string EpTrace(const LmIpclibStream& stream, const LmIpclibLink& link) {
  return fmt::format("ep: {{875AC244-B80A-420E-90A2-9C69DFD8E728}}, linkId: {:#x}, streamId: {:#x}", link.linkId(),
                     stream.streamId());
}

TEST_F(LinkConnector, IsMadeOnlyForTheFlagThatAsksForIt) {
  EXPECT_FALSE(createLinkConnector(StreamFlags(0)));
  EXPECT_FALSE(createLinkConnector(StreamFlags(0xFFFFFFF7)));
  EXPECT_TRUE(createLinkConnector(StreamFlags(8)));
}

TEST_F(LinkConnector, BindsWithTheOptionAndWithoutAuthentication) {
  EXPECT_EQ(Connect(kPlain), Status::Success);
  EXPECT_THAT(rpc.calls, ElementsAre("StringFromGUID2: {875AC244-B80A-420E-90A2-9C69DFD8E728}, 48 units",
                                     "RpcStringBindingComposeW: ncalrpc, {875AC244-B80A-420E-90A2-9C69DFD8E728}, "
                                     "Security=identification dynamic true",
                                     "RpcBindingFromStringBindingW: the binding's text",
                                     "RpcBindingSetObject: {875AC244-B80A-420E-90A2-9C69DFD8E728}",
                                     "ConnectLinkByValues", "RpcStringFreeW", "RpcBindingFree"));
  ExpectNothingLeft();
}

TEST_F(LinkConnector, BindsWithAuthenticationAndWithoutTheOption) {
  EXPECT_EQ(Connect(kAuthenticated), Status::Success);
  EXPECT_THAT(rpc.calls,
              ElementsAre("StringFromGUID2: {875AC244-B80A-420E-90A2-9C69DFD8E728}, 48 units",
                          "RpcStringBindingComposeW: ncalrpc, {875AC244-B80A-420E-90A2-9C69DFD8E728}, null",
                          "RpcBindingFromStringBindingW: the binding's text",
                          "RpcBindingSetObject: {875AC244-B80A-420E-90A2-9C69DFD8E728}",
                          "RpcBindingSetAuthInfoExW: SYSTEM, level 6, service 10, authorization 0, version 1, "
                          "capabilities 1, tracking 0, type 2",
                          "ConnectLinkByValues", "RpcStringFreeW", "RpcBindingFree"));
  ExpectNothingLeft();
}

TEST_F(LinkConnector, BindsWithAuthenticationAlsoWhenTheHandlesPassThroughTheCall) {
  EXPECT_EQ(Connect(kByHandles | kAuthenticated), Status::Success);
  EXPECT_THAT(rpc.calls, testing::Contains(testing::EndsWith(", null")));
  EXPECT_THAT(rpc.calls, testing::Contains(testing::StartsWith("RpcBindingSetAuthInfoExW: SYSTEM, level 6")));
  EXPECT_THAT(rpc.calls, testing::Contains("ConnectLinkByHandles"));
  ExpectNothingLeft();
}

TEST_F(LinkConnector, AsksForTheStreamAndTheLink) {
  EXPECT_EQ(Connect(kPlain), Status::Success);
  EXPECT_EQ(rpc.request.clientVersion, 1);
  EXPECT_EQ(rpc.request.linkId, link->linkId());
  EXPECT_EQ(rpc.request.linkFlags, 0x00020000u);
  EXPECT_EQ(rpc.request.streamId, stream->streamId());
  EXPECT_EQ(rpc.request.streamFlags, 0x00010000u);
  EXPECT_EQ(rpc.request.nameLength, 5) << "with the terminator";
  EXPECT_EQ(rpc.streamName, u"calc");
  EXPECT_EQ(rpc.request.channelSizeHint, 0x10000u);
}

TEST_F(LinkConnector, TellsTheLengthOfEveryNameWithItsTerminator) {
  for (const std::size_t units : {std::size_t{0}, std::size_t{1}, std::size_t{0x1FFFF}, std::size_t{0x20000}}) {
    name.assign(units, u'n');
    EXPECT_EQ(Connect(kPlain), Status::Success);
    EXPECT_EQ(rpc.request.nameLength, static_cast<platform::LONG>(units + 1));
    EXPECT_EQ(rpc.request.channelSizeHint, 0x10000u);
    EXPECT_TRUE(rpc.streamName == name);
  }
}

TEST_F(LinkConnector, GivesTheServiceAPipeWhenTheHandlesPassThroughTheCall) {
  EXPECT_EQ(Connect(kByHandles), Status::Success);
  EXPECT_TRUE(ipcTests::IsOpen(rpc.pipe)) << "as long as the link lives";
  EXPECT_THAT(rpc.calls, testing::Contains("ConnectLinkByHandles"));
  EXPECT_EQ(rpc.request.nameLength, 5);
  EXPECT_EQ(rpc.request.channelSizeHint, 0x10000u);
  link.reset();
  EXPECT_FALSE(ipcTests::IsOpen(rpc.pipe));
}

TEST_F(LinkConnector, TakesTheReplyOver) {
  EXPECT_EQ(Connect(kPlain), Status::Success);
  EXPECT_EQ(errorCode, 0u);
  EXPECT_EQ(stream->remoteStreamId(), 0x5300000100000001u);
  EXPECT_EQ(stream->flags(), StreamFlags(0x00890009));
  EXPECT_EQ(link->linkValue(), 5u);
  EXPECT_EQ(link->flags(), 0x00468009u);
  EXPECT_EQ(link->state(), LmIpclibLink::State::Connecting);
  platform::SetEvent(receive.dataReadyEvent.get());
  EXPECT_TRUE(ipcTests::Fires(link->getRecvEvent()));
}

TEST_F(LinkConnector, TakesEachEventForWhatItIs) {
  EXPECT_EQ(Connect(kPlain), Status::Success);
  link->linkError();
  EXPECT_TRUE(ipcTests::Fires(receive.errorEvent.get()));
  EXPECT_TRUE(ipcTests::Fires(receive.stopEvent.get())) << "it has ended";
  EXPECT_FALSE(ipcTests::Fires(receive.dataReadyEvent.get()));
  EXPECT_FALSE(ipcTests::Fires(receive.dataConsumedEvent.get()));
  for (const auto* event : {&send.dataReadyEvent, &send.dataConsumedEvent, &send.errorEvent, &send.stopEvent}) {
    EXPECT_FALSE(ipcTests::Fires(event->get()));
  }
}

TEST_F(LinkConnector, TracesItsWay) {
  EXPECT_EQ(Connect(kPlain), Status::Success);
  const auto traces = Traces();
  ASSERT_FALSE(traces.empty());
  EXPECT_EQ(traces.front(), EpTrace(*stream, *link));
  EXPECT_THAT(traces, testing::Contains("< status: Success"));
}

TEST_F(LinkConnector, ReturnsARefusalAsItIs) {
  for (const unsigned status : {1u, 7u, 10u, 14u, 4711u}) {
    rpc.answer = [&](LinkReply& reply) {
      Grant(reply);
      reply.connectStatus = status;
      return platform::RPC_S_OK;
    };
    EXPECT_EQ(Connect(kPlain), Status{status});
    // Wine 8 says of the service's process that it has not closed the handle, though it has: the third trace is its.
    auto traces = Traces();
    traces.resize(2);
    EXPECT_THAT(traces, ElementsAre(EpTrace(*stream, *link), fmt::format("< status: {}", Status{status})));
    EXPECT_EQ(errorCode, 0u);
    EXPECT_EQ(stream->remoteStreamId(), 0u) << "nothing of the reply is taken over";
    EXPECT_EQ(link->state(), LmIpclibLink::State::Connecting);
    ExpectNothingLeft();
  }
}

TEST_F(LinkConnector, TakesAStatusThatNobodyFilledInForAFailure) {
  rpc.answer = [](LinkReply&) { return platform::RPC_S_OK; };
  EXPECT_EQ(Connect(kPlain), Status::Unexpected);
  EXPECT_EQ(stream->remoteStreamId(), 0u);
}

TEST_F(LinkConnector, ClosesWhatAFailedCallHasBrought) {
  rpc.answer = [this](LinkReply& reply) {
    Grant(reply);
    return platform::RPC_S_SERVER_UNAVAILABLE;
  };
  EXPECT_EQ(Connect(kPlain), Status::NotFound);
  EXPECT_EQ(Connect(kByHandles), Status::NotFound);
  EXPECT_EQ(stream->remoteStreamId(), 0u);
  ExpectNothingLeft();
}

TEST_F(LinkConnector, FailsWhenAHandleIsOfNoUse) {
  rpc.answer = [this](LinkReply& reply) {
    Grant(reply);
    platform::UniqueSection(std::exchange(reply.receive.mapping, nullptr)).reset();
    return platform::RPC_S_OK;
  };
  EXPECT_EQ(Connect(kPlain), Status::Unexpected);
  EXPECT_EQ(errorCode, platform::ERROR_INVALID_HANDLE);
  EXPECT_EQ(link->state(), LmIpclibLink::State::Error);
  EXPECT_EQ(stream->remoteStreamId(), 0x5300000100000001u) << "the stream has been told before";
  EXPECT_THAT(Traces(), testing::Contains("< status: Unexpected"));
  ExpectNothingLeft();
}

TEST_F(LinkConnector, FailsWithoutATextOfTheEndpoint) {
  rpc.failures["StringFromGUID2"] = 1;
  EXPECT_EQ(Connect(kPlain), Status::Unexpected);
  EXPECT_THAT(rpc.calls, ElementsAre(HasSubstr("StringFromGUID2")));
  EXPECT_THAT(Traces(), ElementsAre(EpTrace(*stream, *link), "< status: Unexpected"));
}

// A call, what has been made before it fails, and the flags that lead to it.
struct Step {
  const char* call;
  std::uint32_t flags;
  std::vector<std::string> frees;
};

void PrintTo(const Step& step, std::ostream* out) { *out << step.call; }

class LinkConnectorStep : public ConnectorFixture, public testing::WithParamInterface<Step> {};

TEST_P(LinkConnectorStep, ThatFailsEndsTheConnectAndFreesWhatThereIs) {
  rpc.failures[GetParam().call] = platform::RPC_S_INVALID_ENDPOINT_FORMAT;
  EXPECT_EQ(Connect(GetParam().flags), Status::InvalidParam);
  EXPECT_EQ(errorCode, 1706u);
  EXPECT_THAT(Traces(), ElementsAre(EpTrace(*stream, *link), "< rpcStatus: 1706"));
  const auto failed =
      std::ranges::find_if(rpc.calls, [](const auto& call) { return call.starts_with(GetParam().call); });
  ASSERT_NE(failed, rpc.calls.end());
  EXPECT_EQ(std::vector(failed + 1, rpc.calls.end()), GetParam().frees);
  ExpectNothingLeft();
  EXPECT_EQ(link->state(), LmIpclibLink::State::Connecting);
}

INSTANTIATE_TEST_SUITE_P(
    Of, LinkConnectorStep,
    testing::Values(Step{"RpcStringBindingComposeW", kPlain, {}},
                    Step{"RpcBindingFromStringBindingW", kPlain, {"RpcStringFreeW"}},
                    Step{"RpcBindingSetObject", kPlain, {"RpcStringFreeW", "RpcBindingFree"}},
                    Step{"RpcBindingSetAuthInfoExW", kAuthenticated, {"RpcStringFreeW", "RpcBindingFree"}}),
    [](const auto& test) { return std::string(test.param.call); });

struct Translation {
  RPC_STATUS rpcStatus;
  Status status;
};

void PrintTo(const Translation& translation, std::ostream* out) { *out << translation.rpcStatus; }

class LinkConnectorStatus : public ConnectorFixture, public testing::WithParamInterface<Translation> {};

TEST_P(LinkConnectorStatus, IsTranslated) {
  const auto [rpcStatus, status] = GetParam();
  rpc.failures["ConnectLinkByValues"] = rpcStatus;
  EXPECT_EQ(Connect(kPlain), status);
  EXPECT_EQ(errorCode, static_cast<unsigned>(rpcStatus));
  EXPECT_THAT(Traces(), ElementsAre(EpTrace(*stream, *link), fmt::format("< rpcStatus: {}", rpcStatus)));
  ExpectNothingLeft();
}

INSTANTIATE_TEST_SUITE_P(Of, LinkConnectorStatus,
                         testing::Values(Translation{5, Status::AccessDenied}, Translation{14, Status::OutOfMemory},
                                         Translation{87, Status::InvalidParam}, Translation{1706, Status::InvalidParam},
                                         Translation{1722, Status::NotFound}, Translation{1740, Status::AlreadyExists},
                                         Translation{1760, Status::AlreadyExists}, Translation{1, Status::Unexpected},
                                         Translation{8, Status::Unexpected}, Translation{1726, Status::Unexpected},
                                         Translation{1783, Status::Unexpected}, Translation{-1, Status::Unexpected}),
                         [](const auto& test) {
                           return "Number" + std::to_string(static_cast<unsigned>(test.param.rpcStatus));
                         });

TEST(LinkConnectorSuccess, IsTranslatedToSuccess) { EXPECT_EQ(statusOfRpc(0), Status::Success); }

}  // namespace
}  // namespace connector
