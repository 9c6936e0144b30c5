// The event by which a service says that it has come up.
#include "lib/ipc/ipclib/linkReadyEvent.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "lib/ipc/ipclib/ipclibTrace.h"
#include "lib/ipc/ipclib/lineSink.h"
#include "platform/error.h"
#include "tests/ipc/channelSupport.h"
#include "tests/ipc/endpoint.h"
#include "tests/support/machine.h"

namespace {

using namespace quill::ipc;
using ipcTests::kEndpoint;
using ipcTests::NewEvent;
using testing::ElementsAre;

constexpr char16_t kName[] = u"Global\\ipclibLinkReady({875AC244-B80A-420E-90A2-9C69DFD8E728})";
constexpr std::uint32_t kLong = 600'000;

// With the first name that a process looks up, the system of Windows opens the folder of names, for good.
struct FolderOfNames {
  FolderOfNames() {
    platform::UniqueEvent(platform::CreateEventW(nullptr, true, false, u"Lumenar Test: first")).reset();
  }
};

class LinkReadyEvent : private FolderOfNames, public ipcTests::ChannelFixture {
 protected:
  const support::Machine machine;
};

TEST_F(LinkReadyEvent, IsMadeUnderTheNameOfTheEndpoint) {
  const platform::UniqueEvent ours = getLinkReadyEvent(kEndpoint, nullptr);
  ASSERT_TRUE(ours);
  const platform::UniqueEvent found(platform::OpenEventW(platform::SYNCHRONIZE, false, kName));
  ASSERT_TRUE(found);
  EXPECT_FALSE(ipcTests::Fires(found.get()));
  platform::SetEvent(ours.get());
  EXPECT_TRUE(ipcTests::Fires(found.get()));
  EXPECT_TRUE(ipcTests::Fires(found.get())) << "until it is reset";
}

TEST_F(LinkReadyEvent, IsOpenedWhereThereIsOne) {
  const platform::UniqueEvent ours = getLinkReadyEvent(kEndpoint, nullptr);
  platform::SetEvent(ours.get());
  const platform::UniqueEvent second = getLinkReadyEvent(kEndpoint, nullptr);
  EXPECT_TRUE(ipcTests::Fires(second.get()));
  platform::GUID other = kEndpoint;
  ++other.Data1;
  const platform::UniqueEvent others = getLinkReadyEvent(other, nullptr);
  EXPECT_FALSE(ipcTests::Fires(others.get()));
}

TEST_F(LinkReadyEvent, ThatIsSetEndsTheWait) {
  const platform::UniqueEvent ready = getLinkReadyEvent(kEndpoint, nullptr);
  platform::SetEvent(ready.get());
  EXPECT_EQ(waitForLinkListener(kEndpoint, 0, nullptr), LmIpcStatusCode::Success);
  const platform::UniqueEvent abort = NewEvent();
  EXPECT_EQ(waitForLinkListener(kEndpoint, 0, abort.get()), LmIpcStatusCode::Success);
  EXPECT_THAT(Traces(), ElementsAre("> Waiting 0ms", "> Waiting 0ms"));
}

TEST_F(LinkReadyEvent, ThatIsNotSetInTimeEndsTheWaitToo) {
  EXPECT_EQ(waitForLinkListener(kEndpoint, 0, nullptr), LmIpcStatusCode::TimedOut);
  const platform::UniqueEvent abort = NewEvent();
  EXPECT_EQ(waitForLinkListener(kEndpoint, 1, abort.get()), LmIpcStatusCode::TimedOut);
  EXPECT_EQ(NameOf(LmIpcStatusCode::TimedOut), "StreamClosed");
  EXPECT_THAT(Traces(), ElementsAre("> Waiting 0ms", "> Waiting 1ms"));
}

TEST_F(LinkReadyEvent, IsNotWaitedForWhenTheCallerGivesUp) {
  const platform::UniqueEvent abort = NewEvent();
  platform::SetEvent(abort.get());
  EXPECT_EQ(waitForLinkListener(kEndpoint, kLong, abort.get()), LmIpcStatusCode::Abort);
}

TEST_F(LinkReadyEvent, ComesBeforeAnAbortOfTheSameTime) {
  const platform::UniqueEvent ready = getLinkReadyEvent(kEndpoint, nullptr);
  const platform::UniqueEvent abort = NewEvent();
  platform::SetEvent(ready.get());
  platform::SetEvent(abort.get());
  EXPECT_EQ(waitForLinkListener(kEndpoint, kLong, abort.get()), LmIpcStatusCode::Success);
}

TEST_F(LinkReadyEvent, IsNotWaitedForTogetherWithAHandleThatIsNone) {
  const platform::EventHandle none(0x7FFFFFF0);
  EXPECT_EQ(waitForLinkListener(kEndpoint, kLong, none), LmIpcStatusCode::InvalidParam);
}

TEST_F(LinkReadyEvent, WakesWhoeverWaits) {
  LmIpcStatusCode status = LmIpcStatusCode::Unexpected;
  const platform::UniqueEvent ready = getLinkReadyEvent(kEndpoint, nullptr);
  std::thread waiter([&] { status = waitForLinkListener(kEndpoint, kLong, nullptr); });
  platform::SetEvent(ready.get());
  waiter.join();
  EXPECT_EQ(status, LmIpcStatusCode::Success);
}

}  // namespace
