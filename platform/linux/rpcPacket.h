// What travels between a client of the link interface and its service: one packet with the request, one with the reply.
//
// A packet is a head, the text of the name behind the request's, and descriptors beside it: those of the handles that
// the head announces, in their order. Whatever a peer writes, taking a packet in reads no more than was sent, and
// leaves no descriptor open.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/linux/descriptor.h"
#include "platform/linux/passedObjects.h"
#include "platform/types.h"

namespace platform::rpcPacket {

using passedObjects::Kind;

enum class Procedure : std::uint32_t { ByValues = 0, ByHandles = 1 };

// The request; nameUnits units follow, without a terminator.
struct RequestHead {
  std::uint32_t magic;
  Procedure procedure;
  GUID interfaceId;
  GUID object;
  std::uint32_t authenticated;  // 0 or 1.
  std::int32_t clientVersion;
  std::uint64_t linkId;
  std::uint64_t streamId;
  std::uint32_t linkFlags;
  std::uint32_t streamFlags;
  std::uint32_t channelSizeHint;
  std::uint32_t nameUnits;
};
static_assert(sizeof(RequestHead) == 80);
inline constexpr std::uint32_t kRequestMagic = 0x314C4E4B;
inline constexpr GUID kInterface{0x875AC244, 0xB80A, 0x420E, {0x90, 0xA2, 0x9C, 0x69, 0xDF, 0xD8, 0xE7, 0x28}};
inline constexpr std::uint32_t kMostNameUnits = 0x20000;

// Five handles of the channel that the client reads, five of the one that it writes, and the service's process.
inline constexpr std::size_t kHandles = 11;

struct ReplyHead {
  std::uint32_t magic;
  std::int32_t result;
  std::uint32_t channelSize;
  std::uint32_t linkValue;
  std::uint64_t remoteLinkValue;
  std::uint32_t peerLinkFlags;
  std::uint32_t peerValue;
  std::uint64_t remoteStreamId;
  std::uint32_t remoteStreamFlags;
  std::uint32_t hasConnectStatus;  // 0 or 1.
  std::uint32_t connectStatus;
  std::array<Kind, kHandles> kinds;  // None: a null handle, without a descriptor.
  std::uint8_t reserved;
};
static_assert(sizeof(ReplyHead) == 64);
inline constexpr std::uint32_t kReplyMagic = 0x324C4E4B;

using Objects = std::array<std::shared_ptr<KernelObject>, kHandles>;

enum class Outcome : std::uint8_t { Done, Gone, Broken, NoMemory };

struct Request {
  RequestHead head{};
  std::u16string name;
  std::shared_ptr<KernelObject> pipe;  // Exactly with Procedure::ByHandles.
};

// Gone: the peer has closed. The sockets wait, unless they were opened not to.
[[nodiscard]] Outcome WriteRequest(const Descriptor& connection, RequestHead head, std::u16string_view name,
                                   const passedObjects::Passed* pipe) noexcept;
[[nodiscard]] Outcome ReadRequest(const Descriptor& connection, Request& request);
[[nodiscard]] Outcome WriteReply(const Descriptor& connection, ReplyHead head,
                                 const std::array<passedObjects::Passed, kHandles>& handles) noexcept;
// What stands in `objects` for a null handle is null.
[[nodiscard]] Outcome ReadReply(const Descriptor& connection, ReplyHead& head, Objects& objects);

}  // namespace platform::rpcPacket
