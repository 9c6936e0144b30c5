// What a trace costs that nobody listens to, against a loop that does nothing, and one relaxed load with its test; and
// what it costs with a sink that throws the text away.
//
//   trace [--runs COUNT]      default 21 runs of each, in turn
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>
#include <vector>

#include "lib/ipc/ipclib/ipclibTrace.h"
#include "tests/bench/figures.h"
#include "tests/bench/loop.h"

namespace {

using namespace quill::ipc;
using bench::NanosecondsEach;

constexpr int kRounds = 2'000'000;
constexpr int kRoundsWithASink = 50'000;

class NoSink : public quill::log::Sink {
 public:
  void Write(std::int32_t, const quill::log::Location&, std::string_view) override {}
};

std::atomic<std::int32_t> wanted = -1;
std::atomic<int> reached = 0;

constexpr auto TraceTheId = [](const std::uint64_t& id) {
  Trace(TraceChannel::Msg, "- srcStreamId: {:#x}, destStreamId: {:#x}, msgId: {}", id, id, id);
};

void Print(const char* name, const std::vector<double>& measurements, double empty) {
  const bench::Figures figures = bench::FiguresOf(measurements);
  std::printf("%-32s %10.3f %10.3f %10.3f %8.2f\n", name, figures.median, figures.least, figures.most,
              figures.median / empty);
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned runs = bench::CountFrom(argc, argv, "--runs", 21);
  std::vector<double> empty;
  std::vector<double> load;
  std::vector<double> silent;
  std::vector<double> heard;
  for (unsigned run = 0; run < runs; ++run) {
    empty.push_back(NanosecondsEach(kRounds, [](const std::uint64_t&) {}));
    load.push_back(NanosecondsEach(kRounds, [](const std::uint64_t&) {
      if (wanted.load(std::memory_order_relaxed) >= 6) ++reached;
    }));
    silent.push_back(NanosecondsEach(kRounds, TraceTheId));
    ipcTrace->attach(std::make_shared<NoSink>());
    heard.push_back(NanosecondsEach(kRoundsWithASink, TraceTheId));
    ipcTrace->removeAllSinks();
  }
  const double unit = bench::FiguresOf(empty).median;
  std::printf("%-32s %10s %10s %10s %8s\n", "nanoseconds each", "median", "least", "most", "ratio");
  Print("an empty loop", empty, unit);
  Print("one relaxed load and its test", load, unit);
  Print("a trace without a sink", silent, unit);
  Print("a trace with a sink", heard, unit);
  return 0;
}
