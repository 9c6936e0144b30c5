#include "platform/linkCall.h"

#include "platform/windows/linkTables.h"

namespace platform {
namespace {

::RPC_BINDING_HANDLE Native(RPC_BINDING_HANDLE binding) {
  return reinterpret_cast<::RPC_BINDING_HANDLE>(binding.value());
}

// What the call gives back, as both procedures lay it out. A handle that passes through the call, and the value of one
// that the service has put here, are of one size.
struct Answer {
  std::array<std::int64_t, 11> handles{};

  void MoveTo(LinkReply& reply) const noexcept {
    reply.receive = ChannelAt(0);
    reply.send = ChannelAt(5);
    reply.peerProcess = ProcessHandle(ValueAt(10));
  }

 private:
  [[nodiscard]] std::uintptr_t ValueAt(std::size_t place) const noexcept {
    return static_cast<std::uintptr_t>(handles[place]);
  }
  [[nodiscard]] LinkChannelHandles ChannelAt(std::size_t first) const noexcept {
    return {.mapping = SectionHandle(ValueAt(first)),
            .dataReady = EventHandle(ValueAt(first + 1)),
            .dataConsumed = EventHandle(ValueAt(first + 2)),
            .error = EventHandle(ValueAt(first + 3)),
            .stop = EventHandle(ValueAt(first + 4))};
  }
};
static_assert(sizeof(::HANDLE) == sizeof(std::int64_t));

// The last of the arguments, which both procedures have in common.
template <class... Front>
RPC_STATUS Call(std::size_t procedure, LinkReply& reply, Front... front) noexcept {
  Answer answer;
  auto& handles = answer.handles;
  const ::CLIENT_CALL_RETURN result =
      ::NdrClientCall3(const_cast<::MIDL_STUBLESS_PROXY_INFO*>(&linkTables::proxyInfo),
                       static_cast<unsigned long>(procedure), nullptr, front..., &reply.channelSize, &reply.linkValue,
                       &reply.remoteLinkValue, &reply.peerLinkFlags, &handles[0], &handles[1], &handles[2], &handles[3],
                       &handles[4], &handles[5], &handles[6], &handles[7], &handles[8], &handles[9], &handles[10],
                       &reply.peerValue, &reply.remoteStreamId, &reply.remoteStreamFlags, &reply.connectStatus);
  answer.MoveTo(reply);
  return static_cast<RPC_STATUS>(result.Simple);
}

}  // namespace

RPC_STATUS ConnectLinkByValues(RPC_BINDING_HANDLE binding, const LinkRequest& request, LinkReply& reply) noexcept {
  return Call(linkTables::kByValues, reply, Native(binding), request.clientVersion, request.linkId, request.linkFlags,
              request.streamId, request.streamFlags, request.nameLength, request.streamName, request.channelSizeHint);
}

RPC_STATUS ConnectLinkByHandles(RPC_BINDING_HANDLE binding, const LinkRequest& request, PipeHandle clientPipe,
                                LinkReply& reply) noexcept {
  return Call(linkTables::kByHandles, reply, Native(binding), request.clientVersion, request.linkId, request.linkFlags,
              request.streamId, request.streamFlags, request.streamName, request.channelSizeHint,
              reinterpret_cast<::HANDLE>(clientPipe.value()));
}

}  // namespace platform
