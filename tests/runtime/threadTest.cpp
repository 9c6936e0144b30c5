#include "runtime/thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

#include "platform/format.h"
#include "platform/movedClock.h"
#include "platform/window.h"
#include "runtime/processUtils.h"
#include "runtime/textFormat.h"
#include "tests/runtime/logLines.h"
#include "tests/support/machine.h"
#include "tests/support/meeting.h"
#include "tests/support/process.h"
#include "tests/support/threads.h"

namespace {

using namespace std::chrono_literals;
using runtime::RCPtr;
using runtime::TxEvent;
using runtime::TxThread;
using runtimeTests::LogLines;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t kNoLimit = TxThread::kNoLimit;
constexpr std::int32_t kForEver = -1;

// What a worker does at each call.
using Job = std::function<bool()>;
bool RunJob(void* job) { return (*static_cast<Job*>(job))(); }

bool Start(TxThread& thread, Job& job, std::int32_t intervalMs = kForEver, bool messageWait = false) {
  return thread.Start(&RunJob, &job, intervalMs, messageWait);
}

std::string Line(const char* format, const TxThread& thread) {
  return std::string(format).replace(std::string_view(format).find("$"), 1,
                                     runtime::Format("0x%04X", thread.Data()->thread->id));
}

TEST(TxThread, CallsUntilItIsStopped) {
  support::Signal called;
  Job job = [&] {
    called.Give();
    return true;
  };
  TxThread thread("Worker");
  ASSERT_TRUE(Start(thread, job, 0));
  for (int i = 0; i < 10; ++i) called.Await();
  EXPECT_TRUE(thread.IsRunning());
  EXPECT_TRUE(thread.Stop(kNoLimit));
  EXPECT_TRUE(thread.IsStopped());
}

TEST(TxThread, StartReturnsWhenTheWorkerHasBegun) {
  Job job = [] { return true; };
  TxThread thread("Worker");
  ASSERT_TRUE(Start(thread, job));
  EXPECT_NE(thread.Data()->threadId, 0u);
  EXPECT_EQ(thread.Data()->threadId, thread.Data()->thread->id);
  EXPECT_TRUE(thread.Stop(kNoLimit));
  EXPECT_EQ(thread.Data()->threadId, 0u);
}

TEST(TxThread, RefusesToStartWithoutACallbackOrTwice) {
  Job job = [] { return true; };
  TxThread thread("Worker");
  EXPECT_FALSE(thread.Start(nullptr, nullptr, 0, false));
  ASSERT_TRUE(Start(thread, job));
  EXPECT_FALSE(Start(thread, job));
  EXPECT_TRUE(thread.Stop(kNoLimit));
}

TEST(TxThread, ThatEndedByItselfMustBeWaitedForBeforeItStartsAgain) {
  Job job = [] { return false; };
  TxThread thread("Worker");
  ASSERT_TRUE(Start(thread, job));
  ASSERT_EQ(thread.GetThreadEvent().Wait(kNoLimit), 0);
  EXPECT_FALSE(Start(thread, job));
  EXPECT_TRUE(thread.WaitForStop(kNoLimit));
  EXPECT_TRUE(Start(thread, job));
  EXPECT_TRUE(thread.WaitForStop(kNoLimit));
}

TEST(TxThread, ThatWasNeverStartedIsStopped) {
  TxThread thread("Worker");
  EXPECT_TRUE(thread.IsStopped());
  EXPECT_FALSE(thread.IsRunning());
  EXPECT_TRUE(thread.Stop(0));
  EXPECT_FALSE(thread.IsCurrentThread());
  EXPECT_FALSE(thread.GetThreadEvent().IsValid());
}

TEST(TxThread, WhoseCallbackReturnsFalseEndsAndStopIsTrueAtOnce) {
  const LogLines lines;
  Job job = [] { return false; };
  TxThread thread("Worker");
  ASSERT_TRUE(Start(thread, job));
  ASSERT_EQ(thread.GetThreadEvent().Wait(kNoLimit), 0);
  EXPECT_TRUE(thread.Stop(0));
  EXPECT_THAT(lines.Of("I TxThreadData"), ElementsAre("I TxThreadData::Run(): Thread Worker started",
                                                      "I TxThreadData::Run(): Thread Worker exited by callback"));
}

TEST(TxThread, ThatEndsByItsCallbackSetsItsStopEvent) {
  Job job = [] { return false; };
  TxThread thread("Worker");
  const TxEvent stop = thread.GetStopEvent();
  ASSERT_TRUE(Start(thread, job));
  EXPECT_EQ(stop.Wait(kNoLimit), 0);
  EXPECT_TRUE(thread.WaitForStop(kNoLimit));
}

TEST(TxThread, SaysThatItExitedWhenItWasStopped) {
  const LogLines lines;
  support::Signal called;
  Job job = [&] {
    called.Give();
    return true;
  };
  TxThread thread("Worker");
  ASSERT_TRUE(Start(thread, job));
  called.Await();
  EXPECT_TRUE(thread.Stop(kNoLimit));
  EXPECT_THAT(lines.Of("I TxThreadData"), ElementsAre("I TxThreadData::Run(): Thread Worker started",
                                                      "I TxThreadData::Run(): Thread Worker exited"));
}

TEST(TxThread, EndsWhenItsWaitFails) {
  const LogLines lines;
  TxThread thread("Worker");
  Job job = [&] {
    const platform::EventHandle event(thread.Data()->wakeEvent.GetHandle());
    platform::CloseHandle(event);  // closes by hand: the thread finds its event gone
    return true;
  };
  ASSERT_TRUE(Start(thread, job));
  EXPECT_TRUE(thread.WaitForStop(kNoLimit));
  EXPECT_EQ(thread.GetStopEvent().Wait(0), runtime::kWaitTimedOut);
  EXPECT_THAT(lines.Of("I TxThreadData::Run(): Thread Worker ex"),
              ElementsAre("I TxThreadData::Run(): Thread Worker exited"));
}

TEST(TxThread, IsCalledBeforeItsIntervalIsOverWhenItIsWoken) {
  support::Signal called;
  Job job = [&] {
    called.Give();
    return true;
  };
  TxThread thread("Worker");
  ASSERT_TRUE(Start(thread, job));
  called.Await();
  EXPECT_TRUE(thread.Wake());
  called.Await();
  EXPECT_TRUE(thread.Stop(kNoLimit));
}

TEST(TxThread, IsCalledWhenItsIntervalIsOver) {
  platform::test::MovableClock clock;
  support::Signal called;
  Job job = [&] {
    called.Give();
    return true;
  };
  TxThread thread("Worker");
  ASSERT_TRUE(Start(thread, job, 600'000));
  called.Await();
  clock.AwaitWait(600'000);
  clock.Move(10min);
  called.Await();
  EXPECT_TRUE(thread.Stop(kNoLimit));
}

TEST(TxThread, WaitsItsWholeIntervalWhateverTheCallAskedFor) {
  platform::test::MovableClock clock;
  TxThread thread("Worker");
  Job job = [&] {
    thread.Data()->nextWaitMs = 5;
    return true;
  };
  ASSERT_TRUE(Start(thread, job, 600'000));
  clock.AwaitWait(600'000);
  EXPECT_TRUE(thread.Stop(kNoLimit));
}

TEST(TxThread, StopWithoutTimeIsFalseWhileItRunsAndItEndsByItself) {
  support::Signal called;
  support::Signal go;
  Job job = [&] {
    called.Give();
    go.Await();
    return true;
  };
  TxThread thread("Worker");
  ASSERT_TRUE(Start(thread, job));
  called.Await();
  EXPECT_FALSE(thread.Stop(0));
  EXPECT_TRUE(thread.IsRunning());
  go.Give();
  EXPECT_TRUE(thread.WaitForStop(kNoLimit));
}

TEST(TxThread, MayBeStoppedFromItsOwnCallbackWhichDoesNotWaitForItself) {
  TxThread thread("Worker");
  bool stopped = true;
  bool isCurrent = false;
  Job job = [&] {
    stopped = thread.Stop(kNoLimit);
    isCurrent = thread.IsCurrentThread();
    return true;
  };
  ASSERT_TRUE(Start(thread, job));
  EXPECT_TRUE(thread.WaitForStop(kNoLimit));
  EXPECT_FALSE(stopped);
  EXPECT_TRUE(isCurrent);
  EXPECT_FALSE(thread.IsCurrentThread());
}

TEST(TxThread, IsStoppedForAllWhoWaitForIt) {
  support::Signal go;
  Job job = [&] {
    go.Await();
    return true;
  };
  TxThread thread("Worker");
  ASSERT_TRUE(Start(thread, job));
  std::vector<std::thread> stoppers;
  for (int i = 0; i < 3; ++i) stoppers.emplace_back([&] { EXPECT_TRUE(thread.Stop(kNoLimit)); });
  go.Give();
  for (std::thread& stopper : stoppers) stopper.join();
  EXPECT_TRUE(thread.IsStopped());
}

// A waiter that is slow to come back finds the next thread, which it must not take for the one that it waited for.
TEST(TxThread, MayBeStartedAgainWhileOthersComeBackFromWaitingForIt) {
  const LogLines lines;
  Job job = [] { return true; };
  TxThread thread("Worker");
  for (int i = 0; i < 300; ++i) {
    ASSERT_TRUE(Start(thread, job));
    std::vector<std::thread> waiters;
    for (int waiter = 0; waiter < 3; ++waiter) {
      waiters.emplace_back([&] { EXPECT_TRUE(thread.WaitForStop(kNoLimit)); });
    }
    EXPECT_TRUE(thread.Stop(kNoLimit));
    EXPECT_TRUE(Start(thread, job));
    EXPECT_TRUE(thread.Stop(kNoLimit));
    for (std::thread& waiter : waiters) waiter.join();
  }
  EXPECT_THAT(lines.Of("D TxThread::WaitForStop()"), IsEmpty());
}

TEST(TxThread, WhoseLastOwnerGoesWhileItIsCalledWasDeleted) {
  const LogLines lines;
  support::Signal called;
  support::Signal go;
  Job job = [&] {
    called.Give();
    go.Await();
    return true;
  };
  RCPtr<TxThread> thread(new TxThread("Worker"));
  ASSERT_TRUE(Start(*thread, job));
  called.Await();
  const TxEvent ended = thread->GetThreadEvent();
  const std::string marked = Line("D TxThread::MarkDeleted(): Setting deleted flag for thread Worker($)", *thread);
  thread.Reset();
  EXPECT_THAT(lines.Of("D TxThread::"), ElementsAre(marked));
  go.Give();
  EXPECT_EQ(ended.Wait(kNoLimit), 0);
  EXPECT_THAT(lines.Of("I TxThreadData::Run(): Thread Worker was"),
              ElementsAre("I TxThreadData::Run(): Thread Worker was deleted"));
}

TEST(TxThread, MayLoseItsLastOwnerInItsOwnCallback) {
  const LogLines lines;
  RCPtr<TxThread> thread(new TxThread("Worker"));
  support::Signal go;
  Job job = [&] {
    go.Await();
    thread.Reset();
    return true;
  };
  ASSERT_TRUE(Start(*thread, job));
  const TxEvent ended = thread->GetThreadEvent();
  go.Give();
  EXPECT_EQ(ended.Wait(kNoLimit), 0);
  EXPECT_THAT(lines.Of("I TxThreadData::Run(): Thread Worker was"), testing::SizeIs(1));
}

TEST(TxThread, ThatDiedIsReportedAsUnexpectedAndItsEventsEndUpSet) {
  const LogLines lines;
  Job job = [&]() -> bool { support::EndThisThread(); };
  TxThread thread("Worker");
  ASSERT_TRUE(Start(thread, job));
  ASSERT_EQ(thread.GetThreadEvent().Wait(kNoLimit), 0);
  const std::string report = Line("D TxThread::WaitForStop(): Thread Worker($) exited unexpectedly", thread);
  EXPECT_TRUE(thread.WaitForStop(kNoLimit));
  EXPECT_THAT(lines.Of("D TxThread::"), ElementsAre(report));
  EXPECT_EQ(thread.GetStopEvent().Wait(0), 0);
  EXPECT_EQ(thread.Data()->exitedEvent.Wait(0), 0);
  EXPECT_EQ(thread.Data()->threadId, 0u);
  EXPECT_TRUE(thread.IsStopped());
}

TEST(TxThread, IsNamedAfterTheProgramAndItself) {
  const LogLines lines;
  Job job = [] { return false; };
  TxThread thread("Worker");
  ASSERT_TRUE(Start(thread, job));
  EXPECT_TRUE(thread.WaitForStop(kNoLimit));
  const std::string program(runtime::BaseName(support::OwnPath()));
  EXPECT_THAT(lines.Of("V "), ElementsAre("V ProcessUtils::SetThreadName(): SetThreadDescription(0xFFFFFFFF, \"" +
                                          program + "!Worker\") [OK]"));
}

TEST(TxThread, WakesForMessagesWhenItMay) {
  const support::Machine machine;
  support::Signal calledAgain;
  int calls = 0;
  Job job = [&] {
    if (++calls == 1) {
      platform::PostQuitMessage(0);
      return true;
    }
    calledAgain.Give();
    return false;
  };
  TxThread thread("Worker");
  ASSERT_TRUE(Start(thread, job, kForEver, true));
  calledAgain.Await();
  EXPECT_TRUE(thread.WaitForStop(kNoLimit));
}

TEST(TxThread, JoinedByItselfThrows) {
  support::Signal go;
  TxThread thread("Worker");
  std::error_code error;
  Job job = [&] {
    go.Await();
    try {
      thread.Data()->Join();
    } catch (const std::system_error& thrown) {
      error = thrown.code();
    }
    return false;
  };
  ASSERT_TRUE(Start(thread, job));
  go.Give();
  EXPECT_TRUE(thread.WaitForStop(kNoLimit));
  EXPECT_EQ(error, std::errc::resource_deadlock_would_occur);
}

TEST(TxThread, WhoseHandleIsGoneCannotBeJoined) {
  Job job = [] { return false; };
  TxThread thread("Worker");
  ASSERT_TRUE(Start(thread, job));
  ASSERT_EQ(thread.GetThreadEvent().Wait(kNoLimit), 0);
  const platform::ThreadHandle handle = thread.Data()->thread->handle.release();
  ASSERT_TRUE(platform::CloseHandle(handle));  // closes by hand: nothing is left to join
  try {
    thread.WaitForStop(kNoLimit);
    ADD_FAILURE() << "joined";
  } catch (const std::system_error& thrown) {
    EXPECT_EQ(thrown.code(), std::errc::no_such_process);
  }
  thread.Data()->thread.reset();
}

TEST(TxThread, ThatIsNotJoinableIsSaidToBeSoWhenItsOwnerGoes) {
  const LogLines lines;
  Job job = [] { return false; };
  {
    TxThread thread("Worker");
    ASSERT_TRUE(Start(thread, job));
    ASSERT_EQ(thread.GetThreadEvent().Wait(kNoLimit), 0);
    thread.Data()->thread->id = 0;
  }
  EXPECT_THAT(lines.Of("W "), ElementsAre("W TxThreadData::Detach(): Thread Worker(0x0000) is not joinable"));
}

CHILD_BODY(StopsAThreadThatIsNotJoinable) {
  class Says : public runtime::LogReceiver {
    void Receive(const runtime::LogCall& call) override {
      if (call.level == 2) support::Say(std::string(call.functionName) + ": " + call.Text());
    }
  };
  runtime::SetLogReceiver(std::make_shared<Says>());
  Job job = [] { return false; };
  TxThread thread("Worker");
  if (!Start(thread, job)) return 0;
  thread.GetThreadEvent().Wait(kNoLimit);
  thread.Data()->thread->id = 0;
  thread.Stop(kNoLimit);
  return 0;
}

TEST(TxThread, ThatIsNotJoinableEndsTheProcessThatJoinsIt) {
  support::Process child = support::StartChild("StopsAThreadThatIsNotJoinable");
  EXPECT_EQ(child.Hear(), "TxThreadData::Join(): Thread Worker(0x0000) is not joinable");
  EXPECT_NE(child.Wait(), 0);
}

TEST(TxThread, TellsTheIdOfTheCaller) {
  const std::uint32_t own = TxThread::GetCurrentThreadId();
  EXPECT_EQ(own, platform::GetCurrentThreadId());
  std::thread([own] { EXPECT_NE(TxThread::GetCurrentThreadId(), own); }).join();
}

TEST(SetThreadName, NamesAnotherThreadByItsId) {
  const LogLines lines;
  support::Signal called;
  support::Signal go;
  std::string name;
  Job job = [&] {
    called.Give();
    go.Await();
    name = support::NameOfThisThread();
    return false;
  };
  TxThread thread("Worker");
  ASSERT_TRUE(Start(thread, job));
  called.Await();
  const std::string said = Line("V ProcessUtils::SetThreadName(): SetThreadDescription($, \"renamed\") [OK]", thread);
  runtime::ProcessUtils::SetThreadName(thread.Data()->thread->id, "renamed");
  go.Give();
  EXPECT_TRUE(thread.WaitForStop(kNoLimit));
  EXPECT_EQ(name, "renamed");
  EXPECT_THAT(lines.All(), testing::Contains(said));
}

TEST(SetThreadName, OfNoThreadFallsBackOnTheOlderWay) {
  const LogLines lines;
  runtime::ProcessUtils::SetThreadName(0, "nobody");
  EXPECT_THAT(lines.Of("D "),
              ElementsAre(testing::StartsWith("D ProcessUtils::SetThreadName(): OpenThread(0x0000) failed; (87) ")));
}

CHILD_BODY(NamesItsThreadTwice) {
  const LogLines lines;
  runtime::ProcessUtils::SetThreadName(runtime::ProcessUtils::kCallersThread, "once");
  runtime::ProcessUtils::SetThreadName(runtime::ProcessUtils::kCallersThread, "twice");
  for (const std::string& line : lines.All()) support::Say(line);
  return 0;
}

TEST(SetThreadName, SaysOnceWhetherTheSystemSupportsIt) {
  support::Process child = support::StartChild("NamesItsThreadTwice");
  EXPECT_EQ(child.Hear(), "I ProcessUtils::SetThreadName(): SetThreadDescription() is supported");
  EXPECT_EQ(child.Hear(), "V ProcessUtils::SetThreadName(): SetThreadDescription(0xFFFFFFFF, \"once\") [OK]");
  EXPECT_EQ(child.Hear(), "V ProcessUtils::SetThreadName(): SetThreadDescription(0xFFFFFFFF, \"twice\") [OK]");
  EXPECT_EQ(child.Wait(), 0);
}

TEST(GetModulePath, IsThatOfTheProgramForItsOwnCodeToo) {
  const std::string path = runtime::ProcessUtils::GetModulePath(false);
  EXPECT_EQ(runtime::BaseName(path), runtime::BaseName(support::OwnPath()));
  EXPECT_EQ(runtime::ProcessUtils::GetModulePath(true), path);
}

}  // namespace
