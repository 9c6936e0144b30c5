#include "lib/ipc/ipclib/ipclibWire.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lib/ipc/ipclib/ipclibStatus.h"
#include "tests/ipc/rawTransaction.h"

namespace {

using namespace quill::ipc;
using ipcTests::FromHex;
using ipcTests::kHelloHex;

TEST(MessageType, PrintsItsName) {
  std::string names;
  for (std::uint32_t type = 0; type < 8; ++type) names += fmt::format("{} ", LmIpclibMsgType{type});
  EXPECT_EQ(names, "None Open OpenAck Close CloseAck Shutdown Msg unknown ");
  EXPECT_EQ(fmt::format("{}", LmIpclibMsgType{0xFFFFFFFF}), "unknown");
}

TEST(WireRecord, OfATransactionIsReadFieldByField) {
  const auto header =
      readTrxHeader(FromHex("01020304"
                            "05060708"
                            "1112131415161718"
                            "21222324"
                            "31323334"
                            "41424344"));
  ASSERT_TRUE(header);
  EXPECT_EQ(header->reserved0, 0x04030201u);
  EXPECT_EQ(header->crc32, 0x08070605u);
  EXPECT_EQ(header->trxSeqNo, 0x1817161514131211u);
  EXPECT_EQ(header->reserved1, 0x24232221u);
  EXPECT_EQ(header->trxSize, 0x34333231u);
  EXPECT_EQ(header->msgCount, 0x44434241u);
}

TEST(WireRecord, OfABlockIsReadFieldByField) {
  const std::string fields =
      "06000000"
      "02000000"
      "0B000000"
      "1112131415161718"
      "2122232425262728"
      "31323334"
      "41424344";
  const auto header = readBlockHeader(FromHex(fields + "FFFFFFFF"));
  ASSERT_TRUE(header);
  EXPECT_EQ(header->msgType, LmIpclibMsgType::Msg);
  EXPECT_EQ(header->flags, 2u);
  EXPECT_EQ(header->status, 11u);
  EXPECT_EQ(header->srcStreamId, 0x1817161514131211u);
  EXPECT_EQ(header->destStreamId, 0x2827262524232221u);
  EXPECT_EQ(header->blockSize, 0x34333231u);
  EXPECT_EQ(header->dataSize, 0x44434241u);
  EXPECT_EQ(header->totalSize, 0u);
  EXPECT_EQ(header->headerSize(), 36u);
}

TEST(WireRecord, OfAFirstBlockHasTheTotalSize) {
  const std::string fields =
      "06000000"
      "01000000"
      "00000000"
      "1112131415161718"
      "2122232425262728"
      "31323334"
      "41424344";
  const auto header = readBlockHeader(FromHex(fields + "51525354"));
  ASSERT_TRUE(header);
  EXPECT_EQ(header->totalSize, 0x54535251u);
  EXPECT_EQ(header->headerSize(), 40u);
  EXPECT_FALSE(readBlockHeader(FromHex(fields)));
}

TEST(WireRecord, IsNotReadFromTooFewBytes) {
  const std::vector<std::byte> bytes(40);
  for (std::size_t size = 0; size <= 40; ++size) {
    const auto some = std::span(bytes).first(size);
    EXPECT_EQ(readTrxHeader(some).has_value(), size >= 28) << size;
    EXPECT_EQ(readBlockHeader(some).has_value(), size >= 36) << size;
  }
}

TEST(WireRecord, IsWrittenAsItIsRead) {
  const std::vector<std::byte> example = FromHex(kHelloHex);
  std::vector<std::byte> written(68);
  writeTrxHeader(written, *readTrxHeader(example));
  writeBlockHeader(std::span(written).subspan(28), *readBlockHeader(std::span(example).subspan(28)));
  EXPECT_TRUE(std::ranges::equal(written, std::span(example).first(68)));
}

TEST(WireRecord, WithoutTheFirstBlockBitIsWrittenIn36Bytes) {
  std::vector<std::byte> written(40, std::byte{0xEE});
  LmIpclibBlockHeader header;
  header.totalSize = 7;
  writeBlockHeader(written, header);
  EXPECT_EQ(written[35], std::byte{0});
  EXPECT_EQ(written[36], std::byte{0xEE});
}

LmIpclibBlockHeader Framed(LmIpclibMsgType type, std::uint32_t flags, std::uint32_t dataSize) {
  LmIpclibBlockHeader header;
  header.msgType = type;
  header.flags = flags;
  header.dataSize = dataSize;
  header.blockSize = dataSize + header.headerSize();
  header.destStreamId = type == LmIpclibMsgType::Open ? 0 : 1;
  return header;
}

constexpr LmIpclibMsgType kWithoutData[] = {LmIpclibMsgType::OpenAck, LmIpclibMsgType::Close, LmIpclibMsgType::CloseAck,
                                            LmIpclibMsgType::Shutdown};
constexpr LmIpclibMsgType kWithData[] = {LmIpclibMsgType::Open, LmIpclibMsgType::Msg};

TEST(BlockFraming, OfAClosingBlockNeedsBothLowFlagBits) {
  for (const LmIpclibMsgType type : kWithoutData) {
    EXPECT_TRUE(isWellFramed(Framed(type, 3, 0)));
    EXPECT_TRUE(isWellFramed(Framed(type, 0xABCD0003, 0)));
    for (const std::uint32_t flags : {0U, 1U, 2U}) EXPECT_FALSE(isWellFramed(Framed(type, flags, 0))) << flags;
  }
}

TEST(BlockFraming, OfAClosingBlockHasNoData) {
  for (const LmIpclibMsgType type : kWithoutData) EXPECT_FALSE(isWellFramed(Framed(type, 3, 1)));
}

TEST(BlockFraming, OfABlockWithDataHasAByteOfIt) {
  for (const LmIpclibMsgType type : kWithData) {
    for (const std::uint32_t flags : {0U, 1U, 2U, 3U}) {
      EXPECT_TRUE(isWellFramed(Framed(type, flags, 1)));
      EXPECT_FALSE(isWellFramed(Framed(type, flags, 0)));
    }
  }
}

TEST(BlockFraming, OfAnOpenIsForTheControlStream) {
  LmIpclibBlockHeader header = Framed(LmIpclibMsgType::Open, 3, 6);
  header.destStreamId = 1;
  EXPECT_FALSE(isWellFramed(header));
}

TEST(BlockFraming, HasSizesThatAgree) {
  for (const LmIpclibMsgType type : {LmIpclibMsgType::Msg, LmIpclibMsgType::Close}) {
    for (const std::uint32_t off : {1U, 4U, 0xFFFFFFFFU, 0x80000000U}) {
      LmIpclibBlockHeader header = Framed(type, 3, type == LmIpclibMsgType::Msg ? 5 : 0);
      header.blockSize += off;
      EXPECT_FALSE(isWellFramed(header)) << off;
    }
  }
}

TEST(BlockFraming, DoesNotCountRoundTheEndOf32Bits) {
  // 40 + 0xFFFFFFF0 is 24 in 32 bits.
  EXPECT_FALSE(isWellFramed(Framed(LmIpclibMsgType::Msg, 3, 0xFFFFFFF0)));
  EXPECT_FALSE(isWellFramed(Framed(LmIpclibMsgType::Msg, 2, 0xFFFFFFDC)));
}

std::span<const std::byte> AsBytes(const std::string& text) { return std::as_bytes(std::span(text)); }

TEST(OpenPayload, IsALengthInBytesAndUtf16) {
  EXPECT_EQ(writeOpenPayload(u"a\u4E2D"), std::string("\x04\0\0\0a\0\x2D\x4E", 8));
  EXPECT_EQ(readOpenPayload(AsBytes(std::string("\x04\0\0\0a\0\x2D\x4E", 8))), u"a\u4E2D");
}

TEST(OpenPayload, IgnoresWhatLiesBehindTheName) {
  EXPECT_EQ(readOpenPayload(AsBytes(std::string("\x02\0\0\0a\0xyz", 9))), u"a");
}

TEST(OpenPayload, IgnoresHalfAUnit) { EXPECT_EQ(readOpenPayload(AsBytes(std::string("\x03\0\0\0a\0b", 7))), u"a"); }

TEST(OpenPayload, CarriesNulsAndLoneSurrogates) {
  const std::u16string name = {u'\0', char16_t{0xD800}, u'\0'};
  EXPECT_EQ(readOpenPayload(AsBytes(writeOpenPayload(name))), name);
}

TEST(OpenPayload, ThatIsTooShortIsRefused) {
  for (std::size_t size = 0; size <= 4; ++size) {
    EXPECT_FALSE(readOpenPayload(AsBytes(std::string("\x02\0\0\0", 4).substr(0, size)))) << size;
  }
}

TEST(OpenPayload, IsKnownWithoutTakingItsName) {
  for (const char length : {'\0', '\1', '\2', '\3', '\4', '\5', '\xFF'}) {
    const std::string whole{length, '\0', '\0', '\0', 'a', '\0', 'b', '\0'};
    for (std::size_t size = 0; size <= whole.size(); ++size) {
      const std::string payload = whole.substr(0, size);
      EXPECT_EQ(isOpenPayload(AsBytes(payload)), readOpenPayload(AsBytes(payload)).has_value());
      EXPECT_EQ(isOpenPayload(AsBytes(payload)),
                size > 4 && length >= 2 && static_cast<std::size_t>(length) <= size - 4);
    }
  }
}

TEST(OpenPayload, WithALengthBelowTwoIsRefused) {
  EXPECT_FALSE(readOpenPayload(AsBytes(std::string("\x01\0\0\0a\0", 6))));
  EXPECT_FALSE(readOpenPayload(AsBytes(std::string("\x00\0\0\0a\0", 6))));
}

TEST(OpenPayload, WithALengthBeyondItsEndIsRefused) {
  EXPECT_FALSE(readOpenPayload(AsBytes(std::string("\x03\0\0\0a\0", 6))));
  EXPECT_FALSE(
      readOpenPayload(AsBytes(std::string("\xFF\xFF\xFF\xFF"
                                          "a\0",
                                          6))));
}

}  // namespace
