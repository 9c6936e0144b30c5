// The 64-bit FNV-1a hash: short, and the same in every process.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

class Fnv1a {
 public:
  void Add(const void* data, std::size_t size) noexcept {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (std::size_t i = 0; i < size; ++i) hash_ = (hash_ ^ bytes[i]) * 0x100000001B3;
  }
  [[nodiscard]] std::uint64_t Get() const noexcept { return hash_; }

 private:
  std::uint64_t hash_ = 0xCBF29CE484222325;
};

}  // namespace platform
