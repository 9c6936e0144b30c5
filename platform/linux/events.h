// The event object behind an EventHandle.
#pragma once

#include <atomic>
#include <memory>

#include "platform/linux/descriptor.h"
#include "platform/linux/waitable.h"

namespace platform {

class Event final : public WaitableObject {
 public:
  // Null, with the last error set, when the host has no more descriptors or memory.
  [[nodiscard]] static std::shared_ptr<Event> Create(bool manualReset, bool initialState) noexcept;

  [[nodiscard]] const char* KindName() const noexcept override { return "Event"; }
  [[nodiscard]] int PollDescriptor() const noexcept override { return counter_.get(); }
  [[nodiscard]] bool TryConsume() noexcept override;

  void Set() noexcept;
  void Reset() noexcept;

  Event(Descriptor counter, bool manualReset) noexcept : counter_(std::move(counter)), manualReset_(manualReset) {}

 private:
  // What a setter did before is seen by whoever a signal lets through. The host orders this by itself, but the language
  // knows nothing of descriptors.
  std::atomic<unsigned> sets_{0};
  Descriptor counter_;  // An eventfd; signalled while it is not 0. One read takes all of it.
  const bool manualReset_;
};

}  // namespace platform
