// What a message between two processes costs with our library, next to the floors that no library can go below, and to
// other libraries. A round measures every line once, in turn; ratios are to the floor whose callbacks come through a
// pool.
//
//   ipc [--rounds COUNT]      default 21
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "tests/bench/figures.h"
#include "tests/bench/ipcFloorLinux.h"
#include "tests/bench/ipcLibraryLinux.h"
#include "tests/bench/ipcLine.h"
#include "tests/bench/ipcPeersLinux.h"
#include "tests/support/machine.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kGoesRound = 2'000;
constexpr unsigned kSmallOnes = 50'000;
constexpr unsigned kLargeOnes = 64;

double SecondsSince(Clock::time_point began) { return std::chrono::duration<double>(Clock::now() - began).count(); }

// What a line is measured by.
enum What : unsigned { RoundTrip = 1, OneWaySmall = 2, OneWayLarge = 4, Everything = 7 };

// A line with its far side in a process of its own.
class Subject {
 public:
  Subject(std::string name, unsigned what, bench::NewLine newLine)
      : name_(std::move(name)), what_(what), line_(newLine()) {
    far_ = fork();
    if (far_ < 0) bench::Fail("no process for the far side");
    if (far_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    line_->Serve();
    std::_Exit(1);
  }
  Subject(const Subject&) = delete;
  Subject& operator=(const Subject&) = delete;
  ~Subject() {
    line_.reset();
    kill(far_, SIGKILL);
    waitpid(far_, nullptr, 0);
  }

  void Open() { line_->Open(); }
  void Measure() {
    if ((what_ & RoundTrip) != 0) {
      const Clock::time_point began = Clock::now();
      line_->GoRound(kGoesRound);
      roundTrip.push_back(SecondsSince(began) * 1e6 / kGoesRound);
    }
    if ((what_ & OneWaySmall) != 0) {
      const Clock::time_point began = Clock::now();
      line_->GoOneWay(kSmallOnes, bench::kSmall);
      small.push_back(kSmallOnes / SecondsSince(began) / 1e3);
    }
    if ((what_ & OneWayLarge) != 0) {
      const Clock::time_point began = Clock::now();
      line_->GoOneWay(kLargeOnes, bench::kLarge);
      large.push_back(kLargeOnes * double{bench::kLarge} / SecondsSince(began) / 1e6);
    }
  }
  [[nodiscard]] const std::string& Name() const { return name_; }

  std::vector<double> roundTrip;  // Microseconds.
  std::vector<double> small;      // 1000 messages a second.
  std::vector<double> large;      // MB/s.

 private:
  const std::string name_;
  const unsigned what_;
  std::unique_ptr<bench::IpcLine> line_;
  pid_t far_ = 0;
};

using Subjects = std::vector<std::unique_ptr<Subject>>;

void Print(const char* title, const Subjects& subjects, std::vector<double> Subject::*measured, double unit) {
  std::printf("\n%-48s %9s %9s %9s %7s\n", title, "median", "least", "most", "ratio");
  for (const auto& subject : subjects) {
    if ((*subject.*measured).empty()) continue;
    const bench::Figures figures = bench::FiguresOf(*subject.*measured);
    std::printf("%-48s %9.1f %9.1f %9.1f %7.2f\n", subject->Name().c_str(), figures.median, figures.least, figures.most,
                figures.median / unit);
  }
}

double Median(const std::vector<double>& measured) { return bench::FiguresOf(measured).median; }

}  // namespace

int main(int argc, char** argv) {
  const unsigned rounds = bench::CountFrom(argc, argv, "--rounds", 21);
  const support::Machine machine;
  // The far sides begin while this process has but one thread.
  Subjects subjects;
  const auto add = [&](const char* name, unsigned what, bench::NewLine newLine) {
    subjects.push_back(std::make_unique<Subject>(name, what, newLine));
    return subjects.back().get();
  };
  add("eventfds, no message", RoundTrip, &bench::NewPingPong);
  add("floor, callback inline", Everything, &bench::NewInlineFloor);
  const Subject& floor = *add("floor, callback through a pool", Everything, &bench::NewPoolFloor);
  add("floor, a message a transaction", OneWaySmall, &bench::NewUnpackedFloor);
  add("the library", Everything, &bench::NewLibraryLine);
  add("the library, blocks of 1 MiB", Everything, &bench::NewLibraryLineLargeBlocks);
  add("ZeroMQ", Everything, &bench::NewZeroMqLine);
  add("nng", Everything, &bench::NewNngLine);
  add("sd-bus, peer to peer", Everything, &bench::NewSdBusLine);
  add("Boost, message queue", RoundTrip | OneWaySmall, &bench::NewBoostLine);
  for (const auto& subject : subjects) subject->Open();
  for (unsigned round = 0; round < rounds; ++round) {
    for (const auto& subject : subjects) subject->Measure();
  }

  std::printf("%u rounds of each line, in turn: %u round trips, %u messages, %u messages of 1 MiB\n", rounds,
              kGoesRound, kSmallOnes, kLargeOnes);
  Print("there and back, 128 bytes, us", subjects, &Subject::roundTrip, Median(floor.roundTrip));
  Print("one way, 128 bytes, 1000 messages a second", subjects, &Subject::small, Median(floor.small));
  Print("one way, 1 MiB, MB/s", subjects, &Subject::large, Median(floor.large));
  double load[1] = {};
  if (getloadavg(load, 1) == 1) std::printf("\nload of the machine: %.2f\n", load[0]);
  return 0;
}
