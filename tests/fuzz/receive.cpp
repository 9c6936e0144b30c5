// A link over a block that its peer writes to at any moment: also between the look at a transaction's size and the copy
// of it, and behind the copy.
//
// The first byte of an input says how large the blocks are. Behind it stands a row of acts. A byte with the high bit is
// an act of the users; any other begins a transaction, which is written over what the block holds. Bits 0 to 2 of the
// byte say what is put right in it; with bit 3 a second one follows, which takes its place ahead of the copy; with bit
// 4 the block is filled with zeros behind the copy, and with bit 5 with ones. A transaction is a size (16 bits) and so
// many bytes, ahead of the second one stands a byte of its own that says what is put right. In its blocks the stream is
// called 1.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "lib/ipc/ipclib/transactionReader.h"
#include "tests/fuzz/linkUnderTest.h"
#include "tests/fuzz/putRight.h"
#include "tests/streams/blockRewriter.h"

namespace {

using namespace fuzz;
using Bytes = std::vector<std::byte>;

// From what holds no header, over what holds no data, to what holds several blocks.
constexpr std::uint32_t kSizes[] = {kChannelSize, 0, 27, 28, 64, 68, 69, 73, 256, 1000};

class Receiver {
 public:
  explicit Receiver(std::uint32_t channelSize)
      : channelSize_(channelSize),
        under_(channelSize, [this](const LmIpclibMsg& message) { Check(message); }),
        rewriter_([this] { AheadOfTheCopy(); }, [this] { BehindTheCopy(); }) {}

  // Everything that the block is to hold from now on.
  [[nodiscard]] Bytes Transaction(Input& input, std::uint8_t what) const {
    const auto block = under_.toLink.View();
    Bytes whole(block.begin(), block.end());
    const auto raw = std::as_bytes(input.Bytes(input.Number()));
    const std::size_t size = std::min(raw.size(), whole.size());
    std::ranges::copy(raw.first(size), whole.begin());
    NameTheStream(whole, under_.stream->streamId());
    PutRight(std::span(whole).first(size), what, looks_ + 1);
    return whole;
  }
  void Receive(Input& input, std::uint8_t what) {
    Write(Transaction(input, what));
    second_.reset();
    if ((what & 8) != 0) second_ = Transaction(input, input.Byte());
    fill_.reset();
    if ((what & 16) != 0) fill_ = std::byte{0};
    if ((what & 32) != 0) fill_ = std::byte{0xFF};
    platform::SetEvent(under_.toLink.dataReady.get());
    LinkUnderTest::Settle();
  }

  [[nodiscard]] const LinkUnderTest& Link() const { return under_; }

 private:
  void Write(const Bytes& whole) const { std::ranges::copy(whole, under_.toLink.View().begin()); }

  void AheadOfTheCopy() {
    ++looks_;
    const auto seen = readTrxHeader(under_.toLink.View());
    if (second_) Write(*second_);
    const auto block = under_.toLink.View();
    Bytes copied(block.begin(), block.end());
    copied.resize(std::min<std::size_t>(copied.size(), seen->trxSize));
    if (seen->trxSize <= channelSize_) Keep(copied);
  }
  void BehindTheCopy() const {
    if (fill_) std::ranges::fill(under_.toLink.View(), *fill_);
  }

  // What each stream may be told from now on.
  void Keep(std::span<std::byte> copied) {
    TransactionReader transaction(copied);
    if (transaction.open(looks_) != LmIpcStatusCode::Success) return;
    LmIpclibBlock block;
    while (transaction.next(block) == TransactionReader::Step::Block) {
      if (block.header.msgType != LmIpclibMsgType::Msg) continue;
      data_[block.header.destStreamId].append(reinterpret_cast<const char*>(block.data.data()), block.data.size());
    }
  }
  void Check(const LmIpclibMsg& message) {
    if (message.size() == 0) return;
    const std::string_view text(reinterpret_cast<const char*>(message.data()), message.size());
    Require(data_[message.destStreamId()].find(text) != std::string::npos);
  }

  std::uint64_t looks_ = 0;  // How often the link has looked at the size of a transaction.
  std::optional<Bytes> second_;
  std::optional<std::byte> fill_;
  std::map<std::uint64_t, std::string> data_;  // Of all messages that were copied, by the stream that they are for.
  const std::uint32_t channelSize_;
  const LinkUnderTest under_;  // Its end may deliver.
  const streams::BlockRewriter rewriter_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Receiver receiver(kSizes[input.Byte() % std::size(kSizes)]);
  while (!input.IsEmpty()) {
    const std::uint8_t what = input.Byte();
    if ((what & 0x80) == 0) {
      receiver.Receive(input, what);
    } else {
      receiver.Link().Act(what);
      if ((what & 0x40) != 0) LinkUnderTest::Settle();
    }
  }
  return 0;
}
