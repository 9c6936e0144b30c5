// Second handles to an object, and handles closed by way of their process.
#include <gtest/gtest.h>

#include "platform/error.h"
#include "platform/handles.h"
#include "platform/pipes.h"
#include "platform/raii.h"
#include "platform/sections.h"
#include "tests/platform/handleSupport.h"
#include "tests/platform/programOnDrive.h"
#include "tests/support/machine.h"

namespace {

using namespace platform;
using handles::CloseIn;
using handles::NewEvent;

template <class Kind>
bool Duplicate(HandleOf<Kind> source, HandleOf<Kind>* target) {
  return DuplicateHandle(GetCurrentProcess(), source, GetCurrentProcess(), target, 0, false, DUPLICATE_SAME_ACCESS);
}

TEST(Duplicate, OfAnEventIsSetAndConsumedTogetherWithIt) {
  const UniqueEvent event = NewEvent(false);
  UniqueEvent duplicate;
  ASSERT_TRUE(Duplicate(event.get(), duplicate.put()));
  EXPECT_NE(duplicate.get(), event.get());
  ASSERT_TRUE(SetEvent(duplicate.get()));
  EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(duplicate.get(), 0), WAIT_TIMEOUT);
}

TEST(Duplicate, IsClosedForItself) {
  UniqueEvent event = NewEvent(false);
  UniqueEvent first;
  UniqueEvent second;
  ASSERT_TRUE(Duplicate(event.get(), first.put()));
  ASSERT_TRUE(Duplicate(first.get(), second.put()));
  const EventHandle closed = event.get();
  event.reset();
  EXPECT_FALSE(SetEvent(closed));
  EXPECT_TRUE(SetEvent(first.get()));
  first.reset();
  EXPECT_EQ(WaitForSingleObject(second.get(), 0), WAIT_OBJECT_0);
}

TEST(Duplicate, OfASectionMapsTheSameBytes) {
  UniqueSection section(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, nullptr));
  UniqueSection duplicate;
  ASSERT_TRUE(Duplicate(section.get(), duplicate.put()));
  section.reset();
  const UniqueView first(MapViewOfFile(duplicate.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0));
  const UniqueView second(MapViewOfFile(duplicate.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0));
  ASSERT_TRUE(first && second);
  static_cast<char*>(first.get())[4095] = 'x';
  EXPECT_EQ(static_cast<char*>(second.get())[4095], 'x');
}

TEST(Duplicate, OfAThreadIsSignalledWhenThatEnds) {
  const UniqueThread thread(CreateThread(
      nullptr, 0, [](void*) -> DWORD { return 0; }, nullptr, 0, nullptr));
  UniqueThread duplicate;
  ASSERT_TRUE(Duplicate(thread.get(), duplicate.put()));
  EXPECT_EQ(WaitForSingleObject(duplicate.get(), INFINITE), WAIT_OBJECT_0);
}

TEST(Duplicate, OfAChildIsSignalledWhenThatEnds) {
  const support::Machine machine;
  programs::Started child =
      programs::Start(programs::Put(machine, u"child.exe") + std::u16string(programs::kEndsAtOnce));
  ASSERT_TRUE(child);
  UniqueProcess duplicate;
  ASSERT_TRUE(Duplicate(child.process.get(), duplicate.put()));
  child.process.reset();
  EXPECT_EQ(WaitForSingleObject(duplicate.get(), INFINITE), WAIT_OBJECT_0);
}

TEST(Duplicate, OfThisProcessIsARealHandleToIt) {
  UniqueProcess process;
  ASSERT_TRUE(Duplicate(GetCurrentProcess(), process.put()));
  EXPECT_NE(process.get(), GetCurrentProcess());
  EXPECT_EQ(WaitForSingleObject(process.get(), 0), WAIT_TIMEOUT);
  const UniqueEvent event = NewEvent(false);
  UniqueEvent duplicate;
  EXPECT_TRUE(
      DuplicateHandle(process.get(), event.get(), process.get(), duplicate.put(), 0, false, DUPLICATE_SAME_ACCESS));
  EXPECT_TRUE(SetEvent(duplicate.get()));
}

TEST(Duplicate, OfAWriteEndKeepsThePipeWhole) {
  UniquePipe reads;
  UniquePipe writes;
  ASSERT_TRUE(CreatePipe(reads.put(), writes.put(), nullptr, 0));
  UniquePipe duplicate;
  ASSERT_TRUE(Duplicate(writes.get(), duplicate.put()));
  writes.reset();
  DWORD count = 0;
  ASSERT_TRUE(WriteFile(duplicate.get(), "x", 1, &count, nullptr));
  duplicate.reset();
  char byte = 0;
  EXPECT_TRUE(ReadFile(reads.get(), &byte, 1, &count, nullptr));
  EXPECT_EQ(byte, 'x');
  EXPECT_FALSE(ReadFile(reads.get(), &byte, 1, &count, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_BROKEN_PIPE);
}

TEST(Duplicate, OfNoOpenHandleIsNull) {
  UniqueEvent event = NewEvent(false);
  const EventHandle closed = event.get();
  event.reset();
  for (const EventHandle source : {closed, EventHandle()}) {
    EventHandle target(4);
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(Duplicate(source, &target));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(target);
  }
}

TEST(Duplicate, BetweenWhatAreNoProcessesIsNull) {
  const UniqueEvent event = NewEvent(false);
  for (const ProcessHandle noProcess : {ProcessHandle(), ProcessHandle(event.get().value())}) {
    EventHandle target(4);
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(
        DuplicateHandle(noProcess, event.get(), GetCurrentProcess(), &target, 0, false, DUPLICATE_SAME_ACCESS));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(target);
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(
        DuplicateHandle(GetCurrentProcess(), event.get(), noProcess, &target, 0, false, DUPLICATE_SAME_ACCESS));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(target);
  }
}

// What the call returns is not looked at: Windows says that it is done, Wine 8 closes the handle and says that there
// was no process to give it to. The other target's tests look. For another process Windows does the same, while Wine 8
// leaves the handle open.
TEST(CloseInProcess, ClosesAHandleOfThisOne) {
  UniqueProcess real;
  ASSERT_TRUE(Duplicate(GetCurrentProcess(), real.put()));
  for (const ProcessHandle process : {GetCurrentProcess(), real.get()}) {
    const UniqueEvent event = NewEvent(false);
    EventHandle duplicate;
    ASSERT_TRUE(Duplicate(event.get(), &duplicate));
    CloseIn(process, duplicate);
    EXPECT_FALSE(SetEvent(duplicate));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_TRUE(SetEvent(event.get()));
  }
}

TEST(CloseInProcess, OfAHandleThatIsNotOpenFails) {
  UniqueEvent event = NewEvent(false);
  const EventHandle closed = event.get();
  event.reset();
  for (const EventHandle handle : {closed, EventHandle()}) {
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(CloseIn(GetCurrentProcess(), handle));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  }
}

TEST(CloseInProcess, OfWhatIsNoProcessFails) {
  const UniqueEvent event = NewEvent(false);
  for (const ProcessHandle noProcess : {ProcessHandle(), ProcessHandle(event.get().value())}) {
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(CloseIn(noProcess, event.get()));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  }
  EXPECT_TRUE(SetEvent(event.get()));
}

}  // namespace
