#include "runtime/pollThread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/format.h"
#include "platform/movedClock.h"
#include "tests/runtime/logLines.h"
#include "tests/support/meeting.h"

namespace {

using namespace std::chrono_literals;
using runtime::RCPtr;
using runtime::TxEvent;
using runtime::TxMutex;
using runtime::TxPollItem;
using runtime::TxPollThread;
using runtimeTests::LogLines;
using support::Signal;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class Item : public TxPollItem {
 public:
  using Job = std::function<bool(bool timedOut)>;
  Item(std::string itemName, Job itsJob) : TxPollItem(std::move(itemName)), job(std::move(itsJob)) {}
  bool Run(bool timedOut) override { return job(timedOut); }

 private:
  const Job job;
};

RCPtr<TxPollItem> NewItem(const std::string& name, Item::Job job) { return new Item(name, std::move(job)); }
RCPtr<TxPollItem> IdleItem(const std::string& name) {
  return NewItem(name, [](bool) { return true; });
}
RCPtr<TxEvent> NewEvent(bool manualReset, bool signalled) { return new TxEvent(manualReset, signalled); }

// A thread that is stopped and waited for at the end.
class Poll {
 public:
  explicit Poll(const std::string& name = "test") : thread(new TxPollThread(name)) {}
  ~Poll() { EXPECT_TRUE(thread->Thread().Stop(TxEvent::kNoLimit)); }
  Poll(const Poll&) = delete;
  Poll& operator=(const Poll&) = delete;
  TxPollThread* operator->() const { return thread.Get(); }

  RCPtr<TxPollThread> thread;
};

std::string Pointer(const void* pointer) { return platform::FormatNarrow("0x%p", pointer).value_or(""); }
std::string IdOf(const Poll& poll) { return Pointer(runtime::ThreadIdPointer(poll->Id())); }

TEST(TxPollThread, WithoutItemsWaitsWithoutALimitUntilItIsAskedToLookAgain) {
  LogLines lines;
  runtime::gLogLevel = 7;
  const Poll poll;
  ASSERT_TRUE(poll->StartScheduler());
  lines.Await("N TxPollThread::Scheduler(): test: Waiting for INFINITE");
  Signal ran;
  ASSERT_TRUE(poll->AddItem(NewItem("item", [&](bool) { return ran.Give(), false; }), NewEvent(false, true), -1));
  ran.Await();
  lines.Await("N TxPollThread::Scheduler(): test: Dirty event signaled");
}

TEST(TxPollThread, WithoutItemsEndsWhenItIsStopped) {
  LogLines lines;
  runtime::gLogLevel = 7;
  {
    const Poll poll;
    ASSERT_TRUE(poll->StartScheduler());
    ASSERT_TRUE(poll->StartScheduler());
  }
  lines.Await("N TxPollThread::Scheduler(): test: Exit event signaled");
  lines.Await("I TxThreadData::Run(): Thread TxPoll-test exited by callback");
}

TEST(TxPollThread, RunsATimedItemWhoseTimeIsOverAsTimedOut) {
  const Poll poll;
  Signal ran;
  bool timedOut = false;
  poll->AddItem(NewItem("item",
                        [&](bool byTime) {
                          timedOut = byTime;
                          ran.Give();
                          return false;
                        }),
                {}, 0);
  ASSERT_TRUE(poll->StartScheduler());
  ran.Await();
  EXPECT_TRUE(timedOut);
}

TEST(TxPollThread, RunsAnItemWhoseEventIsSignalledAsNotTimedOut) {
  const Poll poll;
  ASSERT_TRUE(poll->StartScheduler());
  Signal ran;
  bool timedOut = true;
  const RCPtr<TxEvent> event = NewEvent(false, false);
  poll->AddItem(NewItem("item",
                        [&](bool byTime) {
                          timedOut = byTime;
                          ran.Give();
                          return false;
                        }),
                event, 60'000);
  event->Set();
  ran.Await();
  EXPECT_FALSE(timedOut);
}

TEST(TxPollThread, RunsATimedItemEachTimeItsTimeHasCome) {
  platform::test::MovableClock clock;
  const Poll poll;
  std::atomic<int> runs{0};
  std::atomic<bool> allByTime{true};
  poll->AddItem(NewItem("item",
                        [&](bool timedOut) {
                          if (!timedOut) allByTime = false;
                          return ++runs < 3;
                        }),
                {}, 60'000);
  ASSERT_TRUE(poll->StartScheduler());
  // The time begins anew with each run: what is moved ahead of that is lost.
  while (runs < 3) {
    clock.Move(60s);
    std::this_thread::yield();
  }
  EXPECT_TRUE(allByTime);
}

// One turn of the list is one run of each item: the busy one cannot come twice before each of the others has run.
TEST(TxPollThread, RunsEveryTimedItemWithinOneTurnOfTheListBesideOneThatIsAlwaysSignalled) {
  constexpr int kTimed = 60;
  const Poll poll;
  Signal done;
  std::vector<int> order;
  const auto record = [&](int which) {
    return [&, which](bool) {
      if (order.size() < 3 * kTimed) order.push_back(which);
      if (order.size() == 3 * kTimed) done.Give();
      return order.size() < 3 * kTimed;
    };
  };
  poll->AddItem(NewItem("busy", record(0)), NewEvent(true, true), -1);
  for (int i = 1; i <= kTimed; ++i) poll->AddItem(NewItem("timed", record(i)), {}, 0);
  ASSERT_TRUE(poll->StartScheduler());
  done.Await();
  ASSERT_TRUE(poll->Thread().Stop(TxEvent::kNoLimit));
  const std::vector<int> turn(order.begin(), order.begin() + kTimed + 1);
  std::vector<int> each(kTimed + 1);
  for (int i = 0; i <= kTimed; ++i) each[static_cast<std::size_t>(i)] = i;
  EXPECT_THAT(turn, testing::UnorderedElementsAreArray(each));
}

TEST(TxPollThread, ForgetsAnItemWhoseRunReturnsFalse) {
  const Poll poll;
  const RCPtr<TxEvent> event = NewEvent(true, true);
  Signal ran;
  int runs = 0;
  const RCPtr<TxPollItem> item = NewItem("item", [&](bool) { return ++runs, ran.Give(), false; });
  poll->AddItem(item, event, -1);
  ASSERT_TRUE(poll->StartScheduler());
  ran.Await();
  poll->WaitForItemToComplete(item);
  // The next pass belongs to the other one.
  Signal other;
  poll->AddItem(NewItem("other", [&](bool) { return other.Give(), false; }), {}, 0);
  other.Await();
  EXPECT_EQ(runs, 1);
  EXPECT_FALSE(item->GetPollThread());
  EXPECT_FALSE(poll->RemoveItem(item, false));
}

TEST(TxPollThread, LooksFirstAtTheEventsOfItemsAheadOfOneThatIsOverdue) {
  const Poll poll;
  std::vector<std::string> order;
  Signal done;
  const auto once = [&](const std::string& name) {
    return NewItem(name, [&, name](bool) {
      order.push_back(name);
      if (order.size() == 3) done.Give();
      return false;
    });
  };
  poll->AddItem(once("ahead"), NewEvent(true, true), -1);
  poll->AddItem(once("overdue"), {}, 0);
  poll->AddItem(once("behind"), NewEvent(true, true), -1);
  ASSERT_TRUE(poll->StartScheduler());
  done.Await();
  EXPECT_THAT(order, ElementsAre("ahead", "overdue", "behind"));
}

TEST(TxPollThread, AddItemTellsWhyItRefuses) {
  LogLines lines;
  const Poll poll("one");
  const Poll other("two");
  EXPECT_FALSE(poll->AddItem(nullptr));
  const RCPtr<TxPollItem> item = IdleItem("item");
  EXPECT_TRUE(other->AddItem(item));
  EXPECT_FALSE(poll->AddItem(item));
  EXPECT_THAT(lines.All(), ElementsAre("D TxPollThread::AddItem(): one: item == NULL",
                                       "D TxPollThread::AddItem(): one: Item item already belongs to " + IdOf(other)));
}

TEST(TxPollThread, RemoveItemTellsWhyItRefuses) {
  LogLines lines;
  const Poll poll("one");
  const Poll other("two");
  const RCPtr<TxPollItem> item = IdleItem("item");
  EXPECT_FALSE(poll->RemoveItem(nullptr, false));
  EXPECT_FALSE(poll->RemoveItem(item, false));
  EXPECT_TRUE(other->AddItem(item));
  EXPECT_FALSE(poll->RemoveItem(item, false));
  EXPECT_THAT(lines.All(), ElementsAre("D TxPollThread::RemoveItem(): one: item == NULL",
                                       "D TxPollThread::RemoveItem(): one: Item item belongs to " + IdOf(other)));
}

TEST(TxPollThread, RemoveItemThatWaitsFindsAnItemGoneThatHasRemovedItself) {
  LogLines lines;
  const Poll poll;
  Signal running;
  Signal goOn;
  const RCPtr<TxPollItem> item = NewItem("item", [&](bool) { return running.Give(), goOn.Await(), false; });
  poll->AddItem(item, {}, 0);
  ASSERT_TRUE(poll->StartScheduler());
  running.Await();
  runtime::gLogLevel = 7;
  bool removed = true;
  std::thread remover([&] { removed = poll->RemoveItem(item, true); });
  lines.Await("N TxPollThread::WaitForItemToComplete(): test: Waiting for item to complete");
  goOn.Give();
  remover.join();
  EXPECT_FALSE(removed);
  lines.Await("N TxPollThread::WaitForItemToComplete(): test: item completed");
  lines.Await("D TxPollThread::RemoveItem(): test: Item item not found");
}

// An item whose run lasts until it is told to go on.
struct Held {
  Signal running;
  Signal goOn;
  bool again = true;  // Whether it stays with its thread then.
  bool ended = false;
  RCPtr<TxPollItem> item = NewItem("item", [this](bool) {
    running.Give();
    goOn.Await();
    ended = true;
    return again;
  });
};

TEST(TxPollThread, WaitsForWhateverItemRuns) {
  LogLines lines;
  Held held;
  const Poll poll;
  poll->AddItem(held.item, {}, 0);
  ASSERT_TRUE(poll->StartScheduler());
  held.running.Await();
  runtime::gLogLevel = 7;
  bool seen = false;
  std::thread waiter([&] {
    poll->WaitForItemToComplete(nullptr);
    seen = held.ended;
  });
  lines.Await("N TxPollThread::WaitForItemToComplete(): test: Waiting for all items to complete");
  held.again = false;
  held.goOn.Give();
  waiter.join();
  EXPECT_TRUE(seen);
}

TEST(TxPollThread, RemovesAllItemsAndSaysSoOfEach) {
  LogLines lines;
  const Poll poll;
  poll->AddItem(IdleItem("one"));
  poll->AddItem(IdleItem("two"));
  runtime::gLogLevel = 7;
  poll->RemoveAllItems(true);
  EXPECT_THAT(lines.Of("N TxPollThread::RemoveAllItems()"),
              ElementsAre("N TxPollThread::RemoveAllItems(): test: Item one removed",
                          "N TxPollThread::RemoveAllItems(): test: Item two removed"));
}

TEST(TxPollThread, RemovesAllItemsOnceTheOneThatRunsHasEnded) {
  const LogLines lines;
  Held held;
  const Poll poll;
  poll->AddItem(held.item, {}, 0);
  poll->AddItem(IdleItem("behind"));
  ASSERT_TRUE(poll->StartScheduler());
  held.running.Await();
  runtime::gLogLevel = 7;
  bool seen = false;
  std::thread remover([&] {
    poll->RemoveAllItems(true);
    seen = held.ended;
  });
  lines.Await("N TxPollThread::WaitForItemToComplete(): test: Waiting for item to complete");
  held.goOn.Give();
  remover.join();
  EXPECT_TRUE(seen);
  poll->LogAllItems(7);
  EXPECT_THAT(lines.Of("N TxPollThread::LogAllItems()").back(), HasSubstr("test - 0 items"));
}

TEST(TxPollThread, FollowsItemsInTheLogAtItsOwnLevel) {
  LogLines lines;
  runtime::gLogLevel = 5;
  const Poll poll;
  poll->SetLogLevel(5);
  const RCPtr<TxPollItem> item = IdleItem("item");
  poll->AddItem(item, NewEvent(false, false), 90'000);
  item->SetTimeoutMS(-1, false);
  item->SetEvent(nullptr);
  item->Disable(false);
  item->Disable(false);
  item->Enable();
  item->Enable();
  poll->RemoveItem(item, false);
  EXPECT_THAT(
      lines.All(),
      ElementsAre("T TxPollThread::AddItem(): test: Item item added",
                  StartsWith("T TxPollItem::SetEvent(): test: Item item event set to 0x"),
                  "T TxPollItem::SetTimeoutMS(): test: Item item timeout set to 0:01:30.000 (timer reset)",
                  StartsWith("T TxPollItem::SetTimeoutMS(): test: Item item timeout set to INFINITE (timer at "),
                  "T TxPollItem::SetEvent(): test: Item item event set to NULL",
                  "T TxPollItem::Disable(): test: Item item disabled",
                  "T TxPollItem::Enable(): test: Item item enabled",
                  "T TxPollThread::RemoveItem(): test: Item item removed"));
}

TEST(TxPollThread, TellsInTheLogWhatItRuns) {
  LogLines lines;
  runtime::gLogLevel = 7;
  const Poll poll;
  Signal ran;
  poll->AddItem(NewItem("item", [&](bool) { return ran.Give(), false; }), {}, 0);
  ASSERT_TRUE(poll->StartScheduler());
  ran.Await();
  const std::string beginning = "N TxPollThread::Scheduler(): test: ";
  lines.Await(beginning + "Prioritized timed item item @ 2");
  lines.Await(beginning + "Waiting for item (0ms)");
  EXPECT_THAT(lines.Await(beginning + "Item item timed out(2); last run "), testing::EndsWith(" ago"));
  lines.Await(beginning + "Item item took ");
  lines.Await("N TxPollThread::LogAllItems(): test - 1 item\n");
}

TEST(TxPollThread, ListsItsItems) {
  LogLines lines;
  const Poll poll;
  const RCPtr<TxPollItem> item = IdleItem("item");
  poll->AddItem(item);
  item->Timer().Mark(runtime::TimerOperation::StartPaused);
  poll->AddItem(IdleItem("other"), NewEvent(false, false), 1'500);
  poll->LogAllItems(3);
  const std::vector<std::string> all = lines.Of("I ");
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0], "I TxPollThread::LogAllItems(): test - 2 items\n");
  EXPECT_EQ(all[1],
            "I TxPollThread::LogAllItems():    item - timeout(INFINITE)  elapsed(0ms)  paused(TRUE)  event(NULL)  "
            "disabled(0)\n");
  EXPECT_THAT(all[2], StartsWith("I TxPollThread::LogAllItems():    other - timeout(1.500s)  elapsed("));
  EXPECT_THAT(all[2], HasSubstr(")  paused(FALSE)  event(0x"));
}

TEST(TxPollThread, EndsAtItsNextWakeWhenNobodyRefersToItAnyLonger) {
  LogLines lines;
  runtime::gLogLevel = 7;
  RCPtr<TxPollThread> thread(new TxPollThread("test"));
  const std::string pointer = Pointer(thread.Get());
  const RCPtr<TxPollItem> item = IdleItem("item");
  const RCPtr<TxEvent> event = NewEvent(false, false);
  thread->AddItem(item, event, -1);
  ASSERT_TRUE(thread->StartScheduler());
  lines.Await("N TxPollThread::Scheduler(): test: Waiting for INFINITE");
  const TxEvent ended = thread->Thread().GetThreadEvent();
  thread.Reset();
  event->Set();
  lines.Await("N TxPollThread::Scheduler(): test: I'm the last reference");
  lines.Await("N TxPollThread::~TxPollThread(): test: " + pointer);
  lines.Await("I TxThreadData::Run(): Thread TxPoll-test was deleted");
  EXPECT_EQ(ended.Wait(TxEvent::kNoLimit), 0);
  EXPECT_FALSE(item->GetPollThread());
}

// Calls back for each line, on the thread that logs it.
struct LineHook : runtime::LogReceiver {
  explicit LineHook(std::function<void(const std::string&)> callback) : onLine(std::move(callback)) {}
  void Receive(const runtime::LogCall& call) override {
    const std::string line =
        std::string(1, runtime::LogLevelLetter(call.level)) + " " + call.functionName + ": " + call.Text();
    lines.push_back(line);
    onLine(line);
  }
  const std::function<void(const std::string&)> onLine;
  std::vector<std::string> lines;
};

TEST(TxPollThread, ThatHasGoneBeforeItsWorkerLooksForItIsNotFound) {
  Signal started;
  Signal goOn;
  const auto hook = std::make_shared<LineHook>([&](const std::string& line) {
    if (line != "I TxThreadData::Run(): Thread TxPoll-test started") return;
    started.Give();
    goOn.Await();
  });
  runtime::SetLogReceiver(hook);
  RCPtr<TxPollThread> thread(new TxPollThread("test"));
  const std::string pointer = Pointer(runtime::ThreadIdPointer(thread->Id()));
  ASSERT_TRUE(thread->StartScheduler());
  const TxEvent ended = thread->Thread().GetThreadEvent();
  started.Await();
  thread.Reset();
  goOn.Give();
  EXPECT_EQ(ended.Wait(TxEvent::kNoLimit), 0);
  runtime::SetLogReceiver(nullptr);
  EXPECT_THAT(hook->lines,
              testing::IsSupersetOf({"D TxPollThread::RunScheduler(): TxPollThread " + pointer + " not found",
                                     std::string("I TxThreadData::Run(): Thread TxPoll-test was deleted")}));
}

TEST(TxPollItem, ThatLooksForItsThreadWhileThatIsOnItsWayOutSaysSoAndBelongsToNone) {
  const RCPtr<TxPollItem> item = IdleItem("item");
  std::vector<bool> found;
  const auto hook = std::make_shared<LineHook>([&](const std::string& line) {
    if (!line.starts_with("N TxPollThread::~TxPollThread()")) return;
    for (int i = 0; i < 2; ++i) found.push_back(static_cast<bool>(item->GetPollThread()));
  });
  RCPtr<TxPollThread> thread(new TxPollThread("test"));
  const std::string pointer = Pointer(runtime::ThreadIdPointer(thread->Id()));
  ASSERT_TRUE(thread->AddItem(item));
  runtime::SetLogReceiver(hook);
  runtime::gLogLevel = 7;
  thread.Reset();
  runtime::gLogLevel = 0;
  runtime::SetLogReceiver(nullptr);
  EXPECT_THAT(found, ElementsAre(false, false));
  EXPECT_THAT(hook->lines,
              ElementsAre(StartsWith("N TxPollThread::~TxPollThread(): test: 0x"),
                          "W TxPollItem::GetPollThread(): item: TxPollThread " + pointer + " has been deleted"));
}

TEST(TxPollThread, EndsWhenItCannotWait) {
  LogLines lines;
  const Poll poll;
  const RCPtr<TxEvent> nothing(new TxEvent);
  poll->AddItem(IdleItem("item"), nothing, -1);
  ASSERT_TRUE(poll->StartScheduler());
  lines.Await("E TxPollThread::Scheduler(): test: Error while waiting");
  lines.Await("I TxThreadData::Run(): Thread TxPoll-test exited by callback");
}

TEST(TxPollThread, EndsWhenItsItemsHaveMoreEventsThanTheSystemWaitsFor) {
  LogLines lines;
  const Poll poll;
  for (int i = 0; i < 63; ++i) poll->AddItem(IdleItem("item"), NewEvent(false, false), -1);
  ASSERT_TRUE(poll->StartScheduler());
  lines.Await("E TxPollThread::Scheduler(): test: Error while waiting");
  lines.Await("I TxThreadData::Run(): Thread TxPoll-test exited by callback");
}

TEST(TxPollThread, IsStartedOnceForAllWhoStartItAtOnce) {
  const LogLines lines;
  for (int i = 0; i < 100; ++i) {
    const Poll poll;
    support::StartLine line(3);
    std::vector<std::thread> starters;
    for (int starter = 0; starter < 3; ++starter) {
      starters.emplace_back([&] {
        line.ArriveAndWait();
        EXPECT_TRUE(poll->StartScheduler());
      });
    }
    for (std::thread& starter : starters) starter.join();
  }
  EXPECT_THAT(lines.Of("E TxPollThread::StartScheduler()"), IsEmpty());
}

TEST(TxPollThread, StartsAtTheFirstItemWhenItIsToldTo) {
  const Poll poll;
  poll->SetAutoStart(true);
  Signal ran;
  EXPECT_TRUE(poll->Thread().IsStopped());
  EXPECT_TRUE(poll->AddItem(NewItem("item", [&](bool) { return ran.Give(), false; }), {}, 0));
  ran.Await();
}

TEST(TxPollThread, HasAnotherMutexInThePlaceOfItsOwn) {
  const TxMutex mutex;
  const Poll poll;
  poll->SetMutex(const_cast<TxMutex*>(&mutex));
  Signal ran;
  const RCPtr<TxPollItem> item = NewItem("item", [&](bool) {
    const bool free = mutex.Acquire(0);
    if (free) mutex.Release();
    EXPECT_TRUE(free);
    ran.Give();
    return false;
  });
  ASSERT_TRUE(poll->StartScheduler());
  {
    // Nothing of the thread runs while somebody holds it.
    const std::lock_guard lock(mutex);
    poll->AddItem(item);
    item->SetTimeoutMS(0, true);
  }
  ran.Await();
}

TEST(TxPollThread, ToldToWaitAlertablyIsWokenByCallsThatAreQueuedForIt) {
  LogLines lines;
  runtime::gLogLevel = 7;
  const Poll poll;
  poll->SetAlertable(true);
  Signal ran;
  poll->AddItem(NewItem("item",
                        [&](bool) {
                          platform::QueueUserAPC([](std::uintptr_t) {}, platform::GetCurrentThread(), 0);
                          ran.Give();
                          return false;
                        }),
                {}, 0);
  ASSERT_TRUE(poll->StartScheduler());
  ran.Await();
  lines.Await("N TxPollThread::Scheduler(): test: alertable signaled");
}

TEST(TxPollThread, SaysOnceThatASessionCannotBeImpersonatedAndRunsItsItemsAllTheSame) {
  LogLines lines;
  Signal ran;
  int runs = 0;
  const Poll poll;
  poll->SetSessionId(54'321);
  poll->AddItem(NewItem("item", [&](bool) { return ran.Give(), ++runs < 3; }), {}, 0);
  ASSERT_TRUE(poll->StartScheduler());
  for (int i = 0; i < 3; ++i) ran.Await();
  EXPECT_THAT(lines.Of("E TxPollThread::"),
              ElementsAre("E TxPollThread::Scheduler(): test: Failed to impersonate session 54321"));
  EXPECT_EQ(poll->SessionId(), -1);
}

TEST(TxPollItem, DisabledByItsOwnRunDoesNotWaitForItself) {
  const Poll poll;
  Signal ran;
  RCPtr<TxPollItem> item;
  int runs = 0;
  item = NewItem("item", [&](bool) {
    ++runs;
    item->Disable(true);
    ran.Give();
    return true;
  });
  poll->AddItem(item, {}, 0);
  ASSERT_TRUE(poll->StartScheduler());
  ran.Await();
  Signal other;
  poll->AddItem(NewItem("other", [&](bool) { return other.Give(), false; }), {}, 0);
  other.Await();
  EXPECT_EQ(runs, 1);
  item->Enable();
  ran.Await();
  poll->RemoveItem(item, true);
}

TEST(TxPollItem, DisabledWithAWaitRunsNoMoreWhenThatReturns) {
  const Poll poll;
  ASSERT_TRUE(poll->StartScheduler());
  for (int i = 0; i < 50; ++i) {
    std::atomic<bool> runs{false};
    Signal ran;
    bool first = true;
    const RCPtr<TxPollItem> item = NewItem("item", [&](bool) {
      runs = true;
      if (std::exchange(first, false)) ran.Give();
      runs = false;
      return true;
    });
    poll->AddItem(item, {}, 0);
    ran.Await();
    item->Disable(true);
    EXPECT_FALSE(runs);
    EXPECT_TRUE(poll->RemoveItem(item, true));
  }
}

TEST(TxPollItem, WhoseTimerIsPausedDoesNotRun) {
  const Poll poll;
  int runs = 0;
  const RCPtr<TxPollItem> item = NewItem("item", [&](bool) { return ++runs, true; });
  poll->AddItem(item, {}, 0);
  item->Timer().Mark(runtime::TimerOperation::StartPaused);
  Signal other;
  poll->AddItem(NewItem("other", [&](bool) { return other.Give(), false; }), {}, 0);
  ASSERT_TRUE(poll->StartScheduler());
  other.Await();
  EXPECT_EQ(runs, 0);
}

TEST(TxPollItem, WithoutAThreadIsFollowedInTheLogAtLevelsOfItsOwn) {
  LogLines lines;
  runtime::gLogLevel = 6;
  const RCPtr<TxPollItem> item = IdleItem("item");
  item->SetTimeoutMS(1'000, false);
  item->SetEvent(NewEvent(false, false));
  item->SetEvent(nullptr);
  item->Disable(true);
  EXPECT_THAT(lines.All(),
              ElementsAre("V TxPollItem::SetTimeoutMS(): ---: Item item timeout set to 1.000s (timer reset)",
                          StartsWith("V TxPollItem::SetEvent(): ---: Item item event set to 0x"),
                          "V TxPollItem::SetEvent(): ---: Item item event set to NULL",
                          "D TxPollItem::Disable(): ---: Item item disabled"));
}

TEST(TxPollItem, ItemsMayAddRemoveAndDisableEachOtherWhileTheyRun) {
  const Poll poll;
  Signal done;
  RCPtr<TxPollItem> second = IdleItem("second");
  RCPtr<TxPollItem> third;
  third = NewItem("third", [&](bool) { return done.Give(), false; });
  const RCPtr<TxPollItem> first = NewItem("first", [&](bool) {
    EXPECT_TRUE(poll->RemoveItem(second, true));
    EXPECT_TRUE(poll->AddItem(third));
    third->Disable(true);
    third->SetTimeoutMS(0, true);
    third->Enable();
    return false;
  });
  poll->AddItem(second, {}, 60'000);
  poll->AddItem(first, {}, 0);
  ASSERT_TRUE(poll->StartScheduler());
  done.Await();
  EXPECT_FALSE(second->GetPollThread());
}

TEST(TxPollItem, MayStopItsOwnThread) {
  LogLines lines;
  const Poll poll;
  poll->AddItem(NewItem("item",
                        [&](bool) {
                          EXPECT_FALSE(poll->Thread().Stop(TxEvent::kNoLimit));
                          return true;
                        }),
                {}, 0);
  ASSERT_TRUE(poll->StartScheduler());
  lines.Await("I TxThreadData::Run(): Thread TxPoll-test exited by callback");
}

TEST(TxPollItem, MayGetAnotherEventWhileTheOldOneIsWaitedFor) {
  LogLines lines;
  runtime::gLogLevel = 7;
  const Poll poll;
  Signal ran;
  const RCPtr<TxPollItem> item = NewItem("item", [&](bool) { return ran.Give(), false; });
  poll->AddItem(item, NewEvent(false, false), -1);
  ASSERT_TRUE(poll->StartScheduler());
  lines.Await("N TxPollThread::Scheduler(): test: Waiting for INFINITE");
  item->SetEvent(NewEvent(false, true));
  ran.Await();
}

}  // namespace
