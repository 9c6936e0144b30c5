// Owns one file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace platform {

class Descriptor {
 public:
  Descriptor() noexcept = default;
  explicit Descriptor(int value) noexcept : value_(value) {}
  Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (value_ >= 0) close(value_);
  }

  [[nodiscard]] int get() const noexcept { return value_; }
  explicit operator bool() const noexcept { return value_ >= 0; }

 private:
  int value_ = -1;
};

}  // namespace platform
