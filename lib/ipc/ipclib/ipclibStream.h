// One end of a conversation between two processes, as its messages know it: the count of the sends that are under way.
//
// Threading: every member may be called from any thread without a lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace quill::ipc {

class LmIpclibMsg;

class LmIpclibStream : public std::enable_shared_from_this<LmIpclibStream> {
 public:
  LmIpclibStream() = default;
  LmIpclibStream(const LmIpclibStream&) = delete;
  LmIpclibStream& operator=(const LmIpclibStream&) = delete;
  virtual ~LmIpclibStream() = default;

  // A message that counts as outstanding is about to be handed to the link.
  void countSend() noexcept { outstandingSends_.fetch_add(1, std::memory_order_relaxed); }
  // The message is complete: if it counts as outstanding, it no longer does.
  void onSendComplete(const std::shared_ptr<LmIpclibMsg>& message) noexcept;

  [[nodiscard]] std::uint32_t outstandingSends() const noexcept {
    return outstandingSends_.load(std::memory_order_relaxed);
  }

 private:
  std::atomic<std::uint32_t> outstandingSends_ = 0;
};

}  // namespace quill::ipc
