#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lib/ipc/ipclib/transactionReader.h"
#include "lib/ipc/ipclib/transactionWriter.h"
#include "tests/ipc/rawTransaction.h"

namespace {

using namespace quill::ipc;
using ipcTests::FromHex;
using ipcTests::kDestination;
using ipcTests::kHelloHex;
using ipcTests::kSource;
using ipcTests::RawBlock;
using ipcTests::RawTransaction;
using testing::ElementsAre;
using testing::IsEmpty;
using Step = TransactionReader::Step;

std::shared_ptr<LmIpclibMsg> Message(std::string_view payload, LmIpclibMsgType type = LmIpclibMsgType::Msg,
                                     std::uint32_t flags = 0) {
  return std::make_shared<LmIpclibMsg>(
      type, flags, LmIpcStatusCode::Success, nullptr, kSource, kDestination, static_cast<std::uint32_t>(payload.size()),
      reinterpret_cast<const std::byte*>(payload.data()), [](LmIpcStatusCode, const std::shared_ptr<LmIpclibMsg>&) {});
}

std::string Text(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// What a reader makes of the bytes: the data of its blocks, then how it ended.
struct Outcome {
  bool opened = false;
  std::vector<std::string> blocks;
  Step ended = Step::End;
};

Outcome Read(std::vector<std::byte> bytes, std::uint64_t trxSeqNo = 1) {
  Outcome outcome;
  TransactionReader reader(bytes);
  outcome.opened = reader.open(trxSeqNo) == LmIpcStatusCode::Success;
  if (!outcome.opened) return outcome;
  LmIpclibBlock block;
  while ((outcome.ended = reader.next(block)) == Step::Block) outcome.blocks.push_back(Text(block.data));
  EXPECT_EQ(reader.next(block), outcome.ended) << "an end is an end";
  return outcome;
}

bool IsRefused(const RawTransaction& transaction) { return !Read(transaction.bytes).opened; }

TEST(Transaction, OfTheWorkedExampleIsWrittenByteForByte) {
  std::vector<std::byte> view(200, std::byte{0xEE});
  TransactionWriter writer(view);
  ASSERT_TRUE(writer.hasRoom());
  const auto block = writer.append(*Message("hello"));
  EXPECT_TRUE(block.last);
  EXPECT_EQ(block.dataSize, 5u);
  EXPECT_EQ(block.blockSize, 45u);
  writer.finish(1);
  EXPECT_EQ(writer.size(), 73u);
  EXPECT_EQ(std::vector(view.begin(), view.begin() + 73), FromHex(kHelloHex));
  EXPECT_EQ(view[73], std::byte{0xEE});
}

TEST(Transaction, OfTheWorkedExampleCarriesItsSum) {
  const auto bytes = FromHex(kHelloHex);
  ASSERT_EQ(bytes.size(), 73u);
  const auto header = readTrxHeader(bytes);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->crc32, 0xAEF87F1Au);
}

TEST(Transaction, OfTheWorkedExampleIsRead) {
  auto bytes = FromHex(kHelloHex);
  TransactionReader reader(bytes);
  ASSERT_EQ(reader.open(1), LmIpcStatusCode::Success);
  LmIpclibBlock block;
  ASSERT_EQ(reader.next(block), Step::Block);
  EXPECT_EQ(block.header.msgType, LmIpclibMsgType::Msg);
  EXPECT_EQ(block.header.flags, 3u);
  EXPECT_EQ(block.header.srcStreamId, kSource);
  EXPECT_EQ(block.header.destStreamId, kDestination);
  EXPECT_EQ(block.header.totalSize, 5u);
  EXPECT_EQ(Text(block.data), "hello");
  EXPECT_EQ(reader.next(block), Step::End);
}

TEST(Transaction, WithAnyBitTurnedIsRefused) {
  const auto good = FromHex(kHelloHex);
  for (std::size_t bit = 0; bit < 8 * good.size(); ++bit) {
    auto bad = good;
    bad[bit / 8] ^= static_cast<std::byte>(1U << (bit % 8));
    ASSERT_FALSE(Read(bad).opened) << bit;
  }
}

TEST(Transaction, CutAnywhereIsRefused) {
  const auto good = FromHex(kHelloHex);
  for (std::size_t size = 0; size < good.size(); ++size) {
    ASSERT_FALSE(Read({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)}).opened) << size;
  }
}

TEST(Transaction, IsReadFromALargerBuffer) {
  auto bytes = FromHex(kHelloHex);
  bytes.resize(500, std::byte{0xEE});
  EXPECT_THAT(Read(bytes).blocks, ElementsAre("hello"));
}

TEST(Transaction, WithoutABlockIsRefused) {
  RawTransaction transaction{RawBlock{}};
  transaction.Seal(73, 0, 1);
  EXPECT_TRUE(IsRefused(transaction));
}

TEST(Transaction, SmallerThanAHeaderAndABlockIsRefused) {
  for (const std::uint32_t size : {0U, 1U, 27U, 28U, 63U}) {
    RawTransaction transaction{RawBlock{}};
    transaction.Seal(size, 1, 1);
    EXPECT_TRUE(IsRefused(transaction)) << size;
  }
}

TEST(Transaction, LargerThanWhatWasCopiedIsRefused) {
  for (const std::uint32_t size : {74U, 1000U, 0x80000000U, 0xFFFFFFFFU}) {
    RawTransaction transaction{RawBlock{}};
    transaction.Seal(size, 1, 1);
    EXPECT_TRUE(IsRefused(transaction)) << size;
  }
}

TEST(Transaction, OutOfTurnIsRefused) {
  RawTransaction transaction{RawBlock{}};
  transaction.Seal(73, 1, 2);
  EXPECT_TRUE(IsRefused(transaction));
  EXPECT_TRUE(Read(transaction.bytes, 2).opened);
  EXPECT_FALSE(Read(transaction.bytes, 0x100000002).opened);
}

TEST(Transaction, CountsItsReservedFieldsInTheSumAndOtherwiseIgnoresThem) {
  RawTransaction transaction{RawBlock{}};
  transaction.Put32(0, 7);
  transaction.Put32(16, 9);
  EXPECT_TRUE(IsRefused(transaction));
  transaction.Seal();
  EXPECT_THAT(Read(transaction.bytes).blocks, ElementsAre("hello"));
}

TEST(TransactionBlock, OfTypeCloseWithOneOfTheTwoLowFlagBitsIsAFault) {
  for (const std::uint32_t flags : {0U, 1U, 2U}) {
    const Outcome outcome = Read(RawTransaction{{.type = 3, .flags = flags, .data = ""}}.bytes);
    EXPECT_TRUE(outcome.opened);
    EXPECT_EQ(outcome.ended, Step::Fault) << flags;
  }
  const Outcome whole = Read(RawTransaction{{.type = 3, .flags = 3, .data = ""}}.bytes);
  EXPECT_EQ(whole.blocks.size(), 1u);
  EXPECT_EQ(whole.ended, Step::End);
}

TEST(TransactionBlock, OfAnOpenToAStreamIsAFault) {
  EXPECT_EQ(Read(RawTransaction{{.type = 1, .destination = 1}}.bytes).ended, Step::Fault);
  EXPECT_EQ(Read(RawTransaction{{.type = 1, .destination = 0}}.bytes).ended, Step::End);
}

TEST(TransactionBlock, WithoutDataWhereItsTypeHasSomeIsAFault) {
  EXPECT_EQ(Read(RawTransaction{{.data = ""}}.bytes).ended, Step::Fault);
  EXPECT_EQ(Read(RawTransaction{{.type = 4}}.bytes).ended, Step::Fault);
}

TEST(TransactionBlock, WhoseSizesDisagreeIsAFault) {
  for (const std::uint32_t off : {1U, 0xFFFFFFFFU, 0x7FFFFFFFU}) {
    EXPECT_EQ(Read(RawTransaction{{.dataSizeOff = off}}.bytes).ended, Step::Fault) << off;
    EXPECT_EQ(Read(RawTransaction{{.blockSizeOff = off}}.bytes).ended, Step::Fault) << off;
  }
}

TEST(TransactionBlock, ThatGoesBeyondTheTransactionIsAFault) {
  // The sizes agree with each other. The last one does so in 32 bits alone.
  for (const std::uint32_t off : {1U, 1000U, 0x7FFFFFFFU, 0xFFFFFFFFU - 45U, 0xFFFFFFFFU - 20U}) {
    const Outcome outcome = Read(RawTransaction{{.dataSizeOff = off, .blockSizeOff = off}}.bytes);
    EXPECT_TRUE(outcome.opened);
    EXPECT_THAT(outcome.blocks, IsEmpty());
    EXPECT_EQ(outcome.ended, Step::Fault) << off;
  }
}

TEST(TransactionBlock, WhoseHeaderGoesBeyondTheTransactionIsAFault) {
  for (std::uint32_t size = 65; size < 73; ++size) {
    RawTransaction transaction{RawBlock{}};
    transaction.Seal(size, 1, 1);
    EXPECT_EQ(Read(transaction.bytes).ended, Step::Fault) << size;
  }
}

TEST(TransactionBlock, ThatIsCountedButNotThereIsAFault) {
  RawTransaction transaction{RawBlock{}};
  transaction.Seal(73, 2, 1);
  const Outcome outcome = Read(transaction.bytes);
  EXPECT_THAT(outcome.blocks, ElementsAre("hello"));
  EXPECT_EQ(outcome.ended, Step::Fault);
  transaction.Seal(73, 0xFFFFFFFF, 1);
  EXPECT_EQ(Read(transaction.bytes).ended, Step::Fault);
}

TEST(TransactionBlock, OfNoKnownTypeEndsTheWalkWithoutAFault) {
  for (const std::uint32_t type : {0U, 7U, 0xFFFFFFFFU}) {
    const Outcome outcome = Read(RawTransaction{{.data = "told"}, {.type = type}, {.data = "lost"}}.bytes);
    EXPECT_THAT(outcome.blocks, ElementsAre("told"));
    EXPECT_EQ(outcome.ended, Step::End) << type;
  }
}

TEST(TransactionBlock, BehindAFaultIsNotTold) {
  const Outcome outcome = Read(RawTransaction{{.data = "told"}, {.dataSizeOff = 1}, {.data = "lost"}}.bytes);
  EXPECT_THAT(outcome.blocks, ElementsAre("told"));
  EXPECT_EQ(outcome.ended, Step::Fault);
}

TEST(TransactionBlock, BeyondTheCountIsNotTold) {
  RawTransaction transaction{{.data = "told"}, {.data = "not counted"}};
  transaction.Seal(static_cast<std::uint32_t>(transaction.bytes.size()), 1, 1);
  EXPECT_THAT(Read(transaction.bytes).blocks, ElementsAre("told"));
}

TEST(TransactionWriter, SendsTheHighHalfOfAMessagesFlagsAlone) {
  std::vector<std::byte> view(200);
  TransactionWriter writer(view);
  writer.append(*Message("x", LmIpclibMsgType::Msg, 0xABCD0001));
  writer.finish(1);
  EXPECT_EQ(readBlockHeader(std::span(view).subspan(28))->flags, 0xABCD0003u);
}

TEST(TransactionWriter, LeavesAViewAloneThatHoldsNoHeader) {
  std::vector<std::byte> bytes(100, std::byte{0xAA});
  for (const std::size_t size : {0U, 1U, 27U}) {
    TransactionWriter writer(std::span<std::byte>(bytes).first(size));
    EXPECT_FALSE(writer.hasRoom()) << size;
    writer.finish(1);
    EXPECT_THAT(bytes, testing::Each(std::byte{0xAA})) << size;
  }
}

TEST(TransactionWriter, WritesAMessageWithoutPayloadIn40Bytes) {
  std::vector<std::byte> view(200);
  TransactionWriter writer(view);
  const auto block = writer.append(*Message("", LmIpclibMsgType::Close));
  EXPECT_TRUE(block.last);
  EXPECT_EQ(block.blockSize, 40u);
  EXPECT_EQ(block.dataSize, 0u);
  writer.finish(1);
  EXPECT_EQ(Read(view).blocks.size(), 1u);
}

TEST(TransactionWriter, TakesAMessageOfTheViewLess68BytesInOneBlock) {
  std::vector<std::byte> view(1000);
  const std::string payload(1000 - 68, 'x');
  TransactionWriter writer(view);
  EXPECT_TRUE(writer.append(*Message(payload)).last);
  EXPECT_EQ(writer.size(), 1000u);
  EXPECT_FALSE(writer.hasRoom());
  writer.finish(1);
  EXPECT_THAT(Read(view).blocks, ElementsAre(payload));
}

TEST(TransactionWriter, GoesOnWithASmallerHeaderWhereAMessageWasCut) {
  std::vector<std::byte> view(1000);
  const std::string payload = std::string(1000 - 68, 'x') + "y";
  const auto message = Message(payload);
  TransactionWriter first(view);
  EXPECT_FALSE(first.append(*message).last);
  first.finish(1);
  EXPECT_EQ(readBlockHeader(std::span(view).subspan(28))->flags, kFirstBlock);
  EXPECT_EQ(readBlockHeader(std::span(view).subspan(28))->totalSize, payload.size());
  TransactionWriter second(view);
  const auto block = second.append(*message);
  EXPECT_TRUE(block.last);
  EXPECT_EQ(block.blockSize, 37u);
  second.finish(2);
  EXPECT_EQ(readBlockHeader(std::span(view).subspan(28))->flags, kLastBlock);
  EXPECT_THAT(Read(view, 2).blocks, ElementsAre("y"));
}

TEST(TransactionWriter, BeginsABlockWith41BytesOfRoomAndNotWith40) {
  for (const std::size_t room : {40U, 41U}) {
    std::vector<std::byte> view(28 + 40 + 10 + room);
    TransactionWriter writer(view);
    writer.append(*Message(std::string(10, 'x')));
    ASSERT_EQ(writer.hasRoom(), room == 41);
    if (room == 40) continue;
    const std::string payload = "ab";
    const auto message = Message(payload);
    const auto block = writer.append(*message);
    EXPECT_EQ(block.dataSize, 1u);
    EXPECT_FALSE(block.last);
    EXPECT_EQ(message->remaining(), 1u);
  }
}

TEST(TransactionWriter, CompletesATransactionWithoutBlocksThatAReaderRefuses) {
  for (const std::size_t size : {28U, 68U}) {
    std::vector<std::byte> view(size);
    TransactionWriter writer(view);
    EXPECT_FALSE(writer.hasRoom());
    writer.finish(1);
    EXPECT_EQ(readTrxHeader(view)->trxSize, 28u);
    EXPECT_FALSE(Read(view).opened);
  }
}

// Messages of random sizes, cut and packed into views of a random size, and put together again.
TEST(TransactionRoundTrip, BringsEveryMessageWhole) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    std::vector<std::byte> view(69 + random() % 400);
    std::vector<std::string> payloads;
    for (unsigned message = 0; message < 1 + random() % 8; ++message) {
      std::string payload(1 + random() % 1000, '\0');
      for (char& unit : payload) unit = static_cast<char>(random());
      payloads.push_back(payload);
    }
    std::vector<std::string> arrived;
    std::shared_ptr<LmIpclibMsg> partial;
    std::size_t next = 0;
    auto message = Message(payloads[0]);
    for (std::uint64_t trxSeqNo = 1; next < payloads.size(); ++trxSeqNo) {
      TransactionWriter writer(view);
      while (writer.hasRoom() && next < payloads.size()) {
        if (!writer.append(*message).last) continue;
        if (++next < payloads.size()) message = Message(payloads[next]);
      }
      writer.finish(trxSeqNo);
      TransactionReader reader(view);
      ASSERT_EQ(reader.open(trxSeqNo), LmIpcStatusCode::Success);
      LmIpclibBlock block;
      Step step;
      while ((step = reader.next(block)) == Step::Block) {
        if ((block.header.flags & kFirstBlock) != 0) {
          partial = std::make_shared<LmIpclibMsg>(block.header.msgType, block.header.flags, LmIpcStatusCode::Success,
                                                  block.header.srcStreamId, block.header.destStreamId,
                                                  block.header.totalSize);
        }
        ASSERT_EQ(partial->appendData(block.header.dataSize, block.data.data()), LmIpcStatusCode::Success);
        if ((block.header.flags & kLastBlock) == 0) continue;
        ASSERT_EQ(partial->remaining(), 0u);
        arrived.push_back(Text({partial->data(), partial->size()}));
      }
      ASSERT_EQ(step, Step::End);
    }
    ASSERT_EQ(arrived, payloads) << "round " << round;
  }
}

// Random damage with a sum that is right again: whatever comes of it, nothing is read outside.
TEST(TransactionDamage, WithARightSumStaysWithinTheBytes) {
  std::mt19937 random(8);
  for (int round = 0; round < 20'000; ++round) {
    RawTransaction transaction{{.data = "first"}, {.type = 3, .data = ""}, {.flags = 0, .data = "second"}};
    for (unsigned change = 0; change < 1 + random() % 4; ++change) {
      transaction.bytes[28 + random() % (transaction.bytes.size() - 28)] = static_cast<std::byte>(random());
    }
    transaction.Seal();
    auto bytes = transaction.bytes;
    TransactionReader reader(bytes);
    ASSERT_EQ(reader.open(1), LmIpcStatusCode::Success);
    LmIpclibBlock block;
    while (reader.next(block) == Step::Block) {
      ASSERT_GE(block.data.data(), bytes.data() + 64);
      ASSERT_LE(block.data.data() + block.data.size(), bytes.data() + bytes.size());
      ASSERT_EQ(block.data.size(), block.header.dataSize);
    }
  }
}

}  // namespace
