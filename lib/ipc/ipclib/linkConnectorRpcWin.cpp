#include "lib/ipc/ipclib/linkConnectorRpcWin.h"

#include <array>
#include <optional>

#include "lib/ipc/ipclib/guidText.h"
#include "lib/ipc/ipclib/ipclibLinkSharedMemWin.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "lib/ipc/ipclib/ipclibTrace.h"
#include "platform/linkCall.h"
#include "platform/raii.h"

namespace quill::ipc {
namespace {

using platform::RPC_STATUS;

constexpr platform::LONG kClientVersion = 1;
constexpr std::uint32_t kChannelSizeHint = 0x10000;
constexpr char16_t kOptions[] = u"Security=identification dynamic true";

using EndpointText = std::array<char16_t, 48>;

void freeText(char16_t* text) noexcept { platform::RpcStringFreeW(&text); }
void freeBinding(platform::RPC_BINDING_HANDLE binding) noexcept { platform::RpcBindingFree(&binding); }

// The text lies behind the binding, so that it is freed first.
struct Binding {
  platform::Owner<platform::RPC_BINDING_HANDLE, &freeBinding> handle;
  platform::Owner<char16_t*, &freeText> text;
};

// The service must prove that it is the system's.
RPC_STATUS authenticate(platform::RPC_BINDING_HANDLE binding) noexcept {
  const platform::RPC_SECURITY_QOS quality{.Version = platform::RPC_C_SECURITY_QOS_VERSION,
                                           .Capabilities = platform::RPC_C_QOS_CAPABILITIES_MUTUAL_AUTH,
                                           .IdentityTracking = platform::RPC_C_QOS_IDENTITY_STATIC,
                                           .ImpersonationType = platform::RPC_C_IMP_LEVEL_IDENTIFY};
  return platform::RpcBindingSetAuthInfoExW(binding, u"SYSTEM", platform::RPC_C_AUTHN_LEVEL_PKT_PRIVACY,
                                            platform::RPC_C_AUTHN_WINNT, nullptr, platform::RPC_C_AUTHZ_NONE, &quality);
}

RPC_STATUS bindTo(const LmIpclibStream& stream, const EndpointText& endpoint, Binding& binding) noexcept {
  const bool authenticated = stream.flags().has(LmIpclibStreamFlag::Authenticate);
  RPC_STATUS status = platform::RpcStringBindingComposeW(nullptr, u"ncalrpc", nullptr, endpoint.data(),
                                                         authenticated ? nullptr : kOptions, binding.text.put());
  if (status == platform::RPC_S_OK) {
    status = platform::RpcBindingFromStringBindingW(binding.text.get(), binding.handle.put());
  }
  if (status == platform::RPC_S_OK) status = platform::RpcBindingSetObject(binding.handle.get(), &stream.endpoint());
  if (status == platform::RPC_S_OK && authenticated) status = authenticate(binding.handle.get());
  return status;
}

platform::LinkRequest requestFor(const LmIpclibStream& stream, const LmIpclibLink& link) noexcept {
  return {.clientVersion = kClientVersion,
          .linkId = link.linkId(),
          .linkFlags = link.flags() & kFlagsOnTheWire,
          .streamId = stream.streamId(),
          .streamFlags = (stream.flags() & kFlagsOnTheWire).bits(),
          .nameLength = static_cast<platform::LONG>(stream.streamName().size() + 1),
          .streamName = stream.streamName().c_str(),
          .channelSizeHint = kChannelSizeHint};
}

// What a call brings, closed again when this goes: the link keeps second handles.
struct Brought {
  LmIpclibLinkChannelResourceWin receive{true};
  LmIpclibLinkChannelResourceWin send{true};
  LmIpclibRemoteHandle peer;

  void take(const platform::LinkReply& reply) noexcept {
    take(reply.receive, receive);
    take(reply.send, send);
    peer.setHandle(reply.peerProcess);
  }

 private:
  static void take(const platform::LinkChannelHandles& handles, LmIpclibLinkChannelResourceWin& resources) noexcept {
    resources.mapping = handles.mapping;
    resources.dataReadyEvent = handles.dataReady;
    resources.dataConsumedEvent = handles.dataConsumed;
    resources.errorEvent = handles.error;
    resources.stopEvent = handles.stop;
  }
};

// The call's status; nothing when the link has no pipe by which the service could watch this process.
std::optional<RPC_STATUS> callByHandles(const Binding& binding, const platform::LinkRequest& request,
                                        LmIpclibLinkSharedMemWin& link, Brought& brought, platform::LinkReply& reply) {
  const platform::PipeHandle pipe = link.getReadPipeReference();
  if (!pipe) return std::nullopt;
  brought.peer.clear();
  return platform::ConnectLinkByHandles(binding.handle.get(), request, pipe, reply);
}

RPC_STATUS callByValues(const Binding& binding, const platform::LinkRequest& request, Brought& brought,
                        platform::LinkReply& reply) {
  brought.peer.reset(platform::GetCurrentProcess());  // The value that comes back is closed as one of this process.
  return platform::ConnectLinkByValues(binding.handle.get(), request, reply);
}

LmIpcStatusCode failRpc(RPC_STATUS status, unsigned& errorCode) noexcept {
  errorCode = static_cast<unsigned>(status);
  Trace(TraceChannel::Link, "< rpcStatus: {}", status);
  return statusOfRpc(status);
}

LmIpcStatusCode end(LmIpcStatusCode status) noexcept {
  Trace(TraceChannel::Link, "< status: {}", status);
  return status;
}

}  // namespace

LmIpcStatusCode statusOfRpc(RPC_STATUS status) noexcept {
  switch (status) {
    case platform::RPC_S_OK: return LmIpcStatusCode::Success;
    case platform::RPC_S_ACCESS_DENIED: return LmIpcStatusCode::AccessDenied;
    case platform::RPC_S_OUT_OF_MEMORY: return LmIpcStatusCode::OutOfMemory;
    case platform::RPC_S_INVALID_ARG:
    case platform::RPC_S_INVALID_ENDPOINT_FORMAT: return LmIpcStatusCode::InvalidParam;
    case platform::RPC_S_SERVER_UNAVAILABLE: return LmIpcStatusCode::NotFound;
    case platform::RPC_S_DUPLICATE_ENDPOINT:
    case platform::RPC_S_ENTRY_ALREADY_EXISTS: return LmIpcStatusCode::AlreadyExists;
    default: return LmIpcStatusCode::Unexpected;
  }
}

LmIpcStatusCode LmIpclibLinkConnectorRpcWin::connect(const std::shared_ptr<task::TaskExecutor>&,
                                                     const std::shared_ptr<LmIpclibStream>& stream,
                                                     const std::shared_ptr<LmIpclibLink>& baseLink,
                                                     unsigned& errorCode) {
  auto& link = static_cast<LmIpclibLinkSharedMemWin&>(*baseLink);
  Trace(TraceChannel::Link, "ep: {}, linkId: {:#x}, streamId: {:#x}", stream->endpoint(), link.linkId(),
        stream->streamId());
  EndpointText endpoint{};
  if (platform::StringFromGUID2(stream->endpoint(), endpoint.data(), static_cast<int>(endpoint.size())) == 0) {
    return end(LmIpcStatusCode::Unexpected);
  }
  Binding binding;
  const RPC_STATUS bound = bindTo(*stream, endpoint, binding);
  if (bound != platform::RPC_S_OK) return failRpc(bound, errorCode);

  Brought brought;
  platform::LinkReply reply;
  reply.connectStatus = static_cast<std::uint32_t>(LmIpcStatusCode::Unexpected);
  const platform::LinkRequest request = requestFor(*stream, link);
  const std::optional<RPC_STATUS> called = useSystemHandles_ ? callByHandles(binding, request, link, brought, reply)
                                                             : callByValues(binding, request, brought, reply);
  if (!called) {
    // It is meant that the binding stays on this path.
    static_cast<void>(binding.text.release());
    static_cast<void>(binding.handle.release());
    return end(LmIpcStatusCode::Unexpected);
  }
  brought.take(reply);
  binding.text.reset();
  binding.handle.reset();
  errorCode = static_cast<unsigned>(*called);
  if (*called != platform::RPC_S_OK) return failRpc(*called, errorCode);

  const auto connectStatus = LmIpcStatusCode{reply.connectStatus};
  if (connectStatus != LmIpcStatusCode::Success) return end(connectStatus);
  stream->setRemote(reply.linkValue, reply.remoteStreamId, StreamFlags(reply.remoteStreamFlags));
  return end(link.attach(reply.linkValue, reply.remoteLinkValue, reply.peerLinkFlags, reply.channelSize,
                         brought.receive, brought.send, brought.peer.getHandle(), reply.peerValue, errorCode));
}

}  // namespace quill::ipc
