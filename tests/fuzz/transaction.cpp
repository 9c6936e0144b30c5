// The parser of transactions, and the putting together of what it gives out.
//
// The first byte of an input says what is done to the rest: bit 0 puts the sum right, so that damage behind it is met;
// bit 1 puts the size right; bit 2 the number of the transaction.
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <vector>

#include "lib/ipc/ipclib/ipclibMsg.h"
#include "lib/ipc/ipclib/transactionReader.h"
#include "tests/fuzz/fuzzTarget.h"
#include "tests/fuzz/putRight.h"

namespace {

using namespace quill::ipc;

// A message that claims more would be given the room, as it is promised; here it only takes time.
constexpr std::uint32_t kLargestMessage = 1 << 20;

// Messages in the making, by stream.
class Reassembly {
 public:
  void Take(const LmIpclibBlock& block) {
    const LmIpclibBlockHeader& header = block.header;
    std::shared_ptr<LmIpclibMsg>& message = messages_[header.destStreamId];
    if ((header.flags & kFirstBlock) != 0 && header.totalSize <= kLargestMessage) {
      message = std::make_shared<LmIpclibMsg>(header.msgType, header.flags, LmIpcStatusCode{header.status},
                                              header.srcStreamId, header.destStreamId, header.totalSize);
    }
    if (!message) return;
    const std::uint32_t before = message->remaining();
    const LmIpcStatusCode status = message->appendData(header.dataSize, block.data.data());
    fuzz::Require((status == LmIpcStatusCode::Success) == (header.dataSize <= before));
    if ((header.flags & kLastBlock) == 0) return;
    if (message->remaining() == 0 && header.msgType == LmIpclibMsgType::Open) CheckOpen(*message);
    message.reset();
  }

 private:
  static void CheckOpen(const LmIpclibMsg& message) {
    const auto name = readOpenPayload({message.data(), message.size()});
    if (name) fuzz::Require(!name->empty() && 2 * name->size() <= message.size() - 4);
  }

  std::map<std::uint64_t, std::shared_ptr<LmIpclibMsg>> messages_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto input = std::as_bytes(std::span(data, size)).subspan(1);
  std::vector<std::byte> bytes(input.begin(), input.end());
  fuzz::PutRight(bytes, data[0], 1);

  TransactionReader reader(bytes);
  if (reader.open(1) != LmIpcStatusCode::Success) return 0;
  Reassembly reassembly;
  LmIpclibBlock block;
  while (reader.next(block) == TransactionReader::Step::Block) {
    fuzz::Require(block.data.data() >= bytes.data() + 64);
    fuzz::Require(block.data.data() + block.data.size() <= bytes.data() + bytes.size());
    fuzz::Require(block.data.size() == block.header.dataSize);
    reassembly.Take(block);
  }
  return 0;
}
