#include "tests/support/standInServiceChannel.h"

#include <algorithm>
#include <system_error>

#include "platform/sections.h"

namespace standIn {
namespace {

template <class Owner>
Owner Made(Owner owner, const char* what) {
  if (!owner) ThrowLastError(what);
  return owner;
}

}  // namespace

void ThrowLastError(const char* what) {
  throw std::system_error(static_cast<int>(platform::GetLastError()), std::system_category(), what);
}

platform::UniqueEvent NewEvent(bool staysSet) {
  return Made(platform::UniqueEvent(platform::CreateEventW(nullptr, staysSet, false, nullptr)), "CreateEventW");
}

Channel::Channel(std::uint32_t size)
    : dataReady(NewEvent()),
      dataConsumed(NewEvent()),
      error(NewEvent()),
      stop(NewEvent()),
      mapping_(Made(platform::UniqueSection(platform::CreateFileMappingW(platform::INVALID_HANDLE_VALUE, nullptr,
                                                                         platform::PAGE_READWRITE, 0, size, nullptr)),
                    "CreateFileMappingW")),
      view_(Made(platform::UniqueView(platform::MapViewOfFile(
                     mapping_.get(), platform::FILE_MAP_READ | platform::FILE_MAP_WRITE, 0, 0, 0)),
                 "MapViewOfFile")),
      size_(size) {}

std::vector<std::byte> Channel::Copy() const {
  const auto* const bytes = static_cast<const std::byte*>(view_.get());
  return {bytes, bytes + size_};
}

void Channel::Write(std::span<const std::byte> bytes) const {
  std::ranges::copy(bytes, static_cast<std::byte*>(view_.get()));
}

support::ChannelHandles Channel::Handles() const {
  return {mapping_.get(), dataReady.get(), dataConsumed.get(), error.get(), stop.get()};
}

}  // namespace standIn
