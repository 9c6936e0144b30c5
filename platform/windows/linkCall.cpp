#include "platform/linkCall.h"

#include <array>

#include "platform/windows/guardedCall.h"
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

// What a call is made with.
struct Arguments {
  ::RPC_BINDING_HANDLE binding;
  const LinkRequest& request;
  ::HANDLE clientPipe;
  LinkReply& reply;
  Answer answer = {};
  RPC_STATUS result = RPC_S_OK;
};

// The last of the arguments, which both procedures have in common.
template <class... Front>
void Call(std::size_t procedure, Arguments& call, Front... front) {
  auto& handles = call.answer.handles;
  LinkReply& reply = call.reply;
  const ::CLIENT_CALL_RETURN result = ::NdrClientCall3(
      const_cast<::MIDL_STUBLESS_PROXY_INFO*>(&linkTables::proxyInfo), static_cast<unsigned long>(procedure), nullptr,
      call.binding, front..., &reply.channelSize, &reply.linkValue, &reply.remoteLinkValue, &reply.peerLinkFlags,
      &handles[0], &handles[1], &handles[2], &handles[3], &handles[4], &handles[5], &handles[6], &handles[7],
      &handles[8], &handles[9], &handles[10], &reply.peerValue, &reply.remoteStreamId, &reply.remoteStreamFlags,
      &reply.connectStatus);
  call.result = static_cast<RPC_STATUS>(result.Simple);
}

void CallByValues(void* arguments) {
  auto& call = *static_cast<Arguments*>(arguments);
  const LinkRequest& request = call.request;
  Call(linkTables::kByValues, call, request.clientVersion, request.linkId, request.linkFlags, request.streamId,
       request.streamFlags, request.nameLength, request.streamName, request.channelSizeHint);
}

void CallByHandles(void* arguments) {
  auto& call = *static_cast<Arguments*>(arguments);
  const LinkRequest& request = call.request;
  Call(linkTables::kByHandles, call, request.clientVersion, request.linkId, request.linkFlags, request.streamId,
       request.streamFlags, request.streamName, request.channelSizeHint, call.clientPipe);
}

// The runtime raises what keeps it from making the call.
RPC_STATUS Guarded(void (*function)(void*), Arguments call) {
  const unsigned raised = GuardedCall(function, &call);
  if (raised != 0) return static_cast<RPC_STATUS>(raised);
  call.answer.MoveTo(call.reply);
  return call.result;
}

}  // namespace

RPC_STATUS ConnectLinkByValues(RPC_BINDING_HANDLE binding, const LinkRequest& request, LinkReply& reply) noexcept {
  return Guarded(&CallByValues,
                 {.binding = Native(binding), .request = request, .clientPipe = nullptr, .reply = reply});
}

RPC_STATUS ConnectLinkByHandles(RPC_BINDING_HANDLE binding, const LinkRequest& request, PipeHandle clientPipe,
                                LinkReply& reply) noexcept {
  return Guarded(&CallByHandles, {.binding = Native(binding),
                                  .request = request,
                                  .clientPipe = reinterpret_cast<::HANDLE>(clientPipe.value()),
                                  .reply = reply});
}

}  // namespace platform
