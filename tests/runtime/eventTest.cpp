#include "runtime/event.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/movedClock.h"
#include "platform/window.h"
#include "tests/support/machine.h"
#include "tests/support/meeting.h"

namespace {

using namespace std::chrono_literals;
using runtime::kWaitAlert;
using runtime::kWaitError;
using runtime::kWaitTimedOut;
using runtime::TxEvent;

std::int32_t WaitAny(const std::vector<const TxEvent*>& events, std::uint32_t timeoutMs, bool messageWait = false,
                     bool alertable = false) {
  return TxEvent::WaitAny(events, false, timeoutMs, messageWait, alertable);
}

TEST(TxEvent, IsSetResetAndWaitedFor) {
  const TxEvent event(true, false);
  EXPECT_TRUE(event.IsValid());
  EXPECT_EQ(event.Wait(0), kWaitTimedOut);
  EXPECT_TRUE(event.Set());
  EXPECT_EQ(event.Wait(TxEvent::kNoLimit), 0);
  EXPECT_EQ(event.Wait(TxEvent::kNoLimit), 0);
  EXPECT_TRUE(event.Reset());
  EXPECT_EQ(event.Wait(1), kWaitTimedOut);
}

TEST(TxEvent, OfAutoResetIsConsumedByOneWait) {
  const TxEvent event(false, true);
  EXPECT_EQ(event.Wait(0), 0);
  EXPECT_EQ(event.Wait(0), kWaitTimedOut);
}

TEST(TxEvent, WithNothingInItCanDoNothing) {
  const TxEvent event;
  EXPECT_FALSE(event.IsValid());
  EXPECT_FALSE(event.Set());
  EXPECT_FALSE(event.Reset());
  EXPECT_EQ(event.Wait(0), kWaitError);
  EXPECT_EQ(event.GetHandle(), 0u);
}

TEST(TxEvent, ThatCouldNotBeMadeIsNotValid) {
  const support::Machine machine;
  const TxEvent event(true, true, "no folder\\of that name");
  EXPECT_FALSE(event.IsValid());
  EXPECT_FALSE(event.Set());
  EXPECT_EQ(event.Wait(0), kWaitError);
}

TEST(TxEvent, SharesItsEventWithItsCopies) {
  const TxEvent event(true, false);
  const TxEvent copy(event);
  TxEvent assigned;
  assigned = event;
  EXPECT_EQ(copy.GetHandle(), event.GetHandle());
  EXPECT_TRUE(assigned.Set());
  EXPECT_EQ(copy.Wait(0), 0);
}

TEST(TxEvent, OfANameIsOneEventForAll) {
  const support::Machine machine;
  const TxEvent first(true, false, "Lumenar Test Runtime");
  const TxEvent second(true, false, "Lumenar Test Runtime");
  EXPECT_TRUE(first.Set());
  EXPECT_EQ(second.Wait(0), 0);
}

TEST(TxEvent, ClosesAHandleThatItOwns) {
  const platform::EventHandle handle = platform::CreateEventW(nullptr, true, true, nullptr);
  {
    const TxEvent event(handle, true);
    const TxEvent copy(event);
    EXPECT_EQ(copy.GetHandle(), static_cast<std::uint32_t>(handle.value()));
  }
  EXPECT_FALSE(platform::CloseHandle(handle));  // closes by hand: it is gone already
}

TEST(TxEvent, LeavesAHandleOpenThatItDoesNotOwn) {
  const platform::EventHandle handle = platform::CreateEventW(nullptr, true, true, nullptr);
  { const TxEvent event(handle, false); }
  EXPECT_TRUE(platform::CloseHandle(handle));  // closes by hand: the event had let go of it
}

TEST(WaitAny, GivesTheLowestIndexThatIsSignalled) {
  const TxEvent first(true, false);
  const TxEvent second(true, true);
  const TxEvent third(true, true);
  EXPECT_EQ(WaitAny({&first, &second, &third}, TxEvent::kNoLimit), 1);
  EXPECT_TRUE(first.Set());
  EXPECT_EQ(WaitAny({&first, &second, &third}, TxEvent::kNoLimit), 0);
}

TEST(WaitAny, TellsAnEndOfTimeFromAnError) {
  const TxEvent never(true, false);
  const TxEvent empty;
  EXPECT_EQ(WaitAny({&never}, 0), kWaitTimedOut);
  EXPECT_EQ(WaitAny({&never, &empty}, 0), kWaitError);
  EXPECT_EQ(WaitAny({&never, nullptr}, 0), kWaitError);
  EXPECT_EQ(WaitAny({}, 0), kWaitError);
}

TEST(WaitAny, FailsForMoreThanSixtyFour) {
  const TxEvent event(true, true);
  EXPECT_EQ(WaitAny(std::vector<const TxEvent*>(65, &event), 0), kWaitError);
}

TEST(WaitAny, WaitsUntilTheTimeIsOver) {
  platform::test::MovableClock clock;
  const TxEvent never(true, false);
  std::int32_t result = 0;
  std::thread waiter([&] { result = WaitAny({&never}, 600'000); });
  clock.AwaitWait(600'000);
  clock.Move(10min);
  waiter.join();
  EXPECT_EQ(result, kWaitTimedOut);
}

TEST(WaitAny, IsAlertedByAQueuedCallWhenItMayBe) {
  const TxEvent never(true, false);
  int calls = 0;
  ASSERT_TRUE(platform::QueueUserAPC([](std::uintptr_t counter) { ++*reinterpret_cast<int*>(counter); },
                                     platform::GetCurrentThread(), reinterpret_cast<std::uintptr_t>(&calls)));
  EXPECT_EQ(WaitAny({&never}, 0), kWaitTimedOut);
  EXPECT_EQ(WaitAny({&never}, TxEvent::kNoLimit, false, true), kWaitAlert);
  EXPECT_EQ(calls, 1);
}

TEST(WaitAny, GivesTheIndexBehindTheEventsForAMessage) {
  const support::Machine machine;
  const TxEvent never(true, false);
  platform::PostQuitMessage(0);
  EXPECT_EQ(WaitAny({&never, &never}, TxEvent::kNoLimit, true), 2);
  platform::MSG message{};
  EXPECT_EQ(platform::GetMessageW(&message, nullptr, 0, 0), 0);
  EXPECT_EQ(WaitAny({&never, &never}, 0, true), kWaitTimedOut);
}

TEST(WaitAny, ForAllWaitsForEachOfThem) {
  const TxEvent first(false, true);
  const TxEvent second(false, false);
  EXPECT_EQ(TxEvent::WaitAny({&first, &second}, true, 0, false, false), kWaitTimedOut);
  EXPECT_TRUE(second.Set());
  EXPECT_EQ(TxEvent::WaitAny({&first, &second}, true, 0, false, false), 0);
  EXPECT_EQ(first.Wait(0), kWaitTimedOut);
}

}  // namespace
