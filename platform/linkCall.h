// The one interface that is called over a binding: a client asks a service for a link and for the first stream on it.
//
// Both procedures sleep until the service has answered, without a limit. They return the call's own status: whether it
// came through, and what the service returned. The reply is filled in whatever the status; what the service did not
// fill in stays as it was.
//
//   RPC_S_SERVER_UNAVAILABLE   nobody owns the endpoint
//   RPC_S_CALL_FAILED          the service went before it answered
//   RPC_X_INVALID_BOUND        the name is too long to go by values, or its length is 0
#pragma once

#include "platform/handles.h"
#include "platform/rpc.h"
#include "platform/types.h"

namespace platform {

// The most units of a stream's name, its terminator included, that a call by values carries.
inline constexpr LONG kLongestLinkStreamName = 0x20000;

struct LinkRequest {
  LONG clientVersion = 0;
  std::uint64_t linkId = 0;
  DWORD linkFlags = 0;
  std::uint64_t streamId = 0;
  DWORD streamFlags = 0;
  LONG nameLength = 0;  // With the terminator.
  const char16_t* streamName = nullptr;
  DWORD channelSizeHint = 0;
};

// A block of memory that goes one way, and its events.
struct LinkChannelHandles {
  SectionHandle mapping;
  EventHandle dataReady;
  EventHandle dataConsumed;
  EventHandle error;
  EventHandle stop;
};

// The handles are this process's own, and the caller's to close.
struct LinkReply {
  DWORD channelSize = 0;
  DWORD linkValue = 0;
  std::uint64_t remoteLinkValue = 0;
  DWORD peerLinkFlags = 0;
  LinkChannelHandles receive;
  LinkChannelHandles send;
  ProcessHandle peerProcess;
  DWORD peerValue = 0;
  std::uint64_t remoteStreamId = 0;
  DWORD remoteStreamFlags = 0;
  DWORD connectStatus = 0;
};

// The service puts its handles into this process, and tells their values.
RPC_STATUS ConnectLinkByValues(RPC_BINDING_HANDLE binding, const LinkRequest& request, LinkReply& reply) noexcept;

// The handles pass through the call; the service gets a handle to the pipe's read end, which stays the caller's.
RPC_STATUS ConnectLinkByHandles(RPC_BINDING_HANDLE binding, const LinkRequest& request, PipeHandle clientPipe,
                                LinkReply& reply) noexcept;

}  // namespace platform
