// The call by which a client sets up a link, from end to end: each test is both the client and the service, and some
// have a second process.
#include "platform/linkCall.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/raii.h"
#include "platform/sections.h"
#include "tests/platform/linkCallSupport.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"
#include "tests/support/rpcService.h"

namespace {

using namespace platform;
using namespace linkCalls;

class LinkCall : public testing::Test {
 protected:
  // A service that notes what it is asked, and answers what the test says.
  void Listen() {
    service = support::RpcService::Listen(endpoint, [this](const support::ConnectRequest& request) {
      asked.push_back(request);
      return answer;
    });
  }
  RPC_STATUS Call(const LinkRequest& request) {
    const Binding binding(endpoint);
    return ConnectLinkByValues(binding.get(), request, reply);
  }

  support::Process StartOwner() const {
    char16_t* text = nullptr;
    EXPECT_EQ(UuidToStringW(&endpoint, &text), RPC_S_OK);
    support::Process child = support::StartChild("OwnsTheEndpoint", {support::Narrow(text)});
    EXPECT_EQ(RpcStringFreeW(&text), RPC_S_OK);
    EXPECT_EQ(child.Hear(), "listening");
    return child;
  }

  const support::Machine machine;
  const GUID endpoint = NewEndpoint();
  std::vector<support::ConnectRequest> asked;  // Its handles are closed.
  support::ConnectReply answer;
  std::unique_ptr<support::RpcService> service;
  LinkReply reply;
};

TEST_F(LinkCall, ToAnEndpointThatNobodyOwnsFailsAtOnce) {
  EXPECT_EQ(Call(RequestWithName(u"calc")), RPC_S_SERVER_UNAVAILABLE);
}

TEST_F(LinkCall, ToAnEndpointThatWasGivenUpFailsAtOnce) {
  Listen();
  service.reset();
  EXPECT_EQ(Call(RequestWithName(u"calc")), RPC_S_SERVER_UNAVAILABLE);
}

TEST_F(LinkCall, CarriesTheRequestUnchanged) {
  Listen();
  const std::u16string name = u"calc \xD800 \u20AC";
  LinkRequest request = RequestWithName(name);
  request.clientVersion = 1;
  request.linkId = 0x4C00000100000002;
  request.linkFlags = 0x80010000;
  request.streamId = 0x53FFFFFFFFFFFFFF;
  request.streamFlags = 0xFFFF0000;
  request.channelSizeHint = 0x10000;
  ASSERT_EQ(Call(request), RPC_S_OK);
  CloseAll(reply);
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(asked[0].procedure, 0u);
  EXPECT_EQ(asked[0].clientVersion, 1);
  EXPECT_EQ(asked[0].linkId, 0x4C00000100000002);
  EXPECT_EQ(static_cast<std::uint32_t>(asked[0].linkFlags), 0x80010000u);
  EXPECT_EQ(asked[0].streamId, 0x53FFFFFFFFFFFFFF);
  EXPECT_EQ(static_cast<std::uint32_t>(asked[0].streamFlags), 0xFFFF0000u);
  EXPECT_EQ(asked[0].channelSizeHint, 0x10000);
  EXPECT_EQ(asked[0].streamName, name);
}

TEST_F(LinkCall, BringsTheReplyUnchanged) {
  answer.channelSize = 0x12345;
  answer.linkValue = -2;
  answer.remoteLinkValue = -3;
  answer.peerLinkFlags = 0x7FFF0000;
  answer.peerValue = 4711;
  answer.remoteStreamId = 0x5300000000000001;
  answer.remoteStreamFlags = 0x00420042;
  answer.connectStatus = 7;
  Listen();
  ASSERT_EQ(Call(RequestWithName(u"calc")), RPC_S_OK);
  EXPECT_EQ(reply.channelSize, 0x12345u);
  EXPECT_EQ(reply.linkValue, 0xFFFFFFFEu);
  EXPECT_EQ(reply.remoteLinkValue, 0xFFFFFFFFFFFFFFFDu);
  EXPECT_EQ(reply.peerLinkFlags, 0x7FFF0000u);
  EXPECT_EQ(reply.peerValue, 4711u);
  EXPECT_EQ(reply.remoteStreamId, 0x5300000000000001u);
  EXPECT_EQ(reply.remoteStreamFlags, 0x00420042u);
  EXPECT_EQ(reply.connectStatus, 7u);
  CloseAll(reply);
}

TEST_F(LinkCall, LeavesTheStatusThatTheServiceDoesNotFillIn) {
  answer.hasConnectStatus = false;
  Listen();
  reply.connectStatus = 1;
  ASSERT_EQ(Call(RequestWithName(u"calc")), RPC_S_OK);
  EXPECT_EQ(reply.connectStatus, 1u);
  CloseAll(reply);
}

TEST_F(LinkCall, ReturnsWhatTheServiceReturns) {
  answer.result = 1740;
  Listen();
  EXPECT_EQ(Call(RequestWithName(u"calc")), RPC_S_DUPLICATE_ENDPOINT);
  CloseAll(reply);
}

TEST_F(LinkCall, WithoutHandlesBringsNone) {
  answer.hasPeerProcess = false;
  Listen();
  ASSERT_EQ(Call(RequestWithName(u"calc")), RPC_S_OK);
  for (const KernelHandle handle : HandlesOf(reply)) EXPECT_EQ(handle.value(), 0u);
}

TEST_F(LinkCall, BringsSecondHandlesToTheServicesObjects) {
  const ServedChannel receive;
  const ServedChannel send;
  answer.receive = receive.Lent();
  answer.send = send.Lent();
  Listen();
  ASSERT_EQ(Call(RequestWithName(u"calc")), RPC_S_OK);
  receive.ExpectToBe(reply.receive);
  send.ExpectToBe(reply.send);
  EXPECT_EQ(WaitForSingleObject(reply.peerProcess, 0), WAIT_TIMEOUT) << "the service is this process";
  CloseAll(reply);
}

TEST_F(LinkCall, TakesNamesUpToTheLongestThatTheInterfaceHas) {
  Listen();
  for (const std::size_t units : {std::size_t{0}, std::size_t{1}, std::size_t{2}, std::size_t{0x1FFFF}}) {
    const std::u16string name(units, u'n');
    ASSERT_EQ(Call(RequestWithName(name)), RPC_S_OK) << units;
    CloseAll(reply);
    EXPECT_TRUE(asked.back().streamName == name) << units;
  }
}

TEST_F(LinkCall, DoesNotReachTheServiceWithALongerName) {
  Listen();
  const std::u16string name(0x20000, u'n');
  EXPECT_NE(Call(RequestWithName(name)), RPC_S_OK);
  EXPECT_TRUE(asked.empty());
}

TEST_F(LinkCall, IsAnsweredOneAtATimeForManyClients) {
  Listen();
  for (int call = 0; call < 20; ++call) {
    ASSERT_EQ(Call(RequestWithName(u"calc")), RPC_S_OK);
    CloseAll(reply);
  }
  EXPECT_EQ(asked.size(), 20u);
}

TEST_F(LinkCall, OverAnAuthenticatedBindingTellsTheServiceSo) {
  Listen();
  const Binding binding(endpoint);
  ASSERT_EQ(binding.Authenticate(), RPC_S_OK);
  ASSERT_EQ(ConnectLinkByValues(binding.get(), RequestWithName(u"calc"), reply), RPC_S_OK);
  CloseAll(reply);
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_TRUE(asked[0].authenticated);
}

// Owns the endpoint, and answers with handles of its own; or ends in the middle of the call.
CHILD_BODY(OwnsTheEndpoint) {
  GUID endpoint{};
  EXPECT_EQ(UuidFromStringW(support::Wide(arguments.at(0)).c_str(), &endpoint), RPC_S_OK);
  const ServedChannel receive;
  const ServedChannel send;
  const auto service = support::RpcService::Listen(endpoint, [&](const support::ConnectRequest& request) {
    if (request.streamName == u"die") std::_Exit(0);
    support::ConnectReply answer;
    answer.receive = receive.Lent();
    answer.send = send.Lent();
    return answer;
  });
  support::Say("listening");
  static_cast<void>(support::Hear());
  return WaitForSingleObject(receive.dataReady.get(), 0) == WAIT_OBJECT_0 ? 0 : 1;
}

TEST_F(LinkCall, BringsHandlesOfAnotherProcess) {
  support::Process child = StartOwner();
  ASSERT_EQ(Call(RequestWithName(u"calc")), RPC_S_OK);
  EXPECT_TRUE(SetEvent(reply.receive.dataReady));
  EXPECT_EQ(WaitForSingleObject(reply.peerProcess, 0), WAIT_TIMEOUT);
  EXPECT_EQ(child.Wait(), 0) << "the child saw its event set";
  EXPECT_EQ(WaitForSingleObject(reply.peerProcess, INFINITE), WAIT_OBJECT_0);
  CloseAll(reply);
}

TEST_F(LinkCall, DuringWhichTheServiceEndsFails) {
  support::Process child = StartOwner();
  EXPECT_EQ(Call(RequestWithName(u"die")), RPC_S_CALL_FAILED);
}

TEST_F(LinkCall, ToAnEndpointWhoseOwnerWasKilledFailsAtOnce) {
  support::Process child = StartOwner();
  child.Kill();
  child.Wait();
  EXPECT_EQ(Call(RequestWithName(u"calc")), RPC_S_SERVER_UNAVAILABLE);
  Listen();
  EXPECT_EQ(Call(RequestWithName(u"calc")), RPC_S_OK) << "another may own it now";
  CloseAll(reply);
}

TEST_F(LinkCall, CannotBeServedTwiceAtOneEndpoint) {
  Listen();
  EXPECT_THROW(static_cast<void>(support::RpcService::Listen(
                   endpoint, [](const support::ConnectRequest&) { return support::ConnectReply(); })),
               std::system_error);
}

}  // namespace
