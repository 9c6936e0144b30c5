// A link whose peer writes any transactions, while the users of its stream do this and that.
//
// An input is a row of acts. A byte with the high bit is an act of the users; any other says what is put right in the
// transaction behind it, which is a size (16 bits) and so many bytes. In its blocks the stream is called 1.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "tests/fuzz/linkUnderTest.h"
#include "tests/fuzz/putRight.h"

using namespace fuzz;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  LinkUnderTest under;
  std::uint64_t trxSeqNo = 0;
  while (!input.IsEmpty()) {
    const std::uint8_t what = input.Byte();
    if ((what & 0x80) != 0) {
      under.Act(what);
      if ((what & 0x40) != 0) LinkUnderTest::Settle();
      continue;
    }
    const auto raw = std::as_bytes(input.Bytes(std::min(input.Number(), kChannelSize)));
    std::vector<std::byte> bytes(raw.begin(), raw.end());
    NameTheStream(bytes, under.stream->streamId());
    PutRight(bytes, what, ++trxSeqNo);
    std::ranges::copy(bytes, under.toLink.View().begin());
    platform::SetEvent(under.toLink.dataReady.get());
    LinkUnderTest::Settle();
  }
  return 0;
}
