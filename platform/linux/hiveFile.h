// Files of the host, as the hives use them.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace platform::registry {

// Owns an open file of the host.
class Descriptor {
 public:
  Descriptor() noexcept = default;
  explicit Descriptor(int value) noexcept : value_(value) {}
  Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  ~Descriptor() {
    if (value_ >= 0) close(value_);
  }
  [[nodiscard]] int get() const noexcept { return value_; }
  explicit operator bool() const noexcept { return value_ >= 0; }

 private:
  int value_ = -1;
};

// The file's bytes from where it stands, which are about as many as `expected`. Nothing, with errno set, on failure.
[[nodiscard]] std::optional<std::string> ReadAll(int file, std::size_t expected);
// False, with errno set, when not all could be written.
[[nodiscard]] bool WriteAll(int file, std::string_view bytes) noexcept;

}  // namespace platform::registry
