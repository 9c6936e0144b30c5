// What the task executor costs: from `submit` to the callback on an idle pool, next to a bare wake of one thread by
// another; one more submission from within a callback; and a burst of submissions, next to a plain queue with a mutex
// and a condition variable, and to the pools of two libraries.
//
//   executor [--runs COUNT]      default 20000 wakes of each, interleaved; a burst for each 1000 of them
#include <linux/futex.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "lib/task/windowsThreadPoolExecutor.h"
#include "tests/bench/figures.h"
#include "tests/bench/otherPoolsLinux.h"
#include "tests/bench/plainPool.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace quill::task;

constexpr unsigned kBurst = 100'000;

double MicrosecondsSince(Clock::time_point began) {
  return std::chrono::duration<double, std::micro>(Clock::now() - began).count();
}

// Waits until the other side has fallen asleep again, without a call of the kernel.
void Pause() {
  const Clock::time_point until = Clock::now() + std::chrono::microseconds(50);
  while (Clock::now() < until) continue;
}

// One measurement: from `wake` to the moment that the other thread tells of by `Arrived`.
class Meeting {
 public:
  template <class Wake>
  double Measure(Wake wake) {
    arrived_ = false;
    Pause();
    began_ = Clock::now();
    wake();
    while (!arrived_.load(std::memory_order_acquire)) continue;
    return microseconds_;
  }
  void Arrived() {
    microseconds_ = MicrosecondsSince(began_);
    arrived_.store(true, std::memory_order_release);
  }

 private:
  Clock::time_point began_;
  double microseconds_ = 0;
  std::atomic<bool> arrived_{false};
};

// A thread that sleeps on an eventfd, and tells of each wake.
class EventThread {
 public:
  explicit EventThread(Meeting& meeting) : thread_([this, &meeting] { Run(meeting); }) {}
  EventThread(const EventThread&) = delete;
  EventThread& operator=(const EventThread&) = delete;
  ~EventThread() {
    ending_ = true;
    Wake();
    thread_.join();
    close(event_);
  }
  void Wake() const {
    const std::uint64_t one = 1;
    if (write(event_, &one, sizeof one) != sizeof one) std::abort();
  }

 private:
  void Run(Meeting& meeting) const {
    std::uint64_t count = 0;
    while (read(event_, &count, sizeof count) == sizeof count && !ending_) meeting.Arrived();
  }

  const int event_ = eventfd(0, EFD_CLOEXEC);
  std::atomic<bool> ending_{false};
  std::thread thread_;
};

// The same on a futex.
class FutexThread {
 public:
  explicit FutexThread(Meeting& meeting) : thread_([this, &meeting] { Run(meeting); }) {}
  FutexThread(const FutexThread&) = delete;
  FutexThread& operator=(const FutexThread&) = delete;
  ~FutexThread() {
    ending_ = true;
    Wake();
    thread_.join();
  }
  void Wake() {
    word_.store(1, std::memory_order_release);
    syscall(SYS_futex, &word_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
  }

 private:
  void Run(Meeting& meeting) {
    while (true) {
      while (word_.load(std::memory_order_acquire) == 0) {
        syscall(SYS_futex, &word_, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
      }
      if (ending_) return;
      word_ = 0;
      meeting.Arrived();
    }
  }

  std::atomic<std::uint32_t> word_{0};
  std::atomic<bool> ending_{false};
  std::thread thread_;
};

// Milliseconds until all callbacks of a burst have run.
template <class Submit>
double Burst(std::atomic<unsigned>& ran, Submit submit) {
  ran = 0;
  const Clock::time_point began = Clock::now();
  for (unsigned i = 0; i < kBurst; ++i) submit();
  while (ran != kBurst) std::this_thread::yield();
  return MicrosecondsSince(began) / 1000;
}

void Print(const char* name, const char* unit, const std::vector<double>& measurements) {
  const bench::Figures figures = bench::FiguresOf(measurements);
  std::printf("%-46s %10.3f %10.3f %10.3f %s\n", name, figures.median, figures.least, figures.most, unit);
}

OwnedArgument Argument(unsigned& number) {
  return {&number, [](void*) {}};
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned runs = bench::CountFrom(argc, argv, "--runs", 20'000);
  platform::TP_CALLBACK_ENVIRON environment;
  platform::InitializeThreadpoolEnvironment(&environment);
  const auto executor = CreateWindowsThreadPoolExecutor(&environment, 0);
  unsigned number = 0;

  std::vector<double> byEvent;
  std::vector<double> byFutex;
  std::vector<double> bySubmit;
  {
    Meeting meeting;
    const EventThread eventThread(meeting);
    FutexThread futexThread(meeting);
    const auto task = executor->create([&](void*, void*) { meeting.Arrived(); });
    for (unsigned run = 0; run < runs; ++run) {
      byEvent.push_back(meeting.Measure([&] { eventThread.Wake(); }));
      byFutex.push_back(meeting.Measure([&] { futexThread.Wake(); }));
      bySubmit.push_back(meeting.Measure([&] { executor->submit(task, {}, Argument(number)); }));
    }
    executor->close(task);
  }

  std::vector<double> chain;
  for (unsigned run = 0; run < std::max(1U, runs / 1000); ++run) {
    std::atomic<unsigned> left{kBurst};
    std::shared_ptr<WtpWorkTaskContext> task;
    task = executor->create([&](void*, void*) {
      if (--left != 0) executor->submit(task, {}, Argument(number));
    });
    const Clock::time_point began = Clock::now();
    executor->submit(task, {}, Argument(number));
    executor->waitForCallbacks(task);
    chain.push_back(MicrosecondsSince(began) / kBurst);
    executor->close(task);
  }

  std::vector<double> bursts;
  std::vector<double> plainBursts;
  std::vector<double> asioBursts;
  std::vector<double> tbbBursts;
  {
    bench::PlainPool plain;
    const auto asioPool = bench::NewAsioPool();
    const auto tbbPool = bench::NewTbbPool();
    std::atomic<unsigned> ran{0};
    const auto task = executor->create([&](void*, void*) { ++ran; });
    for (unsigned run = 0; run < std::max(1U, runs / 1000); ++run) {
      bursts.push_back(Burst(ran, [&] { executor->submit(task, {}, Argument(number)); }));
      plainBursts.push_back(Burst(ran, [&] { plain.Submit([&] { ++ran; }); }));
      asioBursts.push_back(Burst(ran, [&] { asioPool->Submit([&] { ++ran; }); }));
      tbbBursts.push_back(Burst(ran, [&] { tbbPool->Submit([&] { ++ran; }); }));
    }
    executor->close(task);
  }

  std::printf("%u wakes of each, interleaved; bursts of %u submissions\n", runs, kBurst);
  std::printf("%-46s %10s %10s %10s\n", "", "median", "least", "most");
  Print("wake by eventfd", "us", byEvent);
  Print("wake by futex", "us", byFutex);
  Print("submit to callback, idle pool", "us", bySubmit);
  Print("submission from its own callback, each", "us", chain);
  Print("burst, task executor", "ms", bursts);
  Print("burst, mutex and condition variable", "ms", plainBursts);
  Print("burst, Asio's thread pool", "ms", asioBursts);
  Print("burst, oneTBB's arena", "ms", tbbBursts);
  double load[1] = {};
  if (getloadavg(load, 1) == 1) std::printf("load of the machine: %.2f\n", load[0]);
  return 0;
}
