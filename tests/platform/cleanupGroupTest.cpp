#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "tests/platform/poolSupport.h"

namespace {

using namespace pool;

// Objects of a pool of one thread in a group.
struct Members {
  Members() { SetThreadpoolCallbackCleanupGroup(one.Environment(), group.get(), nullptr); }
  void Close(bool cancelPending) { CloseThreadpoolCleanupGroupMembers(group.get(), cancelPending, nullptr); }

  OneThread one;
  UniqueCleanupGroup group{CreateThreadpoolCleanupGroup()};
};

TEST(CleanupGroup, WithoutMembersClosesAtOnce) {
  const UniqueCleanupGroup group(CreateThreadpoolCleanupGroup());
  ASSERT_TRUE(group);
  CloseThreadpoolCleanupGroupMembers(group.get(), false, nullptr);
}

TEST(CleanupGroup, ClosesItsMembersOfEveryKind) {
  Members members;
  Signal signal;
  Function fail = [](PTP_CALLBACK_INSTANCE) { ADD_FAILURE(); };
  static_cast<void>(NewWork(fail, members.one.Environment()).release());
  PTP_WAIT wait = NewWait(fail, members.one.Environment()).release();
  SetThreadpoolWait(wait, signal.Handle(), nullptr);
  const FILETIME inAnHour{.dwLowDateTime = 0x7A9B4C00, .dwHighDateTime = 0xFFFFFFF7};
  SetThreadpoolTimer(NewTimer(fail, members.one.Environment()).release(), &inAnHour, 0, 0);
  members.Close(false);
  signal.Set();
}

TEST(CleanupGroup, LetsQueuedCallbacksRunBeforeItCloses) {
  Members members;
  std::atomic<int> runs{0};
  Function count = [&](PTP_CALLBACK_INSTANCE) { ++runs; };
  PTP_WORK work = NewWork(count, members.one.Environment()).release();
  for (int i = 0; i < 100; ++i) SubmitThreadpoolWork(work);
  members.Close(false);
  EXPECT_EQ(runs, 100);
}

TEST(CleanupGroup, DropsQueuedCallbacksWhenItCancels) {
  OneThread one;
  const Gate gate(one);  // Not of the group: what is queued behind it cannot run before the group has closed.
  const UniqueCleanupGroup group(CreateThreadpoolCleanupGroup());
  SetThreadpoolCallbackCleanupGroup(one.Environment(), group.get(), nullptr);
  std::atomic<int> runs{0};
  Function count = [&](PTP_CALLBACK_INSTANCE) { ++runs; };
  PTP_WORK counting = NewWork(count, one.Environment()).release();
  for (int i = 0; i < 3; ++i) SubmitThreadpoolWork(counting);
  CloseThreadpoolCleanupGroupMembers(group.get(), true, nullptr);
  EXPECT_EQ(runs, 0);
}

TEST(CleanupGroup, WaitsForThreadsThatHaveDisassociatedThemselves) {
  for (int i = 0; i < 200; ++i) {
    Members members;
    Signal disassociated;
    Signal leave;
    bool left = false;
    Function run = [&](PTP_CALLBACK_INSTANCE instance) {
      DisassociateCurrentThreadFromCallback(instance);
      disassociated.Set();
      leave.Await();
      left = true;
    };
    UniqueWork work = NewWork(run, members.one.Environment());
    SubmitThreadpoolWork(work.get());
    disassociated.Await();
    WaitForThreadpoolWorkCallbacks(work.get(), false);
    work.reset();
    leave.Set();
    members.Close(false);
    EXPECT_TRUE(left);
  }
}

TEST(CleanupGroup, NoLongerHasMembersThatTheirOwnersClosed) {
  Members members;
  std::atomic<int> runs{0};
  Function count = [&](PTP_CALLBACK_INSTANCE) { ++runs; };
  for (int i = 0; i < 100; ++i) {
    const UniqueWork work = NewWork(count, members.one.Environment());
    SubmitThreadpoolWork(work.get());
    WaitForThreadpoolWorkCallbacks(work.get(), false);
  }
  members.Close(false);
  EXPECT_EQ(runs, 100);
}

}  // namespace
