// The transactions that cross a channel, as the stand-in of the service reads and writes them. Nothing here comes from
// the program's own library, so that each of the two checks the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace standIn {

enum class Type : std::uint32_t { None, Open, OpenAck, Close, CloseAck, Shutdown, Msg };
// "Open", "Msg" and so on; "unknown" for what is no type.
[[nodiscard]] const char* NameOf(Type type);

// A part of a message, or all of it.
struct Block {
  Type type = Type::Msg;
  std::uint16_t highFlags = 0;  // The upper half of the flags.
  bool first = true;
  bool last = true;
  std::uint32_t status = 0;
  std::uint64_t source = 0;
  std::uint64_t destination = 0;
  std::uint32_t totalSize = 0;  // Of the whole message; only in its first part.
  std::string data;
};

struct Transaction {
  std::uint64_t sequence = 0;
  std::vector<Block> blocks;
};

// Reads what stands in a channel's block. A text tells what is wrong with it: this reader is strict, and refuses also
// what a receiver may overlook, such as bytes behind the last block.
[[nodiscard]] std::variant<Transaction, std::string> Decode(std::span<const std::byte> block,
                                                            std::uint64_t expectedSequence);

// CRC-32 as in IEEE 802.3.
[[nodiscard]] std::uint32_t Checksum(std::span<const std::byte> bytes);

// Writes a transaction as it should be; what is to be wrong is written over it.
[[nodiscard]] std::vector<std::byte> Encode(const Transaction& transaction);
// Puts the number at that offset, and the checksum right again.
void Overwrite(std::vector<std::byte>& encoded, std::size_t offset, std::uint32_t number);

inline constexpr std::size_t kChecksumOffset = 4;
inline constexpr std::size_t kSequenceOffset = 8;
inline constexpr std::size_t kCountOffset = 24;
inline constexpr std::size_t kFirstTypeOffset = 28;

struct Message {
  Type type = Type::Msg;
  std::uint32_t status = 0;
  std::uint64_t source = 0;
  std::uint64_t destination = 0;
  std::string data = {};
};

// What waits to be sent, and how much of the first message has gone.
class Outbox {
 public:
  void Add(Message message) { messages_.push_back(std::move(message)); }
  [[nodiscard]] bool IsEmpty() const { return messages_.empty(); }
  // As much as fits into a channel of that size: messages are cut where it ends, and go on in the next transaction.
  [[nodiscard]] Transaction Take(std::size_t channelSize, std::uint64_t sequence);

 private:
  std::deque<Message> messages_;
  std::size_t sent_ = 0;
};

}  // namespace standIn
