#include <execinfo.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/testHooks.h"
#include "tests/support/watch.h"

namespace support {
namespace {

constexpr int kTellStack = SIGUSR2;
std::atomic<int> stacksTold{0};

void TellStack(int) {
  void* frames[64];
  backtrace_symbols_fd(frames, backtrace(frames, 64), STDERR_FILENO);
  ++stacksTold;
}

// Asks one thread after the other, so that their stacks do not mix.
void PrintAllStacks() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    const pid_t thread = static_cast<pid_t>(std::stoi(task.path().filename()));
    if (thread == static_cast<pid_t>(syscall(SYS_gettid))) continue;
    std::fprintf(stderr, "thread %d\n", thread);
    const int told = stacksTold;
    if (syscall(SYS_tgkill, getpid(), thread, kTellStack) != 0) continue;  // It has just ended.
    for (int i = 0; i < 100 && stacksTold == told; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

// Gives up on a test that takes too long. Sleeps until a test begins or ends, or its time is over.
class Watchdog {
 public:
  Watchdog() : limit_(Limit()), thread_([this] { Run(); }) {}
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;
  ~Watchdog() {
    {
      const std::lock_guard guard(lock_);
      stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }
  // The test that runs now; empty between tests.
  void Watch(std::string test) {
    {
      const std::lock_guard guard(lock_);
      test_ = std::move(test);
      ++turn_;
    }
    changed_.notify_all();
  }

 private:
  static std::chrono::seconds Limit() {
    const char* setting = std::getenv("LUMENAR_TEST_LIMIT");
    return std::chrono::seconds(setting != nullptr ? std::atoi(setting) : 240);
  }
  void Run() {
    std::unique_lock guard(lock_);
    while (!stopping_) {
      const unsigned turn = turn_;
      const auto isOver = [&] { return stopping_ || turn_ != turn; };
      if (test_.empty()) {
        changed_.wait(guard, isOver);
      } else if (!changed_.wait_for(guard, limit_, isOver)) {
        std::fprintf(stderr, "%s takes longer than %lld s\n", test_.c_str(), static_cast<long long>(limit_.count()));
        PrintAllStacks();
        std::abort();
      }
    }
  }

  const std::chrono::seconds limit_;
  std::mutex lock_;
  std::condition_variable changed_;
  std::string test_;
  unsigned turn_ = 0;
  bool stopping_ = false;
  std::thread thread_;
};

// What is in the second list and not in the first.
std::vector<std::string> Added(std::vector<std::string> before, std::vector<std::string> after) {
  // The open hive of the current user is kept by the process for good.
  std::erase(after, "CurrentUserHive");
  std::ranges::sort(before);
  std::ranges::sort(after);
  std::vector<std::string> added;
  std::ranges::set_difference(after, before, std::back_inserter(added));
  return added;
}

std::vector<std::string>& PromisedKinds() {
  static std::vector<std::string> kinds;
  return kinds;
}

class Listener : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo& test) override {
    watchdog_.Watch(std::string(test.test_suite_name()) + "." + test.name());
    before_ = platform::test::LiveHandles();
    std::erase(before_, "CurrentUserHive");
    PromisedKinds().clear();
  }
  void OnTestEnd(const testing::TestInfo&) override {
    watchdog_.Watch({});
    before_.insert(before_.end(), PromisedKinds().begin(), PromisedKinds().end());
    const std::vector<std::string> after = platform::test::LiveHandles();
    for (const std::string& kind : Added(before_, after)) ADD_FAILURE() << "left open: " << kind;
    for (const std::string& kind : Added(after, before_))
      ADD_FAILURE() << "closed, but not its own or promised to stay open: " << kind;
  }

  Watchdog watchdog_;
  std::vector<std::string> before_;
};

}  // namespace

void PromiseLeftOpen(const std::string& kind, unsigned count) {
  PromisedKinds().insert(PromisedKinds().end(), count, kind);
}

void WatchTests() {
  void* frames[1];
  backtrace(frames, 1);  // Loads what it needs now: a signal handler must not.
  struct sigaction action {};
  action.sa_handler = &TellStack;
  action.sa_flags = SA_RESTART;
  sigaction(kTellStack, &action, nullptr);
  testing::UnitTest::GetInstance()->listeners().Append(new Listener);
}

}  // namespace support
