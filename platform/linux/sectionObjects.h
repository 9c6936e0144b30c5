// The object behind a SectionHandle.
#pragma once

#include <fcntl.h>

#include <utility>

#include "platform/linux/descriptor.h"
#include "platform/linux/handleTable.h"

namespace platform {

class Section final : public KernelObject {
 public:
  explicit Section(Descriptor memory) noexcept : memory_(std::move(memory)) {}
  [[nodiscard]] const char* KindName() const noexcept override { return "Section"; }
  [[nodiscard]] int Get() const noexcept { return memory_.get(); }

 private:
  Descriptor memory_;
};

// What no process can undo: so nobody can take away memory that another has mapped, for touching it would end that one.
inline constexpr int kSectionSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

}  // namespace platform
