#include "platform/linux/rpcPacket.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <span>
#include <utility>
#include <vector>

#include "platform/linux/descriptorPacket.h"

namespace platform::rpcPacket {
namespace {

// One more than is ever announced: too many are noticed.
constexpr std::size_t kRoomForDescriptors = kHandles + 1;

Outcome OutcomeOf(int error) noexcept {
  switch (error) {
    case EPIPE:
    case ECONNRESET: return Outcome::Gone;
    case ENOMEM:
    case ENOBUFS:
    case EMSGSIZE:
    case ETOOMANYREFS: return Outcome::NoMemory;
    default: return Outcome::Broken;
  }
}

// The host keeps no packet that is larger than the buffer for what has been sent.
bool MakeRoom(const Descriptor& connection, std::size_t bytes) noexcept {
  const int size = static_cast<int>(bytes);
  return setsockopt(connection.get(), SOL_SOCKET, SO_SNDBUF, &size, sizeof size) == 0;
}

Outcome Send(const Descriptor& connection, std::span<iovec> parts, std::span<const int> descriptors) noexcept {
  DescriptorRoom<kRoomForDescriptors> room;
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  if (!descriptors.empty()) Attach(descriptors, room, message);
  ssize_t sent = 0;
  do sent = sendmsg(connection.get(), &message, MSG_NOSIGNAL);
  while (sent < 0 && errno == EINTR);
  return sent >= 0 ? Outcome::Done : OutcomeOf(errno);
}

struct Received {
  Outcome outcome = Outcome::Broken;
  std::size_t size = 0;
  std::vector<Descriptor> descriptors;
};

Received Receive(const Descriptor& connection, std::span<iovec> parts) {
  Received received;
  received.descriptors.reserve(kRoomForDescriptors);  // Behind the call there must be nothing that can fail.
  DescriptorRoom<kRoomForDescriptors> room;
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  message.msg_control = room.bytes;
  message.msg_controllen = sizeof room.bytes;
  ssize_t size = 0;
  do size = recvmsg(connection.get(), &message, MSG_CMSG_CLOEXEC);
  while (size < 0 && errno == EINTR);
  if (size < 0) {
    received.outcome = OutcomeOf(errno);
    return received;
  }
  TakeDescriptors(message, [&](Descriptor descriptor) { received.descriptors.push_back(std::move(descriptor)); });
  const bool whole = (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) == 0;
  received.size = static_cast<std::size_t>(size);
  received.outcome = !whole ? Outcome::Broken : size == 0 ? Outcome::Gone : Outcome::Done;
  return received;
}

iovec Part(const void* data, std::size_t size) noexcept {
  return {.iov_base = const_cast<void*>(data), .iov_len = size};
}

bool IsSound(const RequestHead& head, std::size_t descriptors) noexcept {
  const bool byHandles = head.procedure == Procedure::ByHandles;
  return head.magic == kRequestMagic && (byHandles || head.procedure == Procedure::ByValues) &&
         head.interfaceId == kInterface && head.authenticated <= 1 && head.nameUnits < kMostNameUnits &&
         descriptors == (byHandles ? 1u : 0u);
}

bool IsSound(const ReplyHead& head, std::size_t descriptors) noexcept {
  const auto announced = std::ranges::count_if(head.kinds, [](Kind kind) { return kind != Kind::None; });
  return head.magic == kReplyMagic && head.hasConnectStatus <= 1 && head.reserved == 0 &&
         descriptors == static_cast<std::size_t>(announced);
}

// The kind of handle that belongs into that place.
bool FitsPlace(Kind kind, std::size_t place) noexcept {
  switch (kind) {
    case Kind::None: return true;
    case Kind::Section: return place == 0 || place == 5;
    case Kind::AutoResetEvent:
    case Kind::ManualResetEvent: return place != 0 && place != 5 && place < kHandles - 1;
    case Kind::Process: return place == kHandles - 1;
    default: return false;
  }
}

}  // namespace

Outcome WriteRequest(const Descriptor& connection, RequestHead head, std::u16string_view name,
                     const passedObjects::Passed* pipe) noexcept {
  head.magic = kRequestMagic;
  head.interfaceId = kInterface;
  head.nameUnits = static_cast<std::uint32_t>(name.size());
  if (name.size() >= kMostNameUnits) return Outcome::NoMemory;
  const std::size_t bytes = name.size() * sizeof(char16_t);
  if (!MakeRoom(connection, sizeof head + bytes)) return OutcomeOf(errno);
  iovec parts[] = {Part(&head, sizeof head), Part(name.data(), bytes)};
  const int descriptor = pipe != nullptr ? pipe->descriptor : -1;
  return Send(connection, parts, std::span(&descriptor, pipe != nullptr ? 1 : 0));
}

Outcome ReadRequest(const Descriptor& connection, Request& request) {
  std::u16string name(kMostNameUnits, u'\0');
  iovec parts[] = {Part(&request.head, sizeof request.head), Part(name.data(), name.size() * sizeof(char16_t))};
  Received received = Receive(connection, parts);
  if (received.outcome != Outcome::Done) return received.outcome;
  const RequestHead& head = request.head;
  if (received.size < sizeof head || !IsSound(head, received.descriptors.size()) ||
      received.size != sizeof head + head.nameUnits * sizeof(char16_t)) {
    return Outcome::Broken;
  }
  name.resize(head.nameUnits);
  request.name = std::move(name);
  if (head.procedure == Procedure::ByHandles) {
    request.pipe = passedObjects::Receive(Kind::Pipe, std::move(received.descriptors.front()));
    if (!request.pipe) return Outcome::Broken;
  }
  return Outcome::Done;
}

Outcome WriteReply(const Descriptor& connection, ReplyHead head,
                   const std::array<passedObjects::Passed, kHandles>& handles) noexcept {
  head.magic = kReplyMagic;
  std::array<int, kHandles> descriptors{};
  std::size_t count = 0;
  for (std::size_t place = 0; place < kHandles; ++place) {
    head.kinds[place] = handles[place].kind;
    if (handles[place].kind != Kind::None) descriptors[count++] = handles[place].descriptor;
  }
  iovec parts[] = {Part(&head, sizeof head)};
  return Send(connection, parts, std::span(descriptors).first(count));
}

Outcome ReadReply(const Descriptor& connection, ReplyHead& head, Objects& objects) {
  iovec parts[] = {Part(&head, sizeof head)};
  Received received = Receive(connection, parts);
  if (received.outcome != Outcome::Done) return received.outcome;
  if (received.size != sizeof head || !IsSound(head, received.descriptors.size())) return Outcome::Broken;
  auto next = received.descriptors.begin();
  for (std::size_t place = 0; place < kHandles; ++place) {
    const Kind kind = head.kinds[place];
    if (kind == Kind::None) continue;
    if (FitsPlace(kind, place)) objects[place] = passedObjects::Receive(kind, std::move(*next++));
    if (!objects[place]) return Outcome::Broken;
  }
  return Outcome::Done;
}

}  // namespace platform::rpcPacket
