#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "tests/ipc/rawTransaction.h"
#include "tests/support/standInServiceWire.h"

namespace standIn {
namespace {

using ipcTests::FromHex;
using ipcTests::RawBlock;
using ipcTests::RawTransaction;

std::string FaultIn(const std::vector<std::byte>& bytes, std::uint64_t expectedSequence = 1) {
  const auto decoded = Decode(bytes, expectedSequence);
  const auto* fault = std::get_if<std::string>(&decoded);
  return fault == nullptr ? "none" : *fault;
}

std::string FaultIn(const RawTransaction& transaction) { return FaultIn(transaction.bytes); }

Transaction Hello() {
  Block block;
  block.source = 0x5300ABCD00000007;
  block.destination = 0x5311223300000002;
  block.totalSize = 5;
  block.data = "hello";
  return {1, {block}};
}

TEST(StandInDecoder, ReadsTheWorkedExample) {
  const auto bytes = FromHex(ipcTests::kHelloHex);
  ASSERT_EQ(bytes.size(), 73u);
  const auto decoded = Decode(bytes, 1);
  ASSERT_TRUE(std::holds_alternative<Transaction>(decoded)) << std::get<std::string>(decoded);
  const auto& transaction = std::get<Transaction>(decoded);
  EXPECT_EQ(transaction.sequence, 1u);
  ASSERT_EQ(transaction.blocks.size(), 1u);
  const Block& block = transaction.blocks[0];
  EXPECT_EQ(block.type, Type::Msg);
  EXPECT_EQ(block.highFlags, 0u);
  EXPECT_TRUE(block.first);
  EXPECT_TRUE(block.last);
  EXPECT_EQ(block.status, 0u);
  EXPECT_EQ(block.source, 0x5300ABCD00000007u);
  EXPECT_EQ(block.destination, 0x5311223300000002u);
  EXPECT_EQ(block.totalSize, 5u);
  EXPECT_EQ(block.data, "hello");
}

TEST(StandInDecoder, ReadsATransactionFromTheFrontOfAChannel) {
  auto bytes = FromHex(ipcTests::kHelloHex);
  bytes.resize(4096, std::byte{0xEE});
  EXPECT_EQ(FaultIn(bytes), "none");
}

TEST(StandInEncoder, WritesTheWorkedExample) { EXPECT_EQ(Encode(Hello()), FromHex(ipcTests::kHelloHex)); }

TEST(StandInChecksum, IsThatOfTheStandard) {
  const std::string text = "123456789";
  EXPECT_EQ(Checksum(std::as_bytes(std::span(text))), 0xCBF43926u);
}

TEST(StandInDecoder, TellsWhatIsWrongWithAHeader) {
  const auto hello = FromHex(ipcTests::kHelloHex);
  const auto with = [&](std::size_t offset, std::uint32_t number) {
    auto changed = hello;
    Overwrite(changed, offset, number);
    return changed;
  };
  auto checksum = hello;
  checksum[4] ^= std::byte{1};
  EXPECT_EQ(FaultIn(checksum), "wrong checksum");
  EXPECT_EQ(FaultIn(with(0, 1)), "a reserved field that is not zero");
  EXPECT_EQ(FaultIn(with(16, 1)), "a reserved field that is not zero");
  EXPECT_EQ(FaultIn(with(8, 2)), "transaction 2 in the place of 1");
  EXPECT_EQ(FaultIn(with(12, 1)), "transaction 4294967297 in the place of 1");
  EXPECT_EQ(FaultIn(with(20, 27)), "wrong transaction size 27");
  EXPECT_EQ(FaultIn(with(20, 74)), "wrong transaction size 74");
  EXPECT_EQ(FaultIn(with(24, 0)), "a transaction without blocks");
  EXPECT_EQ(FaultIn(with(24, 2)), "a block header that is cut off");
  EXPECT_EQ(FaultIn(hello, 2), "transaction 1 in the place of 2");
  EXPECT_EQ(FaultIn(std::vector<std::byte>(27)), "no room for a transaction");
}

TEST(StandInDecoder, TellsWhatIsWrongWithABlock) {
  EXPECT_EQ(FaultIn({RawBlock{.type = 0}}), "unknown block type 0");
  EXPECT_EQ(FaultIn({RawBlock{.type = 7}}), "unknown block type 7");
  EXPECT_EQ(FaultIn({RawBlock{.flags = 7}}), "reserved flags in a block");
  EXPECT_EQ(FaultIn({RawBlock{.blockSizeOff = 1}}), "wrong block size");
  EXPECT_EQ(FaultIn({RawBlock{.dataSizeOff = 1, .blockSizeOff = 1}}), "a message smaller than its first block");
  EXPECT_EQ(FaultIn({RawBlock{.flags = 2, .dataSizeOff = 1, .blockSizeOff = 1}}), "a block that is cut off");
  EXPECT_EQ(FaultIn({RawBlock{.data = ""}}), "wrong amount of data for the block's type");
  EXPECT_EQ(FaultIn({RawBlock{.type = 3}}), "wrong amount of data for the block's type");
  EXPECT_EQ(FaultIn({RawBlock{.type = 3, .flags = 1, .data = ""}}), "a block without data that is only a part");
  EXPECT_EQ(FaultIn({RawBlock{.type = 1}}), "an Open that is not addressed to the link");

  RawTransaction trailing{RawBlock{}};
  trailing.bytes.push_back(std::byte{0});
  trailing.Seal();
  EXPECT_EQ(FaultIn(trailing), "bytes behind the last block");

  auto missing = FromHex(ipcTests::kHelloHex);
  Overwrite(missing, 28 + 36, 6);
  EXPECT_EQ(FaultIn(missing), "a message that misses a part");
}

TEST(StandInOutbox, CutsAMessageWhereTheChannelEnds) {
  Outbox outbox;
  outbox.Add({.type = Type::Msg, .source = 1, .destination = 2, .data = "hello!"});
  const Transaction first = outbox.Take(69, 1);  // Room for one byte behind the headers.
  ASSERT_EQ(first.blocks.size(), 1u);
  EXPECT_EQ(first.blocks[0].data, "h");
  EXPECT_EQ(first.blocks[0].totalSize, 6u);
  EXPECT_TRUE(first.blocks[0].first);
  EXPECT_FALSE(first.blocks[0].last);
  EXPECT_EQ(Encode(first).size(), 69u);
  const Transaction second = outbox.Take(69, 2);  // A shorter header: room for five.
  ASSERT_EQ(second.blocks.size(), 1u);
  EXPECT_EQ(second.blocks[0].data, "ello!");
  EXPECT_FALSE(second.blocks[0].first);
  EXPECT_TRUE(second.blocks[0].last);
  EXPECT_EQ(FaultIn(Encode(second), 2), "none");
  EXPECT_TRUE(outbox.IsEmpty());
}

TEST(StandInOutbox, PacksWhatFitsIntoOneTransaction) {
  Outbox outbox;
  for (const char* text : {"one", "two", "three"}) outbox.Add({.type = Type::Msg, .data = text});
  outbox.Add({.type = Type::Close});
  const Transaction all = outbox.Take(4096, 1);
  ASSERT_EQ(all.blocks.size(), 4u);
  EXPECT_EQ(all.blocks[2].data, "three");
  EXPECT_EQ(all.blocks[3].type, Type::Close);
  EXPECT_EQ(FaultIn(Encode(all)), "none");
}

}  // namespace
}  // namespace standIn
