// The connector and a service, from end to end.
#include "lib/ipc/ipclib/linkConnector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "lib/ipc/ipclib/ipclibLinkSharedMemWin.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "platform/rpc.h"
#include "tests/ipc/channelSupport.h"
#include "tests/support/machine.h"
#include "tests/support/rpcService.h"

namespace {

using namespace quill::ipc;
using Status = LmIpcStatusCode;

class LinkConnectorEndToEnd : public testing::Test {
 protected:
  LinkConnectorEndToEnd() { EXPECT_EQ(platform::UuidCreate(&endpoint), platform::RPC_S_OK); }

  void Listen() {
    const auto lent = [](const ipcTests::ServedChannel& channel) {
      return support::ChannelHandles{.mapping = channel.mapping.get(),
                                     .dataReady = channel.dataReadyEvent.get(),
                                     .dataConsumed = channel.dataConsumedEvent.get(),
                                     .error = channel.errorEvent.get(),
                                     .stop = channel.stopEvent.get()};
    };
    answer.channelSize = ipcTests::kChannelSize;
    answer.receive = lent(receive);
    answer.send = lent(send);
    answer.remoteStreamId = 0x5300000100000001;
    service = support::RpcService::Listen(endpoint, [this](const support::ConnectRequest& request) {
      asked.push_back(request);
      return answer;
    });
  }
  Status Connect(std::uint32_t flags) {
    stream =
        std::make_shared<LmIpclibStream>(endpoint, name, StreamFlags(flags), std::weak_ptr<quill::task::TaskExecutor>(),
                                         [](Status, const std::shared_ptr<LmIpclibMsg>&) {});
    link = std::make_shared<LmIpclibLinkSharedMemWin>(
        endpoint, flags | 0x8000, [](LmIpclibLink&) {}, [](LmIpclibLink&) {});
    EXPECT_EQ(link->connecting(), Status::Success);
    return createLinkConnector(StreamFlags(flags))->connect(nullptr, stream, link, errorCode);
  }
  void ExpectToBeConnected() {
    EXPECT_EQ(errorCode, 0u);
    EXPECT_EQ(stream->remoteStreamId(), 0x5300000100000001u);
    platform::SetEvent(receive.dataReadyEvent.get());
    EXPECT_TRUE(ipcTests::Fires(link->getRecvEvent()));
  }

  const support::Machine machine;
  platform::GUID endpoint{};
  std::u16string name = u"calc";
  const ipcTests::ServedChannel receive;
  const ipcTests::ServedChannel send;
  support::ConnectReply answer;
  std::vector<support::ConnectRequest> asked;
  std::unique_ptr<support::RpcService> service;
  std::shared_ptr<LmIpclibStream> stream;
  std::shared_ptr<LmIpclibLinkSharedMemWin> link;
  unsigned errorCode = 4711;
};

TEST_F(LinkConnectorEndToEnd, BringsALinkToAService) {
  Listen();
  ASSERT_EQ(Connect(0x09), Status::Success);
  ExpectToBeConnected();
  EXPECT_EQ(asked.at(0).procedure, 0u);
  EXPECT_EQ(asked.at(0).linkId, static_cast<std::int64_t>(link->linkId()));
  EXPECT_EQ(asked.at(0).streamName, u"calc");
}

TEST_F(LinkConnectorEndToEnd, BringsALinkToAServiceThatProvesItself) {
  Listen();
  ASSERT_EQ(Connect(0x109), Status::Success);
  ExpectToBeConnected();
  EXPECT_TRUE(asked.at(0).authenticated);
}

TEST_F(LinkConnectorEndToEnd, FindsNobodyWhereNobodyListens) {
  EXPECT_EQ(Connect(0x09), Status::NotFound);
  EXPECT_EQ(errorCode, 1722u);
}

TEST_F(LinkConnectorEndToEnd, ReturnsARefusalAsItIs) {
  answer.connectStatus = 7;
  Listen();
  EXPECT_EQ(Connect(0x09), Status::AccessDenied);
  answer.hasConnectStatus = false;
  EXPECT_EQ(Connect(0x09), Status::Unexpected);
}

TEST_F(LinkConnectorEndToEnd, CarriesTheLongestNameAndNoLonger) {
  Listen();
  name.assign(0x1FFFF, u'n');
  EXPECT_EQ(Connect(0x09), Status::Success);
  EXPECT_TRUE(asked.at(0).streamName == name);
  name += u'n';
  EXPECT_EQ(Connect(0x09), Status::Unexpected);
  EXPECT_EQ(asked.size(), 1u);
}

TEST_F(LinkConnectorEndToEnd, LeavesNoHandleBehind) {
  Listen();
  const auto connectOnce = [this](int connectStatus) {
    answer.connectStatus = connectStatus;
    static_cast<void>(Connect(0x09));
    link.reset();
    stream.reset();
  };
  connectOnce(0);  // The runtime keeps what it has set up for the first call.
  connectOnce(7);
  const std::size_t before = ipcTests::OpenHandles();
  for (int again = 0; again < 5; ++again) {
    connectOnce(0);
    connectOnce(7);
  }
  // The service lets go of what a call has brought it when it has answered: on a thread of its own.
  while (ipcTests::OpenHandles() > before) std::this_thread::yield();
}

}  // namespace
