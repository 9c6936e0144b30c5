// Kernel objects on their way into another process of this user: a descriptor, and the word what it stands for. What
// arrives is looked at before it is used: no word of a peer is taken for it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/linux/descriptor.h"
#include "platform/linux/handleTable.h"

namespace platform::passedObjects {

enum class Kind : std::uint8_t {
  None = 0,
  Section = 1,
  AutoResetEvent = 2,
  ManualResetEvent = 3,
  Process = 4,
  Pipe = 5
};

struct Passed {
  Kind kind = Kind::None;
  std::shared_ptr<KernelObject> object;  // Keeps the descriptor open.
  int descriptor = -1;
};

// What is sent for a handle; the value that stands for this process is a process. Nothing, with ERROR_INVALID_HANDLE,
// for a handle that cannot be sent. May throw std::bad_alloc.
[[nodiscard]] std::optional<Passed> Pass(std::uintptr_t handle);

// The object that came; null when it is not of that kind, or there are no means for it. May throw std::bad_alloc.
[[nodiscard]] std::shared_ptr<KernelObject> Receive(Kind kind, Descriptor descriptor);

}  // namespace platform::passedObjects
