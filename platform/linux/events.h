// The event object behind an EventHandle.
#pragma once

#include <atomic>
#include <memory>
#include <string_view>

#include "platform/linux/descriptor.h"
#include "platform/linux/waitable.h"

namespace platform {

class Event final : public WaitableObject {
 public:
  // Null, with the last error set, when the host has no more descriptors or memory.
  [[nodiscard]] static std::shared_ptr<Event> Create(bool manualReset, bool initialState) noexcept;
  // The event of that name, made when there is none.
  [[nodiscard]] static std::shared_ptr<Event> Open(std::u16string_view name, bool manualReset, bool initialState,
                                                   bool& isNew);

  // The event of that name, if there is one; else null with ERROR_FILE_NOT_FOUND.
  [[nodiscard]] static std::shared_ptr<Event> OpenExisting(std::u16string_view name);

  [[nodiscard]] const char* KindName() const noexcept override { return "Event"; }
  [[nodiscard]] int PollDescriptor() const noexcept override { return counter_.get(); }
  [[nodiscard]] bool TryConsume() noexcept override;
  void Unconsume() noexcept override {
    if (!manualReset_) Set();
  }

  [[nodiscard]] bool IsManualReset() const noexcept { return manualReset_; }

  void Set() noexcept;
  void Reset() noexcept;

  Event(Descriptor counter, bool manualReset, Descriptor name = {}) noexcept
      : counter_(std::move(counter)), name_(std::move(name)), manualReset_(manualReset) {}

 private:
  // What a setter did before is seen by whoever a signal lets through. The host orders this by itself, but the language
  // knows nothing of descriptors.
  std::atomic<unsigned> sets_{0};
  // An eventfd, or the FIFO of a name; signalled while there is something in it. One read takes all of it.
  Descriptor counter_;
  Descriptor name_;  // Its shared lock is the name's existence for other processes.
  const bool manualReset_;
};

}  // namespace platform
