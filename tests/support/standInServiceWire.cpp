#include "tests/support/standInServiceWire.h"

namespace standIn {
namespace {

constexpr std::size_t kTransactionHeader = 28;
constexpr std::size_t kBlockHeader = 36;
constexpr std::size_t kFirstBlockHeader = 40;
constexpr std::size_t kSizeOffset = 20;
constexpr std::uint32_t kFirst = 1;
constexpr std::uint32_t kLast = 2;

// Takes little-endian numbers off the front. The caller has seen to it that they are there.
class Reader {
 public:
  explicit Reader(std::span<const std::byte> bytes) : rest_(bytes) {}

  std::uint32_t Number32() { return static_cast<std::uint32_t>(Number(4)); }
  std::uint64_t Number64() { return Number(8); }
  std::string Text(std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(rest_.data()), size);
    rest_ = rest_.subspan(size);
    return text;
  }
  [[nodiscard]] std::size_t Left() const { return rest_.size(); }

 private:
  std::uint64_t Number(std::size_t size) {
    std::uint64_t number = 0;
    for (std::size_t i = size; i > 0; --i) number = number << 8 | std::to_integer<std::uint64_t>(rest_[i - 1]);
    rest_ = rest_.subspan(size);
    return number;
  }

  std::span<const std::byte> rest_;
};

void Append(std::vector<std::byte>& bytes, std::uint64_t number, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) bytes.push_back(static_cast<std::byte>(number >> (8 * i)));
}

bool MayHoldData(Type type) { return type == Type::Open || type == Type::Msg; }

// Nothing when the block's header is right; else what is wrong with it.
std::string FaultOf(const Block& block, std::uint32_t flags, std::size_t blockSize, std::size_t dataSize) {
  if (block.type < Type::Open || block.type > Type::Msg) {
    return "unknown block type " + std::to_string(static_cast<std::uint32_t>(block.type));
  }
  if ((flags & 0xFFFC) != 0) return "reserved flags in a block";
  if (blockSize != (block.first ? kFirstBlockHeader : kBlockHeader) + dataSize) return "wrong block size";
  if (MayHoldData(block.type) != (dataSize > 0)) return "wrong amount of data for the block's type";
  if (!MayHoldData(block.type) && !(block.first && block.last)) return "a block without data that is only a part";
  if (block.type == Type::Open && block.destination != 0) return "an Open that is not addressed to the link";
  if (block.first && block.totalSize < dataSize) return "a message smaller than its first block";
  if (block.first && block.last && block.totalSize != dataSize) return "a message that misses a part";
  return {};
}

std::variant<Block, std::string> DecodeBlock(Reader& reader) {
  if (reader.Left() < kBlockHeader) return "a block header that is cut off";
  Block block;
  block.type = static_cast<Type>(reader.Number32());
  const std::uint32_t flags = reader.Number32();
  block.highFlags = static_cast<std::uint16_t>(flags >> 16);
  block.first = (flags & kFirst) != 0;
  block.last = (flags & kLast) != 0;
  block.status = reader.Number32();
  block.source = reader.Number64();
  block.destination = reader.Number64();
  const std::size_t blockSize = reader.Number32();
  const std::size_t dataSize = reader.Number32();
  if (block.first) {
    if (reader.Left() < 4) return "a block header that is cut off";
    block.totalSize = reader.Number32();
  }
  if (std::string fault = FaultOf(block, flags, blockSize, dataSize); !fault.empty()) return fault;
  if (reader.Left() < dataSize) return "a block that is cut off";
  block.data = reader.Text(dataSize);
  return block;
}

void Put32(std::vector<std::byte>& bytes, std::size_t offset, std::uint32_t number) {
  for (std::size_t i = 0; i < 4; ++i) bytes[offset + i] = static_cast<std::byte>(number >> (8 * i));
}

std::uint32_t ChecksumOf(std::span<const std::byte> transaction) {
  std::vector<std::byte> cleared(transaction.begin(), transaction.end());
  Put32(cleared, kChecksumOffset, 0);
  return Checksum(cleared);
}

}  // namespace

const char* NameOf(Type type) {
  switch (type) {
    case Type::None: return "None";
    case Type::Open: return "Open";
    case Type::OpenAck: return "OpenAck";
    case Type::Close: return "Close";
    case Type::CloseAck: return "CloseAck";
    case Type::Shutdown: return "Shutdown";
    case Type::Msg: return "Msg";
  }
  return "unknown";
}

std::uint32_t Checksum(std::span<const std::byte> bytes) {
  std::uint32_t sum = 0xFFFFFFFF;
  for (const std::byte byte : bytes) {
    sum ^= std::to_integer<std::uint32_t>(byte);
    for (int bit = 0; bit < 8; ++bit) sum = (sum & 1) != 0 ? sum >> 1 ^ 0xEDB88320 : sum >> 1;
  }
  return ~sum;
}

std::variant<Transaction, std::string> Decode(std::span<const std::byte> block, std::uint64_t expectedSequence) {
  if (block.size() < kTransactionHeader) return "no room for a transaction";
  Reader header(block);
  const std::uint32_t reserved0 = header.Number32();
  const std::uint32_t checksum = header.Number32();
  Transaction transaction;
  transaction.sequence = header.Number64();
  const std::uint32_t reserved1 = header.Number32();
  const std::size_t size = header.Number32();
  const std::uint32_t count = header.Number32();
  if (size < kTransactionHeader || size > block.size()) return "wrong transaction size " + std::to_string(size);
  if (ChecksumOf(block.first(size)) != checksum) return "wrong checksum";
  if (reserved0 != 0 || reserved1 != 0) return "a reserved field that is not zero";
  if (transaction.sequence != expectedSequence) {
    return "transaction " + std::to_string(transaction.sequence) + " in the place of " +
           std::to_string(expectedSequence);
  }
  if (count == 0) return "a transaction without blocks";

  Reader rest(block.first(size).subspan(kTransactionHeader));
  for (std::uint32_t i = 0; i < count; ++i) {
    auto decoded = DecodeBlock(rest);
    if (auto* fault = std::get_if<std::string>(&decoded)) return std::move(*fault);
    transaction.blocks.push_back(std::move(std::get<Block>(decoded)));
  }
  if (rest.Left() > 0) return "bytes behind the last block";
  return transaction;
}

std::vector<std::byte> Encode(const Transaction& transaction) {
  std::vector<std::byte> bytes(kTransactionHeader);
  for (const Block& block : transaction.blocks) {
    Append(bytes, static_cast<std::uint32_t>(block.type), 4);
    Append(bytes, std::uint32_t{block.highFlags} << 16 | (block.first ? kFirst : 0) | (block.last ? kLast : 0), 4);
    Append(bytes, block.status, 4);
    Append(bytes, block.source, 8);
    Append(bytes, block.destination, 8);
    Append(bytes, (block.first ? kFirstBlockHeader : kBlockHeader) + block.data.size(), 4);
    Append(bytes, block.data.size(), 4);
    if (block.first) Append(bytes, block.totalSize, 4);
    for (const char unit : block.data) bytes.push_back(static_cast<std::byte>(unit));
  }
  Put32(bytes, kSequenceOffset, static_cast<std::uint32_t>(transaction.sequence));
  Put32(bytes, kSequenceOffset + 4, static_cast<std::uint32_t>(transaction.sequence >> 32));
  Put32(bytes, kSizeOffset, static_cast<std::uint32_t>(bytes.size()));
  Overwrite(bytes, kCountOffset, static_cast<std::uint32_t>(transaction.blocks.size()));
  return bytes;
}

void Overwrite(std::vector<std::byte>& encoded, std::size_t offset, std::uint32_t number) {
  Put32(encoded, offset, number);
  Put32(encoded, kChecksumOffset, ChecksumOf(encoded));
}

Transaction Outbox::Take(std::size_t channelSize, std::uint64_t sequence) {
  Transaction transaction{sequence, {}};
  std::size_t room = channelSize - kTransactionHeader;
  // A block is begun only where a byte of data fits behind the larger of the headers.
  while (!messages_.empty() && room > kFirstBlockHeader) {
    const Message& message = messages_.front();
    Block block{.type = message.type,
                .first = sent_ == 0,
                .status = message.status,
                .source = message.source,
                .destination = message.destination,
                .totalSize = static_cast<std::uint32_t>(message.data.size()),
                .data = {}};
    room -= block.first ? kFirstBlockHeader : kBlockHeader;
    block.data = message.data.substr(sent_, room);
    room -= block.data.size();
    sent_ += block.data.size();
    block.last = sent_ == message.data.size();
    transaction.blocks.push_back(std::move(block));
    if (!transaction.blocks.back().last) break;
    messages_.pop_front();
    sent_ = 0;
  }
  return transaction;
}

}  // namespace standIn
