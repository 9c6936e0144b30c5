// A stream and a new link for it, and a service that grants what it is asked.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lib/ipc/ipclib/ipclibLinkSharedMemWin.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "lib/ipc/ipclib/linkConnector.h"
#include "tests/connector/rpcStandIn.h"
#include "tests/ipc/channelSupport.h"
#include "tests/ipc/endpoint.h"

namespace connector {

using namespace quill::ipc;
using platform::RPC_STATUS;
using Status = LmIpcStatusCode;

using ipcTests::kEndpoint;
inline constexpr std::uint32_t kPlain = 0x09;
inline constexpr std::uint32_t kByHandles = 0x89;
inline constexpr std::uint32_t kAuthenticated = 0x109;

class ConnectorFixture : public ipcTests::ChannelFixture {
 protected:
  ConnectorFixture() {
    rpc = {};
    rpc.answer = [this](platform::LinkReply& reply) {
      Grant(reply);
      return platform::RPC_S_OK;
    };
  }
  ~ConnectorFixture() override { rpc = {}; }

  // By the connector that suits the flags.
  Status Connect(std::uint32_t flags) {
    stream = std::make_shared<LmIpclibStream>(kEndpoint, name, StreamFlags(flags | 0x00010000),
                                              std::weak_ptr<quill::task::TaskExecutor>(),
                                              [](Status, const std::shared_ptr<LmIpclibMsg>&) {});
    link = std::make_shared<LmIpclibLinkSharedMemWin>(
        kEndpoint, flags | 0x00028000, [](LmIpclibLink&) {}, [](LmIpclibLink&) {});
    EXPECT_EQ(link->connecting(), Status::Success);
    static_cast<void>(Traces());
    const auto connector = createLinkConnector(StreamFlags(flags));
    EXPECT_TRUE(connector);
    return connector->connect(nullptr, stream, link, errorCode);
  }
  // Handles of the caller's own, as a call brings them.
  void Grant(platform::LinkReply& reply) const {
    reply.channelSize = ipcTests::kChannelSize;
    reply.linkValue = 5;
    reply.remoteLinkValue = 6;
    reply.peerLinkFlags = 0x00440044;
    reply.receive = HandlesTo(receive);
    reply.send = HandlesTo(send);
    reply.peerProcess = ipcTests::Duplicated(platform::GetCurrentProcess());
    reply.peerValue = 7;
    reply.remoteStreamId = 0x5300000100000001;
    reply.remoteStreamFlags = 0x00880088;
    reply.connectStatus = 0;
  }
  void ExpectNothingLeft() const {
    EXPECT_EQ(rpc.texts, 0u);
    EXPECT_EQ(rpc.bindings, 0u);
  }

  std::u16string name = u"calc";
  const ipcTests::ServedChannel receive;
  const ipcTests::ServedChannel send;
  std::shared_ptr<LmIpclibStream> stream;
  std::shared_ptr<LmIpclibLinkSharedMemWin> link;
  unsigned errorCode = 4711;

 private:
  static platform::LinkChannelHandles HandlesTo(const ipcTests::ServedChannel& channel) {
    LmIpclibLinkChannelResourceWin resources(false);
    channel.Give(resources);
    return {.mapping = resources.mapping,
            .dataReady = resources.dataReadyEvent,
            .dataConsumed = resources.dataConsumedEvent,
            .error = resources.errorEvent,
            .stop = resources.stopEvent};
  }
};

}  // namespace connector
