// Links of this process over shared memory, for tests that look into them or play the other side.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include "lib/ipc/ipclib/ipclibLinkSharedMemWin.h"
#include "platform/raii.h"
#include "platform/sections.h"

namespace streams {

using namespace quill::ipc;
using Executor = quill::task::TaskExecutor;
using LinkState = LmIpclibLink::State;

inline constexpr platform::GUID kEndpoint{0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}};

inline std::string TextOf(const LmIpclibMsg& message) {
  return {reinterpret_cast<const char*>(message.data()), message.size()};
}

// One direction: a block of shared memory and its events, as the side that serves makes them.
class Wire {
 public:
  explicit Wire(std::uint32_t size)
      : section_(platform::CreateFileMappingW(platform::INVALID_HANDLE_VALUE, nullptr, platform::PAGE_READWRITE, 0,
                                              size, nullptr)),
        view_(platform::MapViewOfFile(section_.get(), platform::FILE_MAP_READ | platform::FILE_MAP_WRITE, 0, 0, 0)),
        size_(size) {}

  void Describe(LmIpclibLinkChannelResourceWin& resources) const {
    resources.mapping = section_.get();
    resources.dataReadyEvent = dataReady.get();
    resources.dataConsumedEvent = dataConsumed.get();
    resources.errorEvent = error.get();
    resources.stopEvent = stop.get();
  }
  [[nodiscard]] std::span<std::byte> View() const { return {static_cast<std::byte*>(view_.get()), size_}; }

  static platform::UniqueEvent NewEvent() {
    return platform::UniqueEvent(platform::CreateEventW(nullptr, false, false, nullptr));
  }
  const platform::UniqueEvent dataReady = NewEvent();
  const platform::UniqueEvent dataConsumed = NewEvent();
  const platform::UniqueEvent error = NewEvent();
  const platform::UniqueEvent stop = NewEvent();

 private:
  const platform::UniqueSection section_;
  const platform::UniqueView view_;
  const std::uint32_t size_;
};

// Takes the signal of an auto-reset event, if there is one.
inline bool TakeSignal(const platform::UniqueEvent& event) {
  return platform::WaitForSingleObject(event.get(), 0) == platform::WAIT_OBJECT_0;
}

// A link that tests can look into.
class OpenLink final : public LmIpclibLinkSharedMemWin {
 public:
  explicit OpenLink(
      Callback stopping = [](LmIpclibLink&) {}, Callback closed = [](LmIpclibLink&) {})
      : LmIpclibLinkSharedMemWin(kEndpoint, 0x8009, std::move(stopping), std::move(closed)) {}

  void Listen(const std::shared_ptr<LmIpclibLinkListener>& listener) { linkListener = listener; }
  [[nodiscard]] std::shared_ptr<LmIpclibStreamCtrl> Control() const { return controlStream; }
  [[nodiscard]] std::size_t Streams() const {
    const Lock lock(m_lock);
    return streams.size();
  }
  [[nodiscard]] std::uint64_t BytesSent() const { return bytesSent; }
  [[nodiscard]] std::size_t Unsent() const {
    const Lock lock(m_lock);
    return deferredSends.size();
  }
};

// Attaches the link: it reads from `in`, and writes to `out`.
inline LmIpcStatusCode Attach(LmIpclibLinkSharedMemWin& link, const Wire& in, const Wire& out, std::uint32_t size,
                              platform::ProcessHandle peer = platform::GetCurrentProcess()) {
  LmIpclibLinkChannelResourceWin recvResources(false);
  LmIpclibLinkChannelResourceWin sendResources(false);
  in.Describe(recvResources);
  out.Describe(sendResources);
  unsigned errorCode = 0;
  return link.attach(7, 8, 0x00010000, size, recvResources, sendResources, peer, 9, errorCode);
}

}  // namespace streams
