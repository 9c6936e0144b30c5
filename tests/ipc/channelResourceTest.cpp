#include "lib/ipc/ipclib/ipclibLinkChannelResourceWin.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/error.h"
#include "tests/ipc/channelSupport.h"

namespace {

using namespace quill::ipc;
using namespace platform;
using ipcTests::Duplicated;
using ipcTests::IsOpen;
using ipcTests::NewEvent;
using ipcTests::OpenHandles;
using ipcTests::ServedChannel;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ChannelResource : public ipcTests::ChannelFixture {
 protected:
  // A handle that is open, and no process's.
  [[nodiscard]] ProcessHandle NoProcess() const { return ProcessHandle(event_.get().value()); }

  const ServedChannel served_{};

 private:
  const UniqueEvent event_ = NewEvent();
};

using RemoteHandle = ChannelResource;

UniqueProcess ThisProcess() { return UniqueProcess(Duplicated(GetCurrentProcess())); }

void ExpectNoHandles(const LmIpclibLinkChannelResourceWin& resources) {
  EXPECT_FALSE(resources.ownerProcess);
  EXPECT_FALSE(resources.mapping);
  EXPECT_FALSE(resources.dataReadyEvent);
  EXPECT_FALSE(resources.dataConsumedEvent);
  EXPECT_FALSE(resources.errorEvent);
  EXPECT_FALSE(resources.stopEvent);
}

TEST_F(ChannelResource, BeginsWithNoHandles) {
  const LmIpclibLinkChannelResourceWin resources(true);
  EXPECT_TRUE(resources.closeHandles);
  ExpectNoHandles(resources);
}

TEST_F(ChannelResource, ClosesItsHandlesWhenItGoes) {
  const std::size_t before = OpenHandles();
  {
    LmIpclibLinkChannelResourceWin resources(true);
    served_.Give(resources);
    EXPECT_EQ(OpenHandles(), before + 5);
  }
  EXPECT_EQ(OpenHandles(), before);
}

TEST_F(ChannelResource, ThatIsNotToCloseClosesNothing) {
  const std::size_t before = OpenHandles();
  for (const ProcessHandle owner : {ProcessHandle(), GetCurrentProcess()}) {
    LmIpclibLinkChannelResourceWin resources(false);
    resources.ownerProcess = owner;
    served_.Lend(resources);
  }
  EXPECT_EQ(OpenHandles(), before);
  EXPECT_TRUE(IsOpen(served_.mapping.get()));
}

TEST_F(ChannelResource, ClosesThoseThatItHas) {
  const std::size_t before = OpenHandles();
  {
    LmIpclibLinkChannelResourceWin resources(true);
    resources.errorEvent = NewEvent().release();
  }
  EXPECT_EQ(OpenHandles(), before);
  EXPECT_THAT(Traces(), IsEmpty());
}

TEST_F(ChannelResource, ClosesHandlesByWayOfTheirProcess) {
  const std::size_t before = OpenHandles();
  {
    LmIpclibLinkChannelResourceWin resources(true);
    resources.ownerProcess = GetCurrentProcess();
    served_.Give(resources);
  }
  EXPECT_EQ(OpenHandles(), before);
}

TEST_F(ChannelResource, OnlyTracesWhatItCannotClose) {
  {
    LmIpclibLinkChannelResourceWin resources(true);
    resources.ownerProcess = NoProcess();
    served_.Lend(resources);
  }
  const auto lines = TraceLines();
  ASSERT_THAT(lines, SizeIs(5));
  for (const auto& line : lines) {
    EXPECT_EQ(line.text, "< errorCode: 6");
    EXPECT_EQ(line.path, "lib\\ipc\\ipclib\\ipclibLinkChannelResourceWin");
    EXPECT_EQ(line.function, "CloseDuplicateHandle");
  }
  EXPECT_TRUE(IsOpen(served_.mapping.get()));
  EXPECT_TRUE(IsOpen(served_.stopEvent.get()));
}

TEST_F(ChannelResource, HoldsNothingOnceItIsClosed) {
  LmIpclibLinkChannelResourceWin resources(true);
  served_.Give(resources);
  resources.ownerProcess = GetCurrentProcess();
  const std::size_t before = OpenHandles();
  resources.close();
  EXPECT_EQ(OpenHandles(), before - 5);
  EXPECT_FALSE(resources.closeHandles);
  ExpectNoHandles(resources);
}

TEST_F(ChannelResource, ThatIsNotToCloseHoldsNothingOnceItIsClosed) {
  LmIpclibLinkChannelResourceWin resources(false);
  served_.Lend(resources);
  resources.close();
  EXPECT_FALSE(resources.mapping);
  EXPECT_FALSE(resources.stopEvent);
  EXPECT_TRUE(IsOpen(served_.mapping.get()));
}

TEST_F(ChannelResource, WithoutAnOwnerOrAHandleCannotBeClosedThroughAProcess) {
  unsigned errorCode = 4711;
  EXPECT_FALSE(CloseDuplicateHandle(nullptr, served_.stopEvent.get(), &errorCode));
  EXPECT_EQ(errorCode, ERROR_INVALID_HANDLE);
  errorCode = 4711;
  EXPECT_FALSE(CloseDuplicateHandle(GetCurrentProcess(), EventHandle(), &errorCode));
  EXPECT_EQ(errorCode, ERROR_INVALID_HANDLE);
  EXPECT_FALSE(CloseDuplicateHandle(nullptr, EventHandle(), nullptr));
  EXPECT_THAT(Traces(), ElementsAre("< errorCode: 6", "< errorCode: 6", "< errorCode: 6"));
  EXPECT_TRUE(IsOpen(served_.stopEvent.get()));
}

TEST_F(ChannelResource, TellsWhyItCannotBeClosedThroughAProcess) {
  unsigned errorCode = 4711;
  EXPECT_FALSE(CloseDuplicateHandle(NoProcess(), served_.stopEvent.get(), &errorCode));
  EXPECT_EQ(errorCode, ERROR_INVALID_HANDLE);
  EXPECT_THAT(Traces(), ElementsAre("< errorCode: 6"));
}

TEST_F(RemoteHandle, BeginsWithNone) {
  const LmIpclibRemoteHandle holder;
  EXPECT_FALSE(holder.getHandle());
}

TEST_F(RemoteHandle, IsClosedWithItsHolder) {
  const std::size_t before = OpenHandles();
  {
    LmIpclibRemoteHandle holder;
    holder.setHandle(ThisProcess().release());
    EXPECT_TRUE(IsOpen(holder.getHandle()));
  }
  EXPECT_EQ(OpenHandles(), before);
  EXPECT_THAT(Traces(), IsEmpty());
}

TEST_F(RemoteHandle, IsClosedByWayOfItsProcess) {
  const std::size_t before = OpenHandles();
  {
    LmIpclibRemoteHandle holder;
    holder.reset(GetCurrentProcess());
    EXPECT_FALSE(holder.getHandle());
    holder.setHandle(ThisProcess().release());
  }
  EXPECT_EQ(OpenHandles(), before);
}

TEST_F(RemoteHandle, ThatCannotBeClosedIsOnlyTraced) {
  const UniqueProcess process = ThisProcess();
  {
    LmIpclibRemoteHandle holder;
    holder.reset(NoProcess());
    holder.setHandle(process.get());
  }
  EXPECT_THAT(Traces(), ElementsAre("< errorCode: 6"));
  EXPECT_TRUE(IsOpen(process.get()));
}

TEST_F(RemoteHandle, IsClosedByAResetWithTheProcessBefore) {
  LmIpclibRemoteHandle holder;
  const std::size_t before = OpenHandles();
  holder.setHandle(ThisProcess().release());
  holder.reset(NoProcess());
  EXPECT_FALSE(holder.getHandle());
  EXPECT_EQ(OpenHandles(), before);
  EXPECT_THAT(Traces(), IsEmpty());
}

TEST_F(RemoteHandle, IsClosedOnceAndItsProcessForgotten) {
  LmIpclibRemoteHandle holder;
  const std::size_t before = OpenHandles();
  for (void (LmIpclibRemoteHandle::*const end)() : {&LmIpclibRemoteHandle::close, &LmIpclibRemoteHandle::clear}) {
    holder.setHandle(ThisProcess().release());
    (holder.*end)();
    EXPECT_FALSE(holder.getHandle());
    EXPECT_EQ(OpenHandles(), before);
    (holder.*end)();
    holder.reset(NoProcess());
    (holder.*end)();
    holder.setHandle(ThisProcess().release());
    (holder.*end)();
    EXPECT_EQ(OpenHandles(), before);
  }
  EXPECT_THAT(Traces(), IsEmpty());
}

TEST_F(RemoteHandle, IsClosedWhenAnotherTakesItsPlace) {
  LmIpclibRemoteHandle holder;
  holder.setHandle(ThisProcess().release());
  const std::size_t before = OpenHandles();
  holder.setHandle(ThisProcess().release());
  EXPECT_EQ(OpenHandles(), before);
  EXPECT_TRUE(IsOpen(holder.getHandle()));
}

}  // namespace
