// Threads that use everything of the runtime at once, for a while: for the thread sanitizer above all, under which this
// takes longest.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "runtime/loggerManager.h"
#include "runtime/pollThread.h"
#include "runtime/wkPtr.h"
#include "tests/runtime/recordingWriter.h"
#include "tests/support/meeting.h"

namespace {

using runtime::RCPtr;
using runtime::TxEvent;
using runtime::TxPollItem;
using runtime::WkPtr;

constexpr int kStressThreads = 8;
constexpr std::chrono::seconds kTime(LUMENAR_STRESS_SECONDS);
constexpr const char* kMark = "of the stress";

struct StressedThing : runtime::RCObject {
  ~StressedThing() override { alive = false; }
  std::atomic<bool> alive = true;
};

// What each thread makes anew again and again, and what the others try to get hold of.
class Exchange {
 public:
  void Offer(std::size_t place, const RCPtr<StressedThing>& thing) {
    const WkPtr<StressedThing> weak(thing);
    const std::lock_guard guard(lock_);
    offered_.at(place) = weak;
  }
  [[nodiscard]] WkPtr<StressedThing> Look(std::size_t place) {
    const std::lock_guard guard(lock_);
    return offered_.at(place);
  }

 private:
  std::mutex lock_;
  std::array<WkPtr<StressedThing>, kStressThreads> offered_;
};

// A job that must never run beside itself.
class StressedItem : public TxPollItem {
 public:
  explicit StressedItem(bool always) : TxPollItem("stress"), stays(always) {}
  bool Run(bool) override {
    if (running.exchange(true)) ++overlaps;
    ++runs;
    running = false;
    return stays || runs % 3 != 0;
  }

  const bool stays;
  std::atomic<bool> running = false;
  std::atomic<int> overlaps = 0;
  std::atomic<int> runs = 0;
};

// Counts the lines of the stress, which it gets one at a time.
class CountingWriter : public runtimeTests::RecordingWriter {
 public:
  void Emit(const RCPtr<runtime::LogMessage>& message) override {
    if (message->Text().find(kMark) != std::string_view::npos) ++lines;
  }
  void BeginBatch() override {}
  void EndBatch() override {}

  int lines = 0;
};

struct Shared {
  Shared() {
    for (RCPtr<StressedItem>& item : common)
      poll->AddItem(item = new StressedItem(true), new TxEvent(false, false), 60'000);
    EXPECT_TRUE(poll->StartScheduler());
  }
  ~Shared() {
    poll->RemoveAllItems(true);
    EXPECT_TRUE(poll->Thread().Stop(TxEvent::kNoLimit));
  }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;

  Exchange exchange;
  RCPtr<runtime::TxPollThread> poll{new runtime::TxPollThread("stress")};
  std::array<RCPtr<StressedItem>, kStressThreads> common;  // On the thread all the time, for everybody to disturb.
  std::atomic<int> logged = 0;
  std::atomic<int> dead = 0;
  std::atomic<int> overlaps = 0;
};

class Worker {
 public:
  Worker(Shared& shared, std::size_t place) : shared_(shared), place_(place), random_(static_cast<unsigned>(place)) {}
  ~Worker() { shared_.poll->RemoveItem(own_, true); }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  void Work() {
    const auto end = std::chrono::steady_clock::now() + kTime;
    while (std::chrono::steady_clock::now() < end) {
      Count();
      Log();
      MoveItems();
    }
    shared_.overlaps += own_->overlaps;
  }

 private:
  std::size_t Any() { return random_() % kStressThreads; }

  void Count() {
    const RCPtr<StressedThing> fresh(new StressedThing);
    thing_ = fresh;
    shared_.exchange.Offer(place_, fresh);
    const WkPtr<StressedThing> weak = shared_.exchange.Look(Any());
    const RCPtr<StressedThing> strong = weak.Lock();
    if (strong && !strong->alive) ++shared_.dead;
  }

  void Log() {
    runtime::Log("Worker::Log()", 3, "%s, from %d", kMark, static_cast<int>(place_));
    runtime::LogIfWanted("Worker::Log()", 1, "nobody wants this: %d", 1);
    ++shared_.logged;
  }

  void MoveItems() {
    const RCPtr<StressedItem> other = shared_.common.at(Any());
    switch (random_() % 6) {
      case 0: shared_.poll->AddItem(own_, RCPtr(new TxEvent(false, true)), TxPollItem::kNoTimeout); break;
      case 1: shared_.poll->RemoveItem(own_, random_() % 2 == 0); break;
      case 2:
        other->Disable(random_() % 2 == 0);
        other->Enable();
        break;
      case 3: other->SetTimeoutMS(0, true); break;
      case 4: other->SetTimeoutMS(60'000, true); break;
      default: other->SetEvent(RCPtr(new TxEvent(false, true))); break;
    }
  }

  Shared& shared_;
  const std::size_t place_;
  std::minstd_rand random_;
  RCPtr<StressedThing> thing_;
  const RCPtr<StressedItem> own_{new StressedItem(false)};  // Nobody else adds or removes it.
};

TEST(Stress, EightThreadsCountLogAndMoveItemsAndNothingIsLost) {
  runtime::RouteLogCalls();
  const RCPtr<CountingWriter> writer(new CountingWriter);
  runtime::GetDefaultLogger()->AddWriter("stress", writer);
  {
    Shared shared;
    support::StartLine start(kStressThreads);
    std::vector<std::thread> threads;
    for (std::size_t place = 0; place < kStressThreads; ++place) {
      threads.emplace_back([&, place] {
        Worker worker(shared, place);
        start.ArriveAndWait();
        worker.Work();
      });
    }
    for (std::thread& thread : threads) thread.join();
    for (const RCPtr<StressedItem>& item : shared.common) {
      EXPECT_EQ(item->overlaps, 0);
      EXPECT_GT(item->runs, 0);
    }
    EXPECT_EQ(shared.overlaps, 0);
    EXPECT_EQ(shared.dead, 0);
    EXPECT_EQ(writer->lines, shared.logged);
  }
  runtime::GetDefaultLogger()->RemoveWriter("stress");
  runtime::SetLogReceiver(nullptr);
}

}  // namespace
