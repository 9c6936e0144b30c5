#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/linux/handleTable.h"
#include "platform/linux/localSocket.h"
#include "platform/linux/processes.h"
#include "platform/linux/rpcEndpoint.h"
#include "platform/linux/rpcPacket.h"
#include "platform/raii.h"
#include "platform/rpc.h"
#include "tests/support/rpcService.h"

namespace support {
namespace {

using namespace platform;
using passedObjects::Passed;

[[noreturn]] void Fail(int error, const char* what) { throw std::system_error(error, std::generic_category(), what); }

// The client as the host tells it, whatever it says of itself.
UniqueProcess ClientOf(const Descriptor& connection) {
  ucred peer{};
  socklen_t size = sizeof peer;
  auto process = std::make_shared<WatchedProcess>();
  if (getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return {};
  process->id = peer.pid;
  process->ended = WatchedProcess::Watch(peer.pid);
  if (!process->ended) return {};
  return UniqueProcess(ProcessHandle(handleTable::Add(std::make_shared<ProcessObject>(std::move(process)))));
}

Passed PassedFor(std::uintptr_t handle) {
  return handle != 0 ? passedObjects::Pass(handle).value_or(Passed{}) : Passed{};
}

std::array<Passed, rpcPacket::kHandles> PassedFor(const ConnectReply& reply) {
  std::array<Passed, rpcPacket::kHandles> passed;
  std::size_t place = 0;
  for (const ChannelHandles* channel : {&reply.receive, &reply.send}) {
    passed[place++] = PassedFor(channel->mapping.value());
    passed[place++] = PassedFor(channel->dataReady.value());
    passed[place++] = PassedFor(channel->dataConsumed.value());
    passed[place++] = PassedFor(channel->error.value());
    passed[place++] = PassedFor(channel->stop.value());
  }
  if (reply.hasPeerProcess) passed[place] = PassedFor(GetCurrentProcess().value());
  return passed;
}

class Service final : public RpcService {
 public:
  Service(localSocket::Place place, Descriptor listener, Descriptor stop, Answer answer)
      : place_(std::move(place)),
        listener_(std::move(listener)),
        stop_(std::move(stop)),
        answer_(std::move(answer)),
        thread_([this] { Serve(); }) {}
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  ~Service() override {
    const std::uint64_t one = 1;
    if (write(stop_.get(), &one, sizeof one) != sizeof one) std::terminate();
    thread_.join();
    localSocket::Remove(place_);
  }

 private:
  // False when the service ends.
  bool Await(const Descriptor& descriptor) const {
    std::array<pollfd, 2> waits{{{.fd = stop_.get(), .events = POLLIN, .revents = 0},
                                 {.fd = descriptor.get(), .events = POLLIN, .revents = 0}}};
    while (poll(waits.data(), waits.size(), -1) < 0) {
      if (errno != EINTR) Fail(errno, "poll");
    }
    return waits[0].revents == 0;
  }

  void Serve() const {
    while (Await(listener_)) {
      const Descriptor connection = localSocket::Accept(listener_);
      if (connection && Await(connection)) ServeOne(connection);
    }
  }

  // A client that makes no sense is hung up on.
  void ServeOne(const Descriptor& connection) const {
    rpcPacket::Request request;
    if (rpcPacket::ReadRequest(connection, request) != rpcPacket::Outcome::Done) return;
    const UniquePipe pipe(PipeHandle(request.pipe ? handleTable::Add(std::move(request.pipe)) : 0));
    const UniqueProcess client = ClientOf(connection);
    const ConnectReply reply = answer_({.procedure = static_cast<unsigned>(request.head.procedure),
                                        .authenticated = request.head.authenticated != 0,
                                        .clientVersion = request.head.clientVersion,
                                        .linkId = static_cast<std::int64_t>(request.head.linkId),
                                        .linkFlags = static_cast<std::int32_t>(request.head.linkFlags),
                                        .streamId = static_cast<std::int64_t>(request.head.streamId),
                                        .streamFlags = static_cast<std::int32_t>(request.head.streamFlags),
                                        .streamName = std::move(request.name),
                                        .channelSizeHint = static_cast<std::int32_t>(request.head.channelSizeHint),
                                        .clientPipe = pipe.get(),
                                        .clientProcess = client.get()});
    const rpcPacket::ReplyHead head{.magic = {},
                                    .result = static_cast<std::int32_t>(reply.result),
                                    .channelSize = static_cast<std::uint32_t>(reply.channelSize),
                                    .linkValue = static_cast<std::uint32_t>(reply.linkValue),
                                    .remoteLinkValue = static_cast<std::uint64_t>(reply.remoteLinkValue),
                                    .peerLinkFlags = static_cast<std::uint32_t>(reply.peerLinkFlags),
                                    .peerValue = static_cast<std::uint32_t>(reply.peerValue),
                                    .remoteStreamId = static_cast<std::uint64_t>(reply.remoteStreamId),
                                    .remoteStreamFlags = static_cast<std::uint32_t>(reply.remoteStreamFlags),
                                    .hasConnectStatus = reply.hasConnectStatus ? 1u : 0u,
                                    .connectStatus = static_cast<std::uint32_t>(reply.connectStatus),
                                    .kinds = {},
                                    .reserved = 0};
    // A client that is gone needs no answer.
    static_cast<void>(rpcPacket::WriteReply(connection, head, PassedFor(reply)));
  }

  const localSocket::Place place_;
  const Descriptor listener_;
  const Descriptor stop_;
  const Answer answer_;
  std::thread thread_;  // Last: it uses all of the above.
};

}  // namespace

std::unique_ptr<RpcService> RpcService::Listen(const GUID& endpoint, Answer answer) {
  std::array<char16_t, 40> text{};
  static_cast<void>(StringFromGUID2(endpoint, text.data(), static_cast<int>(text.size())));
  localSocket::Place place = rpcEndpoint::PlaceOf(text.data());
  if (place.name.empty()) Fail(EACCES, "the folder of endpoints");
  if (localSocket::IsAlive(place)) Fail(EADDRINUSE, "the endpoint is taken");
  Descriptor listener = localSocket::Listen(place);
  if (!listener) Fail(errno, "listen");
  Descriptor stop(eventfd(0, EFD_CLOEXEC));
  if (!stop) Fail(errno, "eventfd");
  return std::make_unique<Service>(std::move(place), std::move(listener), std::move(stop), std::move(answer));
}

}  // namespace support
