// A stream that is handed any blocks, while its users do this and that.
//
// An input is a row of acts. A byte with the high bit is an act of the users; any other begins a block: the byte is its
// type, then follow its flags, its status (a byte each), its total size (16 bits), the size of its data (16 bits) and
// the data.
#include <cstddef>
#include <cstdint>

#include "tests/fuzz/linkUnderTest.h"

namespace {

using namespace fuzz;

void HandOver(Input& input, LmIpclibMsgType type, LmIpclibStream& stream) {
  LmIpclibBlockHeader header;
  header.msgType = type;
  header.flags = input.Byte();
  header.status = input.Byte();
  header.srcStreamId = kPeerStream;
  header.destStreamId = stream.streamId();
  header.totalSize = input.Number();
  const auto data = input.Bytes(input.Number());
  header.dataSize = static_cast<std::uint32_t>(data.size());
  header.blockSize = header.headerSize() + header.dataSize;
  const LmIpcStatusCode status = stream.recvBlock(header, data.data());
  Require(status == LmIpcStatusCode::Success || status == LmIpcStatusCode::InvalidState ||
          status == LmIpcStatusCode::ProtocolError);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  LinkUnderTest under;
  while (!input.IsEmpty()) {
    const std::uint8_t what = input.Byte();
    if ((what & 0x80) != 0) {
      under.Act(what);
    } else {
      HandOver(input, LmIpclibMsgType{what & 0x0FU}, *under.stream);
    }
    if ((what & 0x40) == 0) continue;
    under.stream->deferredDispatch();
    LinkUnderTest::Settle();
  }
  return 0;
}
