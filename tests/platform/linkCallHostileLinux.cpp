// A service that means harm: whatever it answers, the call fails with a status, and nothing stays open.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/linkCall.h"
#include "platform/linux/localSocket.h"
#include "platform/linux/rpcEndpoint.h"
#include "platform/linux/rpcPacket.h"
#include "platform/linux/testHooks.h"
#include "tests/platform/linkCallSupport.h"
#include "tests/support/descriptorsLinux.h"
#include "tests/support/machine.h"

namespace {

using namespace platform;
using namespace linkCalls;
using support::OpenDescriptors;

Descriptor SectionOf(off_t size, int seals) {
  Descriptor memory(memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  EXPECT_EQ(ftruncate(memory.get(), size), 0);
  EXPECT_EQ(fcntl(memory.get(), F_ADD_SEALS, seals), 0);
  return memory;
}
constexpr int kAllSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;
Descriptor GoodSection() { return SectionOf(4096, kAllSeals); }
Descriptor GoodEvent() { return Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)); }
Descriptor GoodProcess() { return Descriptor(static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0))); }

// A reply with all eleven handles, that a test spoils.
struct Reply {
  rpcPacket::ReplyHead head{};
  std::vector<Descriptor> descriptors;
  std::size_t size = sizeof(rpcPacket::ReplyHead);  // More than that: bytes behind it.

  Reply() {
    head.magic = rpcPacket::kReplyMagic;
    for (std::size_t place = 0; place < rpcPacket::kHandles; ++place) {
      const bool section = place == 0 || place == 5;
      const bool process = place == rpcPacket::kHandles - 1;
      head.kinds[place] = section   ? rpcPacket::Kind::Section
                          : process ? rpcPacket::Kind::Process
                                    : rpcPacket::Kind::AutoResetEvent;
      descriptors.push_back(section ? GoodSection() : process ? GoodProcess() : GoodEvent());
    }
  }
  void Send(const Descriptor& connection) const {
    std::array<char, 256> bytes{};
    std::memcpy(bytes.data(), &head, sizeof head);
    iovec part{.iov_base = bytes.data(), .iov_len = size};
    std::vector<int> values;
    for (const Descriptor& descriptor : descriptors) values.push_back(descriptor.get());
    std::vector<char> control(CMSG_SPACE(values.size() * sizeof(int)));
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!values.empty()) {
      message.msg_control = control.data();
      message.msg_controllen = control.size();
      cmsghdr* const header = CMSG_FIRSTHDR(&message);
      header->cmsg_level = SOL_SOCKET;
      header->cmsg_type = SCM_RIGHTS;
      header->cmsg_len = CMSG_LEN(values.size() * sizeof(int));
      std::memcpy(CMSG_DATA(header), values.data(), values.size() * sizeof(int));
    }
    EXPECT_EQ(sendmsg(connection.get(), &message, MSG_NOSIGNAL), static_cast<ssize_t>(size));
  }
};

class HostileService : public testing::Test {
 protected:
  // The status of a call to a service that does this with the connection.
  RPC_STATUS CallTo(const std::function<void(const Descriptor&)>& serve) {
    const GUID endpoint = NewEndpoint();
    std::array<char16_t, 40> text{};
    EXPECT_NE(StringFromGUID2(endpoint, text.data(), text.size()), 0);
    const localSocket::Place place = rpcEndpoint::PlaceOf(text.data());
    const std::ptrdiff_t before = OpenDescriptors();
    const auto handles = test::LiveHandles();
    RPC_STATUS status = RPC_S_OK;
    {
      const Descriptor listener = localSocket::Listen(place);
      EXPECT_EQ(fcntl(listener.get(), F_SETFL, 0), 0);
      std::thread service([&] {
        const Descriptor connection(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        serve(connection);
      });
      const Binding binding(endpoint);
      LinkReply reply;
      status = ConnectLinkByValues(binding.get(), RequestWithName(u"calc"), reply);
      service.join();
      CloseAll(reply);
    }
    localSocket::Remove(place);
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_EQ(test::LiveHandles(), handles);
    return status;
  }
  RPC_STATUS CallFor(const Reply& reply) {
    return CallTo([&](const Descriptor& connection) {
      rpcPacket::Request request;
      EXPECT_EQ(rpcPacket::ReadRequest(connection, request), rpcPacket::Outcome::Done);
      reply.Send(connection);
    });
  }

  const support::Machine machine;
};

TEST_F(HostileService, IsNoneWhenItsReplyIsSound) { EXPECT_EQ(CallFor(Reply()), RPC_S_OK); }

TEST_F(HostileService, ThatHangsUpWithoutAWordFailsTheCall) {
  EXPECT_EQ(CallTo([](const Descriptor&) {}), RPC_S_CALL_FAILED);
}

TEST_F(HostileService, ThatHangsUpOnTheRequestFailsTheCall) {
  EXPECT_EQ(CallTo([](const Descriptor& connection) {
              rpcPacket::Request request;
              EXPECT_EQ(rpcPacket::ReadRequest(connection, request), rpcPacket::Outcome::Done);
            }),
            RPC_S_CALL_FAILED);
}

TEST_F(HostileService, MaySendNoReplyOfAnotherSize) {
  for (const std::size_t size :
       {std::size_t{1}, sizeof(rpcPacket::ReplyHead) - 1, sizeof(rpcPacket::ReplyHead) + 1, std::size_t{256}}) {
    Reply reply;
    reply.size = size;
    EXPECT_EQ(CallFor(reply), RPC_S_PROTOCOL_ERROR) << size;
  }
}

TEST_F(HostileService, MaySendNoReplyOfAnotherProtocol) {
  Reply magic;
  ++magic.head.magic;
  EXPECT_EQ(CallFor(magic), RPC_S_PROTOCOL_ERROR);
  Reply word;
  word.head.hasConnectStatus = 2;
  EXPECT_EQ(CallFor(word), RPC_S_PROTOCOL_ERROR);
  Reply reserved;
  reserved.head.reserved = 1;
  EXPECT_EQ(CallFor(reserved), RPC_S_PROTOCOL_ERROR);
}

TEST_F(HostileService, MaySendNoOtherCountOfDescriptors) {
  Reply none;
  none.descriptors.clear();
  EXPECT_EQ(CallFor(none), RPC_S_PROTOCOL_ERROR);
  Reply fewer;
  fewer.descriptors.pop_back();
  EXPECT_EQ(CallFor(fewer), RPC_S_PROTOCOL_ERROR);
  Reply more;
  more.descriptors.push_back(GoodEvent());
  EXPECT_EQ(CallFor(more), RPC_S_PROTOCOL_ERROR);
  Reply manyMore;
  for (int count = 0; count < 100; ++count) manyMore.descriptors.push_back(GoodEvent());
  EXPECT_EQ(CallFor(manyMore), RPC_S_PROTOCOL_ERROR);
}

TEST_F(HostileService, MaySendNoOtherKindThanBelongsThere) {
  for (const auto& [place, kind] :
       std::vector<std::pair<std::size_t, rpcPacket::Kind>>{{0, rpcPacket::Kind::AutoResetEvent},
                                                            {1, rpcPacket::Kind::Section},
                                                            {5, rpcPacket::Kind::Process},
                                                            {10, rpcPacket::Kind::ManualResetEvent},
                                                            {10, rpcPacket::Kind::Pipe},
                                                            {3, static_cast<rpcPacket::Kind>(77)}}) {
    Reply reply;
    reply.head.kinds[place] = kind;
    EXPECT_EQ(CallFor(reply), RPC_S_PROTOCOL_ERROR) << place;
  }
}

TEST_F(HostileService, MaySendNoSectionThatCouldShrinkOrThatIsNone) {
  for (const auto& make : std::vector<std::function<Descriptor()>>{
           [] { return SectionOf(4096, F_SEAL_GROW | F_SEAL_SEAL); }, [] { return SectionOf(4096, F_SEAL_SHRINK); },
           [] { return SectionOf(4096, kAllSeals | F_SEAL_WRITE); }, [] { return SectionOf(0, kAllSeals); }, &GoodEvent,
           [] { return Descriptor(open("/dev/zero", O_RDWR | O_CLOEXEC)); }}) {
    Reply reply;
    reply.descriptors[5] = make();
    EXPECT_EQ(CallFor(reply), RPC_S_PROTOCOL_ERROR);
  }
}

TEST_F(HostileService, MaySendNoEventThatBlocksOrThatIsNone) {
  for (const auto& make : std::vector<std::function<Descriptor()>>{
           [] { return Descriptor(eventfd(0, EFD_CLOEXEC)); }, &GoodSection, &GoodProcess,
           [] { return Descriptor(open("/dev/zero", O_RDWR | O_CLOEXEC | O_NONBLOCK)); }}) {
    Reply reply;
    reply.descriptors[2] = make();
    EXPECT_EQ(CallFor(reply), RPC_S_PROTOCOL_ERROR);
  }
}

TEST_F(HostileService, MaySendNoProcessThatIsNone) {
  for (const auto& make : std::vector<std::function<Descriptor()>>{
           &GoodSection, &GoodEvent, [] { return Descriptor(open("/proc/self/stat", O_RDONLY | O_CLOEXEC)); }}) {
    Reply reply;
    reply.descriptors[10] = make();
    EXPECT_EQ(CallFor(reply), RPC_S_PROTOCOL_ERROR);
  }
}

TEST_F(HostileService, IsNotAskedWhenTheCallIsMadeToFail) {
  test::ArmFaultsOf("NdrClientCall3", 1722);
  LinkReply reply;
  const Binding binding(NewEndpoint());
  EXPECT_EQ(ConnectLinkByValues(binding.get(), RequestWithName(u"calc"), reply), RPC_S_SERVER_UNAVAILABLE);
  test::DisarmFaults();
}

// --- The other way about: a client that means harm ---

TEST(HostileClient, SendsNoRequestThatAServiceTakes) {
  std::array<int, 2> ends{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
  const Descriptor client(ends[0]);
  const Descriptor service(ends[1]);
  const auto outcomeOf = [&](const rpcPacket::RequestHead& head, std::size_t size) {
    std::array<char, 128> bytes{};
    std::memcpy(bytes.data(), &head, sizeof head);
    EXPECT_EQ(send(client.get(), bytes.data(), size, 0), static_cast<ssize_t>(size));
    rpcPacket::Request request;
    return rpcPacket::ReadRequest(service, request);
  };
  rpcPacket::RequestHead good{};
  good.magic = rpcPacket::kRequestMagic;
  good.interfaceId = rpcPacket::kInterface;
  good.nameUnits = 2;
  EXPECT_EQ(outcomeOf(good, sizeof good + 4), rpcPacket::Outcome::Done);
  EXPECT_EQ(outcomeOf(good, sizeof good + 2), rpcPacket::Outcome::Broken);
  EXPECT_EQ(outcomeOf(good, sizeof good + 6), rpcPacket::Outcome::Broken);
  EXPECT_EQ(outcomeOf(good, sizeof good - 1), rpcPacket::Outcome::Broken);
  EXPECT_EQ(outcomeOf(good, 1), rpcPacket::Outcome::Broken);
  auto bad = good;
  bad.nameUnits = 0xFFFFFFFF;
  EXPECT_EQ(outcomeOf(bad, sizeof bad + 4), rpcPacket::Outcome::Broken);
  bad = good;
  bad.procedure = static_cast<rpcPacket::Procedure>(2);
  EXPECT_EQ(outcomeOf(bad, sizeof bad + 4), rpcPacket::Outcome::Broken);
  bad.procedure = rpcPacket::Procedure::ByHandles;
  EXPECT_EQ(outcomeOf(bad, sizeof bad + 4), rpcPacket::Outcome::Broken) << "without its pipe";
  bad = good;
  ++bad.interfaceId.Data1;
  EXPECT_EQ(outcomeOf(bad, sizeof bad + 4), rpcPacket::Outcome::Broken);
}

}  // namespace
