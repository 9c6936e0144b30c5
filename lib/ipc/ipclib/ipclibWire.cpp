#include "lib/ipc/ipclib/ipclibWire.h"

#include <iterator>

#include "lib/ipc/ipclib/littleEndian.h"

namespace quill::ipc {
namespace {

constexpr std::string_view kTypeNames[] = {"None", "Open", "OpenAck", "Close", "CloseAck", "Shutdown", "Msg"};

constexpr std::size_t kOpenLengthSize = 4;

// REQUIRES: payload.size() >= kOpenLengthSize.
std::uint32_t nameLength(std::span<const std::byte> payload) noexcept {
  return readLittleEndian<std::uint32_t>(payload.first<kOpenLengthSize>());
}

// Takes field after field from bytes that are known to be enough.
class FieldReader {
 public:
  explicit FieldReader(std::span<const std::byte> bytes) noexcept : bytes_(bytes) {}

  template <class Number>
  [[nodiscard]] Number take() noexcept {
    const Number number = readLittleEndian<Number>(bytes_.first<sizeof(Number)>());
    bytes_ = bytes_.subspan(sizeof(Number));
    return number;
  }
  [[nodiscard]] std::uint32_t take32() noexcept { return take<std::uint32_t>(); }
  [[nodiscard]] std::uint64_t take64() noexcept { return take<std::uint64_t>(); }

 private:
  std::span<const std::byte> bytes_;
};

class FieldWriter {
 public:
  explicit FieldWriter(std::span<std::byte> bytes) noexcept : bytes_(bytes) {}

  template <class Number>
  void put(Number number) noexcept {
    writeLittleEndian<Number>(bytes_.first<sizeof(Number)>(), number);
    bytes_ = bytes_.subspan(sizeof(Number));
  }

 private:
  std::span<std::byte> bytes_;
};

}  // namespace

std::string_view NameOf(LmIpclibMsgType type) noexcept {
  const auto number = static_cast<std::uint32_t>(type);
  return number < std::size(kTypeNames) ? kTypeNames[number] : "unknown";
}

std::optional<LmIpclibTrxHeader> readTrxHeader(std::span<const std::byte> bytes) noexcept {
  if (bytes.size() < LmIpclibTrxHeader::kSize) return std::nullopt;
  FieldReader fields(bytes);
  LmIpclibTrxHeader header;
  header.reserved0 = fields.take32();
  header.crc32 = fields.take32();
  header.trxSeqNo = fields.take64();
  header.reserved1 = fields.take32();
  header.trxSize = fields.take32();
  header.msgCount = fields.take32();
  return header;
}

void writeTrxHeader(std::span<std::byte> bytes, const LmIpclibTrxHeader& header) noexcept {
  FieldWriter fields(bytes);
  fields.put(header.reserved0);
  fields.put(header.crc32);
  fields.put(header.trxSeqNo);
  fields.put(header.reserved1);
  fields.put(header.trxSize);
  fields.put(header.msgCount);
}

std::optional<LmIpclibBlockHeader> readBlockHeader(std::span<const std::byte> bytes) noexcept {
  if (bytes.size() < LmIpclibBlockHeader::kSize) return std::nullopt;
  FieldReader fields(bytes);
  LmIpclibBlockHeader header;
  header.msgType = LmIpclibMsgType{fields.take32()};
  header.flags = fields.take32();
  header.status = fields.take32();
  header.srcStreamId = fields.take64();
  header.destStreamId = fields.take64();
  header.blockSize = fields.take32();
  header.dataSize = fields.take32();
  if (bytes.size() < header.headerSize()) return std::nullopt;
  if ((header.flags & kFirstBlock) != 0) header.totalSize = fields.take32();
  return header;
}

void writeBlockHeader(std::span<std::byte> bytes, const LmIpclibBlockHeader& header) noexcept {
  FieldWriter fields(bytes);
  fields.put(static_cast<std::uint32_t>(header.msgType));
  fields.put(header.flags);
  fields.put(header.status);
  fields.put(header.srcStreamId);
  fields.put(header.destStreamId);
  fields.put(header.blockSize);
  fields.put(header.dataSize);
  if ((header.flags & kFirstBlock) != 0) fields.put(header.totalSize);
}

bool isSent(LmIpclibMsgType type) noexcept { return type >= LmIpclibMsgType::Open && type <= LmIpclibMsgType::Msg; }

bool isWellFramed(const LmIpclibBlockHeader& header) noexcept {
  const bool carriesData = header.msgType == LmIpclibMsgType::Open || header.msgType == LmIpclibMsgType::Msg;
  constexpr std::uint32_t kWhole = kFirstBlock | kLastBlock;
  if (!carriesData && (header.flags & kWhole) != kWhole) return false;
  if (header.msgType == LmIpclibMsgType::Open && header.destStreamId != kControlStreamId) return false;
  if (carriesData ? header.dataSize == 0 : header.dataSize != 0) return false;
  return header.blockSize == std::uint64_t{header.headerSize()} + header.dataSize;
}

bool isOpenPayload(std::span<const std::byte> payload) noexcept {
  if (payload.size() <= kOpenLengthSize) return false;
  const std::uint32_t length = nameLength(payload);
  return length >= 2 && length <= payload.size() - kOpenLengthSize;
}

std::optional<std::u16string> readOpenPayload(std::span<const std::byte> payload) {
  if (!isOpenPayload(payload)) return std::nullopt;
  const std::size_t units = nameLength(payload) / 2;
  std::u16string name;
  name.reserve(units);
  FieldReader fields(payload.subspan(kOpenLengthSize));
  while (name.size() < units) name.push_back(static_cast<char16_t>(fields.take<std::uint16_t>()));
  return name;
}

std::string writeOpenPayload(std::u16string_view name) {
  std::string payload(kOpenLengthSize + 2 * name.size(), '\0');
  FieldWriter fields(std::as_writable_bytes(std::span(payload)));
  fields.put(static_cast<std::uint32_t>(2 * name.size()));
  for (const char16_t unit : name) fields.put(static_cast<std::uint16_t>(unit));
  return payload;
}

}  // namespace quill::ipc
