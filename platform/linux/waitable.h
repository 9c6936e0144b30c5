// Kernel objects that can be waited for.
#pragma once

#include "platform/linux/handleTable.h"

namespace platform {

// An object whose descriptor is readable exactly while the object is signalled.
class WaitableObject : public KernelObject {
 public:
  // For poll and its kin; belongs to the object.
  [[nodiscard]] virtual int PollDescriptor() const noexcept = 0;
  // True when the object is signalled; then what a successful wait does to it has been done. Of several callers exactly
  // one gets the signal of an auto-reset event. Never blocks.
  [[nodiscard]] virtual bool TryConsume() noexcept = 0;
  // Takes a TryConsume back.
  virtual void Unconsume() noexcept {}
};

// True when a read of the descriptor would not block.
[[nodiscard]] bool IsReadable(int descriptor) noexcept;

}  // namespace platform
