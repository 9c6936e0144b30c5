// What the stand-in of the service prints: one line for each thing, at once.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace standIn {

// Any thread may print; lines never mix.
class Lines {
 public:
  explicit Lines(std::function<void(const std::string&)> write) : write_(std::move(write)) {}
  void Print(const std::string& line);
  // Waits until a line that is being printed is out, and lets no other begin. For an end that is no return from main:
  // Windows' C library writes what it has buffered even then, and a line that was on its way would come twice.
  void Cease();

 private:
  std::mutex lock_;
  const std::function<void(const std::string&)> write_;
};

// UTF-8 on one line. A lone surrogate and a control character become "\uD800", a backslash becomes "\\", so that
// different texts never look alike.
[[nodiscard]] std::string Escaped(std::u16string_view text);

// UTF-16 as it stands in messages; an odd last byte is left out.
[[nodiscard]] std::u16string FromLittleEndian(std::string_view bytes);
[[nodiscard]] std::string ToLittleEndian(std::u16string_view text);

// "0x53001234"
[[nodiscard]] std::string Hex(std::uint64_t number);
// "68656c6c6f"
[[nodiscard]] std::string HexBytes(std::string_view bytes);

[[nodiscard]] std::uint32_t Number32(std::string_view bytes, std::size_t offset);
[[nodiscard]] std::string Bytes32(std::uint32_t number);

}  // namespace standIn
