// Descriptors that go with a packet over a socket.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstring>
#include <span>

#include "platform/linux/descriptor.h"

namespace platform {

// Room in a packet for so many. The system closes for us only what finds no room.
template <std::size_t kCount>
struct alignas(cmsghdr) DescriptorRoom {
  char bytes[CMSG_SPACE(kCount * sizeof(int))] = {};
};

// Puts them, at least one, into a packet, for which the room stays until it is sent.
template <std::size_t kCount>
void Attach(std::span<const int> descriptors, DescriptorRoom<kCount>& room, msghdr& packet) noexcept {
  packet.msg_control = room.bytes;
  packet.msg_controllen = CMSG_SPACE(descriptors.size_bytes());
  cmsghdr* const entry = CMSG_FIRSTHDR(&packet);
  entry->cmsg_level = SOL_SOCKET;
  entry->cmsg_type = SCM_RIGHTS;
  entry->cmsg_len = CMSG_LEN(descriptors.size_bytes());
  std::memcpy(CMSG_DATA(entry), descriptors.data(), descriptors.size_bytes());
}

// Hands each that came with a packet to `take(Descriptor)`, which must not fail.
template <class Take>
void TakeDescriptors(msghdr& packet, const Take& take) noexcept {
  for (cmsghdr* entry = CMSG_FIRSTHDR(&packet); entry != nullptr; entry = CMSG_NXTHDR(&packet, entry)) {
    if (entry->cmsg_level != SOL_SOCKET || entry->cmsg_type != SCM_RIGHTS) continue;
    const std::size_t count = (entry->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < count; ++i) {
      int value = -1;
      std::memcpy(&value, CMSG_DATA(entry) + i * sizeof value, sizeof value);
      take(Descriptor(value));
    }
  }
}

}  // namespace platform
