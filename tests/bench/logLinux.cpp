// What a line of the log costs: with nobody listening and not wanted, next to an empty loop and one relaxed load; with
// a writer that does nothing; and with one that puts the whole prefix in front.
//
//   log [--runs COUNT]      default 21 runs of each, in turn
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "runtime/logLine.h"
#include "runtime/loggerManager.h"
#include "tests/bench/figures.h"
#include "tests/bench/loop.h"

namespace {

using bench::NanosecondsEach;

constexpr int kRounds = 2'000'000;
constexpr int kLines = 50'000;

class EmptyWriter : public runtime::LogWriter {
 public:
  explicit EmptyWriter(bool writesPrefix) : withPrefix(writesPrefix) { open = true; }
  bool ShouldDrop(const runtime::RCPtr<runtime::LogMessage>&) override { return false; }
  void Emit(const runtime::RCPtr<runtime::LogMessage>&) override {}
  void BeginBatch() override {}
  void EndBatch() override {}
  int FormatPrefix(char* buffer, int capacity, int level, const char* functionName) override {
    return withPrefix ? runtime::FormatLinePrefix(buffer, capacity, level, functionName, true) : 0;
  }

 private:
  const bool withPrefix;
};

std::atomic<std::int32_t> wanted = 0;
std::atomic<int> reached = 0;

double LinesBy(const runtime::RCPtr<runtime::LogWriter>& writer) {
  const runtime::RCPtr<runtime::Logger> logger = runtime::GetDefaultLogger();
  logger->AddWriter("bench", writer);
  const double each = NanosecondsEach(kLines, [](const std::uint64_t& id) {
    runtime::Log("Caller()", 3, "Receive message from streamName=%s, Id=%lld, dataSize=%d.", "name", id, 128);
  });
  logger->RemoveWriter("bench");
  return each;
}

void Print(const char* name, const std::vector<double>& measurements) {
  const bench::Figures figures = bench::FiguresOf(measurements);
  std::printf("%-36s %10.2f %10.2f %10.2f %12.0f\n", name, figures.median, figures.least, figures.most,
              1e9 / figures.median);
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned runs = bench::CountFrom(argc, argv, "--runs", 21);
  const runtime::RCPtr<runtime::LogWriter> bare(new EmptyWriter(false));
  const runtime::RCPtr<runtime::LogWriter> prefixing(new EmptyWriter(true));
  runtime::RouteLogCalls();
  std::vector<double> empty;
  std::vector<double> load;
  std::vector<double> gated;
  std::vector<double> lines;
  std::vector<double> prefixed;
  for (unsigned run = 0; run < runs; ++run) {
    empty.push_back(NanosecondsEach(kRounds, [](const std::uint64_t&) {}));
    load.push_back(NanosecondsEach(kRounds, [](const std::uint64_t&) {
      if (wanted.load(std::memory_order_relaxed) >= 5) ++reached;
    }));
    gated.push_back(
        NanosecondsEach(kRounds, [](const std::uint64_t& id) { runtime::LogIfWanted("Caller()", 5, "Id=%lld", id); }));
    lines.push_back(LinesBy(bare));
    prefixed.push_back(LinesBy(prefixing));
  }
  std::printf("%-36s %10s %10s %10s %12s\n", "nanoseconds each", "median", "least", "most", "a second");
  Print("an empty loop", empty);
  Print("one relaxed load and its test", load);
  Print("a line that is not wanted", gated);
  Print("a line, one writer that does nothing", lines);
  Print("the same with the whole prefix", prefixed);
  return 0;
}
