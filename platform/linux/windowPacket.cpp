#include "platform/linux/windowPacket.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <span>
#include <utility>

#include "platform/error.h"
#include "platform/linux/descriptorPacket.h"
#include "platform/linux/wholeFile.h"
#include "platform/linux/windowSocket.h"

namespace platform::windowPacket {
namespace {

constexpr int kSeals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
// One descriptor is expected: too many are noticed.
constexpr std::size_t kRoomForDescriptors = 8;

// A sealed memory file with that content; nothing, with errno set, on failure.
Descriptor MemoryFileOf(const void* data, std::size_t size) noexcept {
  Descriptor file(memfd_create("message", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!file) return {};
  if (!WriteAll(file.get(), {static_cast<const char*>(data), size})) return {};
  if (fcntl(file.get(), F_ADD_SEALS, kSeals) != 0) return {};
  return file;
}

// Reads a peer's memory file. Anything else that a descriptor may stand for has no seals and could make us wait.
bool ReadMemoryFile(const Descriptor& file, BYTE* bytes, std::size_t size) noexcept {
  struct stat status {};
  const int seals = fcntl(file.get(), F_GET_SEALS);
  if (seals < 0 || (seals & kSeals) != kSeals || fstat(file.get(), &status) != 0 ||
      status.st_size != static_cast<off_t>(size)) {
    return false;
  }
  for (std::size_t at = 0; at < size;) {
    const ssize_t got = pread(file.get(), bytes + at, size - at, static_cast<off_t>(at));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    at += static_cast<std::size_t>(got);
  }
  return true;
}

// The descriptors that came with a packet.
struct Received {
  std::array<Descriptor, kRoomForDescriptors> descriptors;
  std::size_t count = 0;

  explicit Received(msghdr& packet) noexcept {
    TakeDescriptors(packet, [this](Descriptor descriptor) { descriptors.at(count++) = std::move(descriptor); });
  }
};

bool IsWellFormed(const Head& head, std::size_t dataLength, std::size_t descriptors) noexcept {
  if (head.magic != kRequestMagic || head.size > kLargestData) return false;
  if (head.kind != Kind::Sent && head.kind != Kind::Posted) return false;
  if ((head.message == WM_COPYDATA) != (head.carriage != Carriage::Nothing)) return false;
  if (head.message == WM_COPYDATA && head.kind != Kind::Sent) return false;
  switch (head.carriage) {
    case Carriage::Nothing:
    case Carriage::NoData: return head.size == 0 && dataLength == 0 && descriptors == 0;
    case Carriage::Inline: return head.size == dataLength && descriptors == 0;
    case Carriage::MemoryFile: return dataLength == 0 && descriptors == 1;
  }
  return false;
}

// Fills the head's part about the data, and makes the memory file when one is needed.
bool Load(const COPYDATASTRUCT& data, Head& head, Descriptor& file) noexcept {
  head.lParam = data.dwData;
  head.carriage = Carriage::NoData;
  if (data.lpData == nullptr) return true;
  if (data.cbData > kLargestData) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return false;
  }
  head.size = data.cbData;
  head.carriage = Carriage::Inline;
  if (data.cbData <= kLargestInline) return true;
  head.carriage = Carriage::MemoryFile;
  file = MemoryFileOf(data.lpData, data.cbData);
  if (!file) SetLastError(windowSocket::ErrorOf(errno));
  return static_cast<bool>(file);
}

}  // namespace

bool Write(const Descriptor& connection, Kind kind, UINT message, WPARAM wParam, LPARAM lParam) noexcept {
  Head head{.magic = kRequestMagic,
            .kind = kind,
            .message = message,
            .carriage = Carriage::Nothing,
            .wParam = wParam,
            .lParam = static_cast<std::uint64_t>(lParam),
            .size = 0};
  iovec parts[2] = {{&head, sizeof head}, {nullptr, 0}};
  msghdr packet{};
  packet.msg_iov = parts;
  packet.msg_iovlen = 2;
  Descriptor file;
  DescriptorRoom<1> room;
  if (message == WM_COPYDATA) {
    const auto* data = reinterpret_cast<const COPYDATASTRUCT*>(lParam);
    if (data == nullptr) {
      SetLastError(ERROR_INVALID_PARAMETER);
      return false;
    }
    if (!Load(*data, head, file)) return false;
    if (head.carriage == Carriage::Inline) parts[1] = {data->lpData, data->cbData};
    if (const int value = file.get(); file) Attach(std::span(&value, 1), room, packet);
  }
  // The first packet of a connection: there is room for it.
  if (sendmsg(connection.get(), &packet, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0) return true;
  SetLastError(windowSocket::ErrorOf(errno));
  return false;
}

Arrival Read(const Descriptor& connection, Request& request) noexcept {
  Head head{};
  BYTE content[kLargestInline];
  iovec parts[2] = {{&head, sizeof head}, {content, sizeof content}};
  DescriptorRoom<kRoomForDescriptors> room;
  msghdr packet{};
  packet.msg_iov = parts;
  packet.msg_iovlen = 2;
  packet.msg_control = room.bytes;
  packet.msg_controllen = sizeof room.bytes;
  const ssize_t length = recvmsg(connection.get(), &packet, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  if (length < 0 && (errno == EAGAIN || errno == EINTR)) return Arrival::NotYet;
  if (length < 0) return Arrival::Broken;
  const Received received(packet);
  const auto size = static_cast<std::size_t>(length);
  if (size < sizeof head || (packet.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0 ||
      !IsWellFormed(head, size - sizeof head, received.count)) {
    return Arrival::Broken;
  }

  request.kind = head.kind;
  request.message = head.message;
  request.wParam = head.wParam;
  request.lParam = static_cast<LPARAM>(head.lParam);
  request.size = static_cast<DWORD>(head.size);
  if (head.carriage == Carriage::Inline || head.carriage == Carriage::MemoryFile) {
    request.data.reset(new (std::nothrow) BYTE[request.size]);
    if (!request.data) return Arrival::Broken;
  }
  if (head.carriage == Carriage::Inline) std::memcpy(request.data.get(), content, request.size);
  if (head.carriage == Carriage::MemoryFile &&
      !ReadMemoryFile(received.descriptors[0], request.data.get(), request.size)) {
    return Arrival::Broken;
  }
  return Arrival::Whole;
}

void WriteAnswer(const Descriptor& connection, LRESULT result) noexcept {
  const Answer answer{.magic = kAnswerMagic, .reserved = 0, .result = result};
  // A sender that has gone meanwhile needs no answer.
  [[maybe_unused]] const ssize_t sent = send(connection.get(), &answer, sizeof answer, MSG_NOSIGNAL | MSG_DONTWAIT);
}

std::optional<LRESULT> ReadAnswer(const Descriptor& connection) noexcept {
  Answer answer{};
  ssize_t length = 0;
  do length = recv(connection.get(), &answer, sizeof answer, MSG_DONTWAIT | MSG_TRUNC);
  while (length < 0 && errno == EINTR);
  if (length != sizeof answer || answer.magic != kAnswerMagic) return std::nullopt;
  return static_cast<LRESULT>(answer.result);
}

}  // namespace platform::windowPacket
