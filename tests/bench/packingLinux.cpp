// What it costs to cut messages into blocks and pack the blocks into transactions: 1 MiB in messages of 100 bytes, next
// to a plain copy of the same bytes with the sum over them. Messages exist before the clock starts, as those that a
// link has taken.
//
//   packing [--runs COUNT]      default 101 runs of each, in turn
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

#include "lib/ipc/ipclib/crc32.h"
#include "lib/ipc/ipclib/ipclibMsg.h"
#include "lib/ipc/ipclib/transactionWriter.h"
#include "tests/bench/figures.h"

namespace {

using namespace quill::ipc;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kBytes = 1 << 20;
constexpr std::uint32_t kMessage = 100;
constexpr std::size_t kChannelSize = 65536;

using Messages = std::vector<std::shared_ptr<LmIpclibMsg>>;

Messages MessagesOf(std::span<const std::byte> bytes) {
  Messages messages;
  for (std::size_t at = 0; at + kMessage <= bytes.size(); at += kMessage) {
    messages.push_back(std::make_shared<LmIpclibMsg>(LmIpclibMsgType::Msg, 0, LmIpcStatusCode::Success, nullptr, 1, 2,
                                                     kMessage, &bytes[at],
                                                     [](LmIpcStatusCode, const std::shared_ptr<LmIpclibMsg>&) {}));
  }
  return messages;
}

double Microseconds(Clock::time_point began) {
  return std::chrono::duration<double, std::micro>(Clock::now() - began).count();
}

double Copy(std::span<const std::byte> bytes, std::span<std::byte> channel) {
  const auto began = Clock::now();
  for (std::size_t at = 0; at < bytes.size(); at += channel.size()) {
    const auto part = bytes.subspan(at, std::min(channel.size(), bytes.size() - at));
    std::memcpy(channel.data(), part.data(), part.size());
    std::uint32_t sum = crc32(channel.first(part.size()));
    asm volatile("" : "+r"(sum) : : "memory");
  }
  return Microseconds(began);
}

double Pack(const Messages& messages, std::span<std::byte> channel) {
  for (const auto& message : messages) message->prepareSend();
  const auto began = Clock::now();
  std::uint64_t trxSeqNo = 0;
  for (auto message = messages.begin(); message != messages.end();) {
    TransactionWriter transaction(channel);
    while (message != messages.end() && transaction.hasRoom()) {
      if (transaction.append(**message).last) ++message;
    }
    transaction.finish(++trxSeqNo);
    asm volatile("" : : : "memory");
  }
  return Microseconds(began);
}

void Print(const char* name, const std::vector<double>& times, double floor) {
  const bench::Figures figures = bench::FiguresOf(times);
  std::printf("%-24s %10.0f %10.0f %10.0f %8.2f\n", name, figures.median, figures.least, figures.most,
              figures.median / floor);
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned runs = bench::CountFrom(argc, argv, "--runs", 101);
  const std::vector<std::byte> bytes(kBytes, std::byte{0x5A});
  std::vector<std::byte> channel(kChannelSize);
  const Messages messages = MessagesOf(bytes);
  std::vector<double> copies;
  std::vector<double> packs;
  for (unsigned run = 0; run < runs; ++run) {
    copies.push_back(Copy(bytes, channel));
    packs.push_back(Pack(messages, channel));
  }
  const double floor = bench::FiguresOf(copies).median;
  std::printf("%-24s %10s %10s %10s %8s\n", "us", "median", "least", "most", "ratio");
  Print("copy and sum", copies, floor);
  Print("cut, pack and sum", packs, floor);
  return 0;
}
