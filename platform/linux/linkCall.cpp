#include "platform/linkCall.h"

#include <array>
#include <cerrno>
#include <new>
#include <optional>
#include <utility>

#include "platform/linux/faults.h"
#include "platform/linux/rpcBindings.h"
#include "platform/linux/rpcEndpoint.h"
#include "platform/linux/rpcPacket.h"

namespace platform {
namespace {

using rpcPacket::Outcome;

RPC_STATUS StatusOfConnecting(int error) noexcept {
  switch (error) {
    case EACCES:
    case EPERM: return RPC_S_ACCESS_DENIED;
    case ENOMEM:
    case ENOBUFS:
    case EMFILE:
    case ENFILE: return RPC_S_OUT_OF_MEMORY;
    default: return RPC_S_SERVER_UNAVAILABLE;
  }
}

RPC_STATUS StatusOf(Outcome outcome) noexcept {
  switch (outcome) {
    case Outcome::Done: return RPC_S_OK;
    case Outcome::Gone: return RPC_S_CALL_FAILED;
    case Outcome::NoMemory: return RPC_S_OUT_OF_MEMORY;
    case Outcome::Broken: break;
  }
  return RPC_S_PROTOCOL_ERROR;
}

// A connection to whoever owns the endpoint.
RPC_STATUS Connect(const RpcBinding& binding, Descriptor& connection) {
  const localSocket::Place place = rpcEndpoint::PlaceOf(binding.Endpoint());
  if (place.name.empty()) return RPC_S_SERVER_UNAVAILABLE;
  connection = localSocket::Connect(place, localSocket::Clock::time_point::max());
  if (!connection) return StatusOfConnecting(errno);
  return localSocket::IsOfThisUser(connection) ? RPC_S_OK : RPC_S_ACCESS_DENIED;
}

RPC_STATUS Send(const Descriptor& connection, rpcPacket::Procedure procedure, const RpcBinding& binding,
                const LinkRequest& request, PipeHandle clientPipe) {
  std::optional<passedObjects::Passed> pipe;
  if (procedure == rpcPacket::Procedure::ByHandles) {
    pipe = passedObjects::Pass(clientPipe.value());
    if (!pipe) return RPC_S_INVALID_ARG;
  }
  const rpcPacket::RequestHead head{.magic = {},
                                    .procedure = procedure,
                                    .interfaceId = {},
                                    .object = binding.object,
                                    .authenticated = binding.authenticated ? 1u : 0u,
                                    .clientVersion = request.clientVersion,
                                    .linkId = request.linkId,
                                    .streamId = request.streamId,
                                    .linkFlags = request.linkFlags,
                                    .streamFlags = request.streamFlags,
                                    .channelSizeHint = request.channelSizeHint,
                                    .nameUnits = {}};
  return StatusOf(rpcPacket::WriteRequest(connection, head, request.streamName, pipe ? &*pipe : nullptr));
}

// The handle values of this process; all or none.
bool Enter(rpcPacket::Objects& objects, std::array<std::uintptr_t, rpcPacket::kHandles>& values) noexcept {
  for (std::size_t place = 0; place < objects.size(); ++place) {
    if (!objects[place]) continue;
    values[place] = handleTable::Add(std::move(objects[place]));
    if (values[place] != 0) continue;
    for (const std::uintptr_t added : values) {
      if (added != 0) handleTable::Close(added);
    }
    return false;
  }
  return true;
}

LinkChannelHandles ChannelOf(const std::uintptr_t* values) noexcept {
  return {.mapping = SectionHandle(values[0]),
          .dataReady = EventHandle(values[1]),
          .dataConsumed = EventHandle(values[2]),
          .error = EventHandle(values[3]),
          .stop = EventHandle(values[4])};
}

RPC_STATUS Await(const Descriptor& connection, LinkReply& reply) {
  rpcPacket::ReplyHead head{};
  rpcPacket::Objects objects;
  const Outcome outcome = rpcPacket::ReadReply(connection, head, objects);
  if (outcome != Outcome::Done) return StatusOf(outcome);
  std::array<std::uintptr_t, rpcPacket::kHandles> values{};
  if (!Enter(objects, values)) return RPC_S_OUT_OF_MEMORY;
  reply = {.channelSize = head.channelSize,
           .linkValue = head.linkValue,
           .remoteLinkValue = head.remoteLinkValue,
           .peerLinkFlags = head.peerLinkFlags,
           .receive = ChannelOf(values.data()),
           .send = ChannelOf(values.data() + 5),
           .peerProcess = ProcessHandle(values.back()),
           .peerValue = head.peerValue,
           .remoteStreamId = head.remoteStreamId,
           .remoteStreamFlags = head.remoteStreamFlags,
           .connectStatus = head.hasConnectStatus != 0 ? head.connectStatus : reply.connectStatus};
  return head.result;
}

RPC_STATUS Call(rpcPacket::Procedure procedure, RPC_BINDING_HANDLE handle, const LinkRequest& request,
                PipeHandle clientPipe, LinkReply& reply) noexcept try {
  if (FaultInjected("NdrClientCall3")) return InjectedRpcStatus();
  const auto binding = FindBinding(handle);
  if (!binding) return RPC_S_INVALID_BINDING;
  if (request.streamName == nullptr) return RPC_X_NULL_REF_POINTER;
  Descriptor connection;
  RPC_STATUS status = Connect(*binding, connection);
  if (status == RPC_S_OK) status = Send(connection, procedure, *binding, request, clientPipe);
  return status == RPC_S_OK ? Await(connection, reply) : status;
} catch (const std::bad_alloc&) {
  return RPC_S_OUT_OF_MEMORY;
}

}  // namespace

RPC_STATUS ConnectLinkByValues(RPC_BINDING_HANDLE binding, const LinkRequest& request, LinkReply& reply) noexcept {
  if (request.nameLength < 1 || request.nameLength > kLongestLinkStreamName) return RPC_X_INVALID_BOUND;
  return Call(rpcPacket::Procedure::ByValues, binding, request, {}, reply);
}

RPC_STATUS ConnectLinkByHandles(RPC_BINDING_HANDLE binding, const LinkRequest& request, PipeHandle clientPipe,
                                LinkReply& reply) noexcept {
  return Call(rpcPacket::Procedure::ByHandles, binding, request, clientPipe, reply);
}

}  // namespace platform
