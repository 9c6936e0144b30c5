#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "platform/error.h"
#include "platform/handles.h"
#include "platform/raii.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

using namespace platform;

constexpr const char16_t* kMutexName = u"Lumenar Test: a mutex, \u00e4/\u20ac %41";

// "new", "exists", or the error; the handle in `mutex`.
std::string Create(UniqueMutex& mutex, const char16_t* name = kMutexName, bool initialOwner = true) {
  SetLastError(ERROR_MORE_DATA);
  const MutexHandle handle = CreateMutexW(nullptr, initialOwner, name);
  const DWORD error = GetLastError();
  mutex.reset(handle);
  if (!handle) return "failed " + std::to_string(error);
  return error == ERROR_SUCCESS ? "new" : error == ERROR_ALREADY_EXISTS ? "exists" : "error " + std::to_string(error);
}

CHILD_BODY(CreatesTheMutexWhenTold) {
  while (support::Hear() == "create") {
    UniqueMutex mutex;
    support::Say(Create(mutex));
    if (support::Hear() != "close") break;
    mutex.reset();
    support::Say("closed");
  }
  return 0;
}

TEST(Mutex, IsNewOnceAndExistsWhileAHandleIsOpen) {
  const support::Machine machine;
  UniqueMutex first;
  UniqueMutex second;
  EXPECT_EQ(Create(first), "new");
  EXPECT_EQ(Create(second), "exists");
  first.reset();
  EXPECT_EQ(Create(first), "exists");
  first.reset();
  second.reset();
  EXPECT_EQ(Create(first), "new");
}

TEST(Mutex, NamesTellUpperCaseFromLower) {
  const support::Machine machine;
  UniqueMutex upper;
  UniqueMutex lower;
  EXPECT_EQ(Create(upper, u"Lumenar Test Case"), "new");
  EXPECT_EQ(Create(lower, u"Lumenar Test case"), "new");
}

TEST(Mutex, LocalIsTheScopeOfANameWithoutOne) {
  const support::Machine machine;
  UniqueMutex plain;
  UniqueMutex scoped;
  EXPECT_EQ(Create(plain, u"Lumenar Test Scope"), "new");
  EXPECT_EQ(Create(scoped, u"Local\\Lumenar Test Scope"), "exists");
}

TEST(Mutex, WithoutANameIsAlwaysNew) {
  UniqueMutex first;
  UniqueMutex second;
  EXPECT_EQ(Create(first, nullptr), "new");
  EXPECT_EQ(Create(second, nullptr), "new");
}

TEST(Mutex, NameWithABackslashLeadsNowhere) {
  const support::Machine machine;
  UniqueMutex mutex;
  EXPECT_EQ(Create(mutex, u"no folder\\of that name"), "failed " + std::to_string(ERROR_PATH_NOT_FOUND));
}

TEST(Mutex, ExistsForOtherProcesses) {
  const support::Machine machine;
  UniqueMutex mutex;
  ASSERT_EQ(Create(mutex), "new");
  support::Process child = support::StartChild("CreatesTheMutexWhenTold");
  child.Say("create");
  EXPECT_EQ(child.Hear(), "exists");
  mutex.reset();
  EXPECT_EQ(Create(mutex), "exists");  // The child holds it.
  mutex.reset();
  child.Say("close");
  EXPECT_EQ(child.Hear(), "closed");
  EXPECT_EQ(Create(mutex), "new");
  EXPECT_EQ(child.Wait(), 0);
}

TEST(Mutex, EndsWithTheProcessThatHeldIt) {
  const support::Machine machine;
  support::Process child = support::StartChild("CreatesTheMutexWhenTold");
  child.Say("create");
  ASSERT_EQ(child.Hear(), "new");
  UniqueMutex mutex;
  EXPECT_EQ(Create(mutex), "exists");
  mutex.reset();
  child.Kill();
  child.Wait();
  EXPECT_EQ(Create(mutex), "new");
}

TEST(Mutex, OutlivesACreatorThatWasKilledWhileAnotherHoldsIt) {
  const support::Machine machine;
  support::Process creator = support::StartChild("CreatesTheMutexWhenTold");
  creator.Say("create");
  ASSERT_EQ(creator.Hear(), "new");
  support::Process holder = support::StartChild("CreatesTheMutexWhenTold");
  holder.Say("create");
  ASSERT_EQ(holder.Hear(), "exists");
  creator.Kill();
  creator.Wait();
  UniqueMutex mutex;
  EXPECT_EQ(Create(mutex), "exists");
}

TEST(Mutex, IsNewForExactlyOneOfSeveralProcessesAtOnce) {
  const support::Machine machine;
  std::vector<support::Process> children;
  for (int i = 0; i < 4; ++i) children.push_back(support::StartChild("CreatesTheMutexWhenTold"));
  for (int round = 0; round < 25; ++round) {
    for (support::Process& child : children) child.Say("create");
    int created = 0;
    int existed = 0;
    for (support::Process& child : children) {
      const std::string answer = child.Hear();
      created += answer == "new";
      existed += answer == "exists";
    }
    EXPECT_EQ(created, 1);
    EXPECT_EQ(existed, 3);
    for (support::Process& child : children) child.Say("close");
    for (support::Process& child : children) EXPECT_EQ(child.Hear(), "closed");
  }
}

TEST(Mutex, IsNewForExactlyOneOfSeveralThreadsAtOnce) {
  const support::Machine machine;
  for (int round = 0; round < 25; ++round) {
    const UniqueEvent go(CreateEventW(nullptr, true, false, nullptr));
    std::vector<UniqueMutex> mutexes(4);
    std::vector<std::string> answers(4);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < 4; ++i) {
      threads.emplace_back([&, i] {
        WaitForSingleObject(go.get(), INFINITE);
        answers[i] = Create(mutexes[i]);
      });
    }
    SetEvent(go.get());
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(std::count(answers.begin(), answers.end(), "new"), 1);
    EXPECT_EQ(std::count(answers.begin(), answers.end(), "exists"), 3);
  }
}

TEST(Mutex, IsReleasedByItsOwnerOnce) {
  const support::Machine machine;
  UniqueMutex mutex;
  ASSERT_EQ(Create(mutex), "new");
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  EXPECT_FALSE(ReleaseMutex(mutex.get()));
  EXPECT_EQ(GetLastError(), ERROR_NOT_OWNER);
}

TEST(Mutex, IsReleasedThroughAnyHandleOfItsOwner) {
  const support::Machine machine;
  UniqueMutex first;
  UniqueMutex second;
  ASSERT_EQ(Create(first), "new");
  ASSERT_EQ(Create(second), "exists");
  EXPECT_TRUE(ReleaseMutex(second.get()));
  EXPECT_FALSE(ReleaseMutex(first.get()));
}

TEST(Mutex, IsNotReleasedByAnotherThread) {
  const support::Machine machine;
  UniqueMutex mutex;
  ASSERT_EQ(Create(mutex), "new");
  bool released = true;
  DWORD error = 0;
  std::thread([&] {
    released = ReleaseMutex(mutex.get());
    error = GetLastError();
  }).join();
  EXPECT_FALSE(released);
  EXPECT_EQ(error, ERROR_NOT_OWNER);
}

TEST(Mutex, HasNoOwnerWhenNoneWasAskedForOrItExisted) {
  const support::Machine machine;
  UniqueMutex first;
  UniqueMutex second;
  ASSERT_EQ(Create(first, kMutexName, false), "new");
  ASSERT_EQ(Create(second, kMutexName, true), "exists");
  EXPECT_FALSE(ReleaseMutex(second.get()));
  EXPECT_EQ(GetLastError(), ERROR_NOT_OWNER);
}

TEST(Mutex, CanBeClosedWhileOwned) {
  const support::Machine machine;
  UniqueMutex mutex;
  ASSERT_EQ(Create(mutex), "new");
  EXPECT_TRUE(CloseHandle(mutex.release()));
  EXPECT_EQ(Create(mutex), "new");
}

}  // namespace
