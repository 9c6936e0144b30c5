// Handles that pass through the call: only the machine in a folder has that in a test.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "lib/ipc/ipclib/ipclibLinkSharedMemWin.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "lib/ipc/ipclib/linkConnector.h"
#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "platform/pipes.h"
#include "platform/rpc.h"
#include "tests/ipc/channelSupport.h"
#include "tests/ipc/endpoint.h"
#include "tests/support/machine.h"
#include "tests/support/meeting.h"
#include "tests/support/process.h"
#include "tests/support/rpcService.h"

namespace {

using namespace quill::ipc;
using ipcTests::kEndpoint;
using Status = LmIpcStatusCode;

constexpr std::uint32_t kByHandles = 0x89;

struct Client {
  explicit Client(std::uint32_t flags)
      : stream(std::make_shared<LmIpclibStream>(kEndpoint, u"calc", StreamFlags(flags),
                                                std::weak_ptr<quill::task::TaskExecutor>(),
                                                [](Status, const std::shared_ptr<LmIpclibMsg>&) {})),
        link(std::make_shared<LmIpclibLinkSharedMemWin>(
            kEndpoint, flags | 0x8000, [](LmIpclibLink&) {}, [](LmIpclibLink&) {})) {
    static_cast<void>(link->connecting());
    unsigned errorCode = 0;
    status = createLinkConnector(StreamFlags(flags))->connect(nullptr, stream, link, errorCode);
  }
  std::shared_ptr<LmIpclibStream> stream;
  std::shared_ptr<LmIpclibLinkSharedMemWin> link;
  Status status;
};

CHILD_BODY(ConnectsByHandles) {
  const Client client(kByHandles);
  support::Say(std::string(NameOf(client.status)));
  static_cast<void>(support::Hear());
  return 0;
}

class LinkConnectorByHandles : public ipcTests::ChannelFixture {
 protected:
  ~LinkConnectorByHandles() override { platform::test::DisarmFaults(); }

  support::ConnectReply Grant() const {
    const auto lent = [](const ipcTests::ServedChannel& channel) {
      return support::ChannelHandles{.mapping = channel.mapping.get(),
                                     .dataReady = channel.dataReadyEvent.get(),
                                     .dataConsumed = channel.dataConsumedEvent.get(),
                                     .error = channel.errorEvent.get(),
                                     .stop = channel.stopEvent.get()};
    };
    support::ConnectReply answer;
    answer.channelSize = ipcTests::kChannelSize;
    answer.receive = lent(receive);
    answer.send = lent(send);
    return answer;
  }

  const support::Machine machine;
  const ipcTests::ServedChannel receive{};
  const ipcTests::ServedChannel send{};
};

TEST_F(LinkConnectorByHandles, LetsTheServiceSeeTheClientGo) {
  platform::UniquePipe pipe;
  platform::UniqueProcess process;
  support::Signal asked;
  const auto service = support::RpcService::Listen(kEndpoint, [&](const support::ConnectRequest& request) {
    EXPECT_EQ(request.procedure, 1u);
    pipe.reset(ipcTests::Duplicated(request.clientPipe));
    process.reset(ipcTests::Duplicated(request.clientProcess));
    asked.Give();
    return Grant();
  });
  support::Process client = support::StartChild("ConnectsByHandles");
  ASSERT_EQ(client.Hear(), "Success");
  asked.Await();
  EXPECT_EQ(platform::WaitForSingleObject(process.get(), 0), platform::WAIT_TIMEOUT);
  client.Kill();
  std::uint8_t nothing = 0;
  platform::DWORD count = 0;
  EXPECT_FALSE(platform::ReadFile(pipe.get(), &nothing, 1, &count, nullptr));
  EXPECT_EQ(platform::GetLastError(), platform::ERROR_BROKEN_PIPE);
  EXPECT_EQ(platform::WaitForSingleObject(process.get(), platform::INFINITE), platform::WAIT_OBJECT_0);
}

// The names of the calls that a connect makes.
std::vector<std::string> CallsOf(std::uint32_t flags) {
  platform::test::ArmFaults(0, false, 0);
  EXPECT_EQ(Client(flags).status, Status::Success);
  const auto calls = platform::test::CountedCalls();
  platform::test::DisarmFaults();
  return calls;
}

TEST_F(LinkConnectorByHandles, LeavesNoHandleWhicheverCallFails) {
  const auto service = support::RpcService::Listen(kEndpoint, [&](const support::ConnectRequest&) { return Grant(); });
  for (const std::uint32_t flags : {0x09u, 0x109u, kByHandles}) {
    auto calls = CallsOf(flags);
    // At the end a handle is closed by way of its owner, and nobody can do anything about a close that fails.
    if (flags != kByHandles) {
      ASSERT_EQ(calls.back(), "DuplicateHandle");
      calls.pop_back();
    }
    ASSERT_GT(calls.size(), 15u);
    for (unsigned failAt = 1; failAt <= calls.size(); ++failAt) {
      if (calls[failAt - 1] == "CreatePipe") continue;  // It is meant that the binding stays then.
      platform::test::ArmFaults(failAt, false, platform::ERROR_NOT_ENOUGH_MEMORY);
      EXPECT_NE(Client(flags).status, Status::Success) << calls[failAt - 1];
      platform::test::DisarmFaults();
    }
  }
}

}  // namespace
