// What a reference costs: AddRef and Release on one object, which take the lock twice, next to one lock and unlock of a
// mutex.
//
//   counts [--runs COUNT]      default 31 runs of each, interleaved
#include <algorithm>
#include <chrono>
#include <cstdio>

#include <mutex>
#include <thread>
#include <vector>

#include "runtime/rcPtr.h"
#include "tests/bench/figures.h"
#include "tests/support/meeting.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRepeats = 300'000;
constexpr int kThreads = 4;

struct Thing : runtime::RCObject {};

// Nanoseconds for each of the repeats, done by that many threads at once.
template <class Work>
double Measure(int threads, const Work& work) {
  support::StartLine start(threads + 1);
  std::vector<std::thread> others;
  for (int i = 0; i < threads; ++i) {
    others.emplace_back([&] {
      start.ArriveAndWait();
      for (int repeat = 0; repeat < kRepeats; ++repeat) work();
    });
  }
  const Clock::time_point began = Clock::now();
  start.ArriveAndWait();
  for (std::thread& thread : others) thread.join();
  return std::chrono::duration<double, std::nano>(Clock::now() - began).count() / kRepeats / threads;
}

void Print(const char* name, const std::vector<double>& nanoseconds, double unit) {
  const bench::Figures figures = bench::FiguresOf(nanoseconds);
  std::printf("%-36s %9.1f %9.1f %9.1f %8.2f\n", name, figures.median, figures.least, figures.most,
              figures.median / unit);
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned runs = bench::CountFrom(argc, argv, "--runs", 31);
  std::mutex mutex;
  long counter = 0;
  const runtime::RCPtr<Thing> thing(new Thing);
  const auto lockMutex = [&] {
    const std::lock_guard lock(mutex);
    ++counter;
  };
  const auto refer = [&] {
    thing->AddRef();
    thing->Release();
  };
  std::vector<double> mutexAlone, referAlone, mutexByFour, referByFour;
  for (unsigned run = 0; run < runs; ++run) {
    mutexAlone.push_back(Measure(1, lockMutex));
    referAlone.push_back(Measure(1, refer));
    mutexByFour.push_back(Measure(kThreads, lockMutex));
    referByFour.push_back(Measure(kThreads, refer));
  }
  std::printf("nanoseconds each, %d repeats in each of %u runs\n", kRepeats, runs);
  std::printf("%-36s %9s %9s %9s %8s\n", "", "median", "least", "most", "ratio");
  const double alone = bench::FiguresOf(mutexAlone).median;
  const double byFour = bench::FiguresOf(mutexByFour).median;
  Print("mutex, lock and unlock", mutexAlone, alone);
  Print("AddRef and Release", referAlone, alone);
  Print("mutex, 4 threads", mutexByFour, byFour);
  Print("AddRef and Release, 4 threads", referByFour, byFour);
  return counter > 0 ? 0 : 1;
}
