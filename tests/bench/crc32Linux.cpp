// How fast checksums are made: by the method that the library chooses, by its method for processors that cannot fold,
// and by the usual table of 256 entries.
//
//   crc32 [--runs COUNT]      default 21 runs of each, in turn
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <vector>

#include "lib/ipc/ipclib/crc32.h"
#include "lib/ipc/ipclib/crc32Methods.h"
#include "tests/bench/figures.h"

namespace {

using Bytes = std::span<const std::byte>;
using Clock = std::chrono::steady_clock;
namespace methods = quill::ipc::crc32Methods;

std::array<std::uint32_t, 256> table;

void MakeTable() {
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t entry = byte;
    for (int bit = 0; bit < 8; ++bit) entry = (entry & 1) != 0 ? entry >> 1 ^ methods::kPolynomial : entry >> 1;
    table[byte] = entry;
  }
}

std::uint32_t Chosen(Bytes bytes) { return quill::ipc::crc32(bytes); }
std::uint32_t Slices(Bytes bytes) { return ~methods::bySlices(0xFFFFFFFF, bytes); }
std::uint32_t Table(Bytes bytes) {
  std::uint32_t state = 0xFFFFFFFF;
  for (const std::byte byte : bytes) state = state >> 8 ^ table[(state ^ static_cast<std::uint8_t>(byte)) & 0xFF];
  return ~state;
}

struct Method {
  const char* name;
  std::uint32_t (*checksum)(Bytes);
  std::size_t bytesPerRun;
  std::vector<double> speeds;
};

double GigabytesPerSecond(const Method& method, Bytes bytes) {
  const std::size_t rounds = method.bytesPerRun / bytes.size();
  const Clock::time_point began = Clock::now();
  for (std::size_t round = 0; round < rounds; ++round) {
    std::uint32_t sum = method.checksum(bytes);
    asm volatile("" : "+r"(sum) : : "memory");
  }
  const double nanoseconds = std::chrono::duration<double, std::nano>(Clock::now() - began).count();
  return static_cast<double>(rounds * bytes.size()) / nanoseconds;
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned runs = bench::CountFrom(argc, argv, "--runs", 21);
  MakeTable();
  std::printf("this processor %s\n", methods::foldingWorks() ? "folds" : "cannot fold");
  std::printf("%-8s %8s %10s %10s %10s %8s\n", "GB/s", "bytes", "median", "least", "most", "ratio");
  for (const std::size_t size : {40U, 73U, 128U, 1024U, 64U * 1024U}) {
    const std::vector<std::byte> bytes(size, std::byte{0x5A});
    Method methodsOfRun[] = {
        {"chosen", Chosen, 64'000'000, {}}, {"slices", Slices, 16'000'000, {}}, {"table", Table, 4'000'000, {}}};
    for (unsigned run = 0; run < runs; ++run) {
      for (Method& method : methodsOfRun) method.speeds.push_back(GigabytesPerSecond(method, bytes));
    }
    const double byTable = bench::FiguresOf(methodsOfRun[2].speeds).median;
    for (const Method& method : methodsOfRun) {
      const bench::Figures figures = bench::FiguresOf(method.speeds);
      std::printf("%-8s %8zu %10.2f %10.2f %10.2f %8.2f\n", method.name, size, figures.median, figures.least,
                  figures.most, figures.median / byTable);
    }
  }
  return 0;
}
