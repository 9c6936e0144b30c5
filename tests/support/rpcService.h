// The service's end of the local RPC: owns an endpoint and answers the one call by which a client sets up a link.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/handles.h"
#include "platform/pipes.h"
#include "platform/types.h"

namespace support {

// What a client asks. The handles belong to the service and stay open while the call is answered.
struct ConnectRequest {
  unsigned procedure = 0;
  bool authenticated = false;  // The client proved who it is, and wanted the same of the service.
  std::int32_t clientVersion = 0;
  std::int64_t linkId = 0;
  std::int32_t linkFlags = 0;
  std::int64_t streamId = 0;
  std::int32_t streamFlags = 0;
  std::u16string streamName;  // Without its terminator.
  std::int32_t channelSizeHint = 0;
  platform::PipeHandle clientPipe;        // Procedure 1 only: signals when the client is gone.
  platform::ProcessHandle clientProcess;  // To be waited on.
};

// One direction's block and events: handles of the service's own, duplicated into the client by the call.
struct ChannelHandles {
  platform::SectionHandle mapping;
  platform::EventHandle dataReady;
  platform::EventHandle dataConsumed;
  platform::EventHandle error;
  platform::EventHandle stop;
};

// The answer, from the client's point of view: it reads `receive` and writes `send`. Handles may be null.
struct ConnectReply {
  std::int32_t channelSize = 0;
  std::int32_t linkValue = 0;
  std::int64_t remoteLinkValue = 0;
  std::int32_t peerLinkFlags = 0;
  ChannelHandles receive;
  ChannelHandles send;
  bool hasPeerProcess = true;  // The service's own process.
  std::int32_t peerValue = 0;
  std::int64_t remoteStreamId = 0;
  std::int32_t remoteStreamFlags = 0;
  bool hasConnectStatus = true;  // False: what the client preset stays.
  std::int32_t connectStatus = 0;
  std::uint32_t result = 0;  // The call's own status.
};

class RpcService {
 public:
  using Answer = std::function<ConnectReply(const ConnectRequest&)>;

  // Listens from here to the destructor. `answer` runs on a thread of the service, one call at a time. What the reply
  // names is duplicated before the next call; the service keeps its own handles. Throws std::system_error when the
  // endpoint is taken or cannot be made.
  [[nodiscard]] static std::unique_ptr<RpcService> Listen(const platform::GUID& endpoint, Answer answer);

  RpcService() = default;
  RpcService(const RpcService&) = delete;
  RpcService& operator=(const RpcService&) = delete;
  virtual ~RpcService() = default;
};

}  // namespace support
