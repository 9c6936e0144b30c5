#include "lib/ipc/ipclib/ipclibLinkChannelSharedMemWin.h"

#include "lib/ipc/ipclib/ipclibTrace.h"
#include "platform/error.h"
#include "platform/sections.h"

namespace quill::ipc {
namespace {

template <class Handle, class Owner>
bool duplicate(Handle source, Owner& owner) noexcept {
  const platform::ProcessHandle here = platform::GetCurrentProcess();
  return platform::DuplicateHandle(here, source, here, owner.put(), 0, false, platform::DUPLICATE_SAME_ACCESS);
}

void* mapAll(const platform::UniqueSection& mapping) noexcept {
  return platform::MapViewOfFile(mapping.get(), platform::FILE_MAP_READ | platform::FILE_MAP_WRITE, 0, 0, 0);
}

}  // namespace

LmIpclibLinkChannelSharedMemWin::LmIpclibLinkChannelSharedMemWin(std::uint32_t linkValue, std::uint32_t flags,
                                                                 std::uint32_t size) noexcept
    : linkValue_(linkValue), flags_(flags), size_(size) {
  Trace(TraceChannel::Link, "-");
}

LmIpclibLinkChannelSharedMemWin::~LmIpclibLinkChannelSharedMemWin() {
  Trace(TraceChannel::Link, ">");
  destroy();
  Trace(TraceChannel::Link, "<");
}

LmIpcStatusCode LmIpclibLinkChannelSharedMemWin::open(const LmIpclibLinkChannelResourceWin& resources,
                                                      unsigned& errorCode) noexcept {
  Trace(TraceChannel::Link, ">");
  errorCode = platform::ERROR_SUCCESS;
  if (!duplicateAll(resources)) {
    errorCode = platform::GetLastError();
    Trace(TraceChannel::Link, "< errorCode: {}", errorCode);
    return LmIpcStatusCode::Unexpected;
  }
  view_.reset(mapAll(mapping_));
  if (!view_) {
    errorCode = platform::GetLastError();
    destroy();
    Trace(TraceChannel::Link, "< errorCode: {}", errorCode);
    return LmIpcStatusCode::Unexpected;
  }
  Trace(TraceChannel::Link, "< status: {}", LmIpcStatusCode::Success);
  return LmIpcStatusCode::Success;
}

void LmIpclibLinkChannelSharedMemWin::destroy() noexcept {
  Trace(TraceChannel::Link, ">");
  view_.reset();
  mapping_.reset();
  dataReadyEvent_.reset();
  dataConsumedEvent_.reset();
  errorEvent_.reset();
  stopEvent_.reset();
  Trace(TraceChannel::Link, "<");
}

std::span<std::byte> LmIpclibLinkChannelSharedMemWin::getView() const noexcept {
  return {static_cast<std::byte*>(view_.get()), view_ ? size_ : 0};
}

bool LmIpclibLinkChannelSharedMemWin::duplicateAll(const LmIpclibLinkChannelResourceWin& resources) noexcept {
  return duplicate(resources.mapping, mapping_) && duplicate(resources.dataReadyEvent, dataReadyEvent_) &&
         duplicate(resources.dataConsumedEvent, dataConsumedEvent_) && duplicate(resources.errorEvent, errorEvent_) &&
         duplicate(resources.stopEvent, stopEvent_);
}

}  // namespace quill::ipc
