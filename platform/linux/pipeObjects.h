// The object behind a PipeHandle.
#pragma once

#include <utility>

#include "platform/linux/descriptor.h"
#include "platform/linux/waitable.h"

namespace platform {

class PipeEnd final : public WaitableObject {
 public:
  // Null, with the last error set, on failure. May throw std::bad_alloc.
  [[nodiscard]] static std::shared_ptr<PipeEnd> Of(Descriptor end);

  PipeEnd(Descriptor end, Descriptor signalled) noexcept : end_(std::move(end)), signalled_(std::move(signalled)) {}
  [[nodiscard]] const char* KindName() const noexcept override { return "Pipe"; }
  [[nodiscard]] int PollDescriptor() const noexcept override { return signalled_.get(); }
  [[nodiscard]] bool TryConsume() noexcept override { return true; }
  [[nodiscard]] int Get() const noexcept { return end_.get(); }

 private:
  Descriptor end_;
  Descriptor signalled_;  // Always readable: the end itself is so only when something can be read.
};

}  // namespace platform
