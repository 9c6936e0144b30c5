// Transactions written field by field, right or wrong, with nothing of the library's own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tests/ipc/tableCrc.h"

namespace ipcTests {

// The streams of a message in these tests.
inline constexpr std::uint64_t kSource = 0x5300ABCD00000007;
inline constexpr std::uint64_t kDestination = 0x5311223300000002;

struct RawBlock {
  std::uint32_t type = 6;
  std::uint32_t flags = 3;
  std::string data = "hello";
  std::uint64_t source = kSource;
  std::uint64_t destination = kDestination;
  std::uint32_t status = 0;
  // What the fields say, when it is not the truth.
  std::uint32_t dataSizeOff = 0;
  std::uint32_t blockSizeOff = 0;
};

// The transaction of the wire's worked example: the word hello in a Msg.
inline constexpr std::string_view kHelloHex =
    "00000000"
    "1A7FF8AE"
    "0100000000000000"
    "00000000"
    "49000000"
    "01000000"
    "06000000"
    "03000000"
    "00000000"
    "07000000CDAB0053"
    "0200000033221153"
    "2D000000"
    "05000000"
    "05000000"
    "68656C6C6F";

inline std::vector<std::byte> FromHex(std::string_view hex) {
  std::vector<std::byte> bytes;
  for (std::size_t at = 0; at < hex.size(); at += 2) {
    bytes.push_back(static_cast<std::byte>(std::stoul(std::string(hex.substr(at, 2)), nullptr, 16)));
  }
  return bytes;
}

class RawTransaction {
 public:
  RawTransaction() : bytes(28) {}
  RawTransaction(std::initializer_list<RawBlock> all) : RawTransaction() {
    for (const RawBlock& block : all) Add(block);
    Seal();
  }

  void Add(const RawBlock& block) {
    const bool first = (block.flags & 1) != 0;
    const auto dataSize = static_cast<std::uint32_t>(block.data.size());
    Append32(block.type);
    Append32(block.flags);
    Append32(block.status);
    Append64(block.source);
    Append64(block.destination);
    Append32((first ? 40 : 36) + dataSize + block.blockSizeOff);
    Append32(dataSize + block.dataSizeOff);
    if (first) Append32(dataSize);
    for (const char unit : block.data) bytes.push_back(static_cast<std::byte>(unit));
    ++blocks;
  }

  // Fills the header in, and the sum over as many bytes as there are.
  void Seal() { Seal(static_cast<std::uint32_t>(bytes.size()), blocks, 1); }
  void Seal(std::uint32_t trxSize, std::uint32_t msgCount, std::uint32_t trxSeqNo) {
    Put32(8, trxSeqNo);
    Put32(20, trxSize);
    Put32(24, msgCount);
    Put32(4, 0);
    const std::size_t summed = trxSize < bytes.size() ? trxSize : bytes.size();
    Put32(4, TableCrc(std::span(bytes).first(summed)));
  }

  void Put32(std::size_t offset, std::uint32_t number) {
    for (std::size_t at = 0; at < 4; ++at) bytes[offset + at] = static_cast<std::byte>(number >> (8 * at));
  }

  std::vector<std::byte> bytes;
  std::uint32_t blocks = 0;

 private:
  void Append32(std::uint32_t number) {
    bytes.resize(bytes.size() + 4);
    Put32(bytes.size() - 4, number);
  }
  void Append64(std::uint64_t number) {
    Append32(static_cast<std::uint32_t>(number));
    Append32(static_cast<std::uint32_t>(number >> 32));
  }
};

}  // namespace ipcTests
