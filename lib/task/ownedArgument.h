// One untyped argument of a work task's callback, with what releases it.
#pragma once

#include <utility>

namespace quill::task {

// Calls the release function with the pointer, once, when it is discarded. A null pointer is no argument, and nothing
// is called for it.
class OwnedArgument {
 public:
  using Release = void (*)(void* pointer);

  OwnedArgument() noexcept = default;
  OwnedArgument(void* pointer, Release release) noexcept : pointer_(pointer), release_(release) {}
  OwnedArgument(OwnedArgument&& other) noexcept
      : pointer_(std::exchange(other.pointer_, nullptr)), release_(other.release_) {}
  OwnedArgument& operator=(OwnedArgument&& other) noexcept {
    std::swap(pointer_, other.pointer_);
    std::swap(release_, other.release_);
    return *this;
  }
  OwnedArgument(const OwnedArgument&) = delete;
  OwnedArgument& operator=(const OwnedArgument&) = delete;
  ~OwnedArgument() {
    if (pointer_ != nullptr) release_(pointer_);
  }

  [[nodiscard]] void* pointer() const noexcept { return pointer_; }

 private:
  void* pointer_ = nullptr;
  Release release_ = nullptr;
};

}  // namespace quill::task
