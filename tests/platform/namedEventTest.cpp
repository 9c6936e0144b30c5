#include <gtest/gtest.h>

#include <string>

#include "platform/error.h"
#include "platform/handles.h"
#include "platform/raii.h"
#include "tests/platform/handleSupport.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

using namespace platform;
using handles::Poll;

constexpr const char* kEventName = "Local\\Lumenar Test: an event. \xE4";

UniqueEvent OpenNamed(bool manualReset, bool initialState) {
  return UniqueEvent(CreateEventA(nullptr, manualReset, initialState, kEventName));
}

TEST(NamedEvent, WithoutANameIsAlwaysNew) {
  const UniqueEvent none(CreateEventA(nullptr, true, true, nullptr));
  const UniqueEvent empty(CreateEventA(nullptr, true, false, ""));
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  EXPECT_EQ(Poll(none), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(empty), WAIT_TIMEOUT);
}

TEST(NamedEvent, IsNewOnceAndKeepsItsKindAndState) {
  const support::Machine machine;
  const UniqueEvent first = OpenNamed(true, true);
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  const UniqueEvent second = OpenNamed(false, false);
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(Poll(second), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(second), WAIT_OBJECT_0);
  ASSERT_TRUE(ResetEvent(second.get()));
  EXPECT_EQ(Poll(first), WAIT_TIMEOUT);
}

TEST(NamedEvent, BeginsAnewWhenAllHandlesWereClosed) {
  const support::Machine machine;
  OpenNamed(true, true).reset();
  const UniqueEvent again = OpenNamed(false, false);
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  EXPECT_EQ(Poll(again), WAIT_TIMEOUT);
}

TEST(NamedEvent, IsOneForBothFormsOfItsName) {
  const support::Machine machine;
  const SECURITY_ATTRIBUTES security;
  const UniqueEvent wide(CreateEventW(&security, true, false, u"Global\\Lumenar Test: wide"));
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  const UniqueEvent again(CreateEventW(nullptr, true, false, u"Global\\Lumenar Test: wide"));
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  const UniqueEvent narrow(CreateEventA(nullptr, true, false, "Global\\Lumenar Test: wide"));
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  ASSERT_TRUE(SetEvent(narrow.get()));
  EXPECT_EQ(Poll(wide), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(again), WAIT_OBJECT_0);
}

TEST(NamedEvent, IsOpenedForWaitingOnlyWhereItExists) {
  const support::Machine machine;
  const char16_t name[] = u"Global\\Lumenar Test: opened";
  EXPECT_FALSE(UniqueEvent(OpenEventW(SYNCHRONIZE, false, name)));
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  UniqueEvent made(CreateEventW(nullptr, false, true, name));
  UniqueEvent opened(OpenEventW(SYNCHRONIZE, false, name));
  EXPECT_EQ(Poll(opened), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(made), WAIT_TIMEOUT) << "an auto-reset event, consumed by one wait";
  made.reset();
  EXPECT_TRUE(UniqueEvent(OpenEventW(SYNCHRONIZE, false, name))) << "somebody holds it still";
  opened.reset();
  EXPECT_FALSE(UniqueEvent(OpenEventW(SYNCHRONIZE, false, name)));
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST(NamedEvent, OfAutoResetIsConsumedByOneWaitHoweverOftenItWasSet) {
  const support::Machine machine;
  const UniqueEvent first = OpenNamed(false, false);
  const UniqueEvent second = OpenNamed(false, false);
  ASSERT_TRUE(SetEvent(first.get()));
  ASSERT_TRUE(SetEvent(second.get()));
  EXPECT_EQ(Poll(second), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(first), WAIT_TIMEOUT);
}

TEST(NamedEvent, MayBeSetAnyNumberOfTimes) {
  const support::Machine machine;
  const UniqueEvent event = OpenNamed(true, false);
  for (int i = 0; i < 10'000; ++i) ASSERT_TRUE(SetEvent(event.get()));
  EXPECT_EQ(Poll(event), WAIT_OBJECT_0);
  ASSERT_TRUE(ResetEvent(event.get()));
  EXPECT_EQ(Poll(event), WAIT_TIMEOUT);
}

TEST(NamedEvent, SharesItsNameWithNoMutex) {
  const support::Machine machine;
  const UniqueMutex mutex(CreateMutexA(nullptr, false, kEventName));
  EXPECT_FALSE(OpenNamed(true, false));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(NamedMutex, SharesItsNameWithNoEvent) {
  const support::Machine machine;
  const UniqueEvent event = OpenNamed(true, false);
  EXPECT_FALSE(CreateMutexA(nullptr, false, kEventName));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(NamedEvent, WithABackslashLeadsNowhere) {
  const support::Machine machine;
  EXPECT_FALSE(CreateEventA(nullptr, true, false, "no folder\\of that name"));
  EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

CHILD_BODY(SetsTheEventWhenTold) {
  const UniqueEvent event = OpenNamed(true, false);
  support::Say(GetLastError() == ERROR_ALREADY_EXISTS ? "exists" : "new");
  static_cast<void>(support::Hear());
  SetEvent(event.get());
  static_cast<void>(support::Hear());
  return 0;
}

TEST(NamedEvent, WakesAnotherProcess) {
  const support::Machine machine;
  const UniqueEvent event = OpenNamed(false, false);
  support::Process child = support::StartChild("SetsTheEventWhenTold");
  ASSERT_EQ(child.Hear(), "exists");
  EXPECT_EQ(Poll(event), WAIT_TIMEOUT);
  child.Say("set");
  EXPECT_EQ(WaitForSingleObject(event.get(), INFINITE), WAIT_OBJECT_0);
  child.Say("end");
  EXPECT_EQ(child.Wait(), 0);
}

TEST(NamedEvent, KeepsItsStateAfterTheProcessThatMadeIt) {
  const support::Machine machine;
  support::Process child = support::StartChild("SetsTheEventWhenTold");
  ASSERT_EQ(child.Hear(), "new");
  const UniqueEvent event = OpenNamed(false, false);
  child.Say("set");
  child.Say("end");
  ASSERT_EQ(child.Wait(), 0);
  EXPECT_EQ(Poll(event), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(event), WAIT_OBJECT_0);
}

}  // namespace
