#include "lib/ipc/ipclib/ipclibLinkChannelSharedMemWin.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "platform/error.h"
#include "tests/ipc/channelSupport.h"

namespace {

using namespace quill::ipc;
using namespace platform;
using ipcTests::Fires;
using ipcTests::IsOpen;
using ipcTests::kChannelSize;
using ipcTests::OpenHandles;
using ipcTests::ServedChannel;
using testing::ElementsAre;

class Channel : public ipcTests::ChannelFixture {
 protected:
  Channel() { served_.Lend(resources_); }

  // With the error in `errorCode_`, which holds another number before.
  LmIpcStatusCode Open() {
    errorCode_ = 4711;
    return channel_->open(resources_, errorCode_);
  }
  void ExpectAllNull() const {
    EXPECT_TRUE(channel_->getView().empty());
    EXPECT_FALSE(channel_->getDataReadyEvent());
    EXPECT_FALSE(channel_->getDataConsumedEvent());
    EXPECT_FALSE(channel_->getErrorEvent());
    EXPECT_FALSE(channel_->getStopEvent());
  }

  ServedChannel served_;
  LmIpclibLinkChannelResourceWin resources_{false};
  std::optional<LmIpclibLinkChannelSharedMemWin> channel_{std::in_place, 0x11u, 0x22u, kChannelSize};
  unsigned errorCode_ = 0;
};

TEST_F(Channel, BeginsWithNothing) { ExpectAllNull(); }

TEST_F(Channel, HandsOutTheBlockOfTheServingSide) {
  ASSERT_EQ(Open(), LmIpcStatusCode::Success);
  EXPECT_EQ(errorCode_, 0u);
  const UniqueView served(MapViewOfFile(served_.mapping.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0));
  ASSERT_TRUE(served);
  const std::span bytes(static_cast<std::byte*>(served.get()), kChannelSize);
  const std::span view = channel_->getView();
  ASSERT_EQ(view.size(), kChannelSize);
  view.front() = std::byte{1};
  bytes.back() = std::byte{2};
  EXPECT_EQ(bytes.front(), std::byte{1});
  EXPECT_EQ(view.back(), std::byte{2});
}

TEST_F(Channel, HandsOutDuplicatesOfTheEvents) {
  ASSERT_EQ(Open(), LmIpcStatusCode::Success);
  const struct {
    EventHandle served;
    EventHandle ours;
  } pairs[] = {{served_.dataReadyEvent.get(), channel_->getDataReadyEvent()},
               {served_.dataConsumedEvent.get(), channel_->getDataConsumedEvent()},
               {served_.errorEvent.get(), channel_->getErrorEvent()},
               {served_.stopEvent.get(), channel_->getStopEvent()}};
  for (const auto& pair : pairs) {
    EXPECT_NE(pair.ours, pair.served);
    EXPECT_FALSE(Fires(pair.ours));
    SetEvent(pair.served);
    for (const auto& other : pairs) EXPECT_EQ(Fires(other.ours), other.ours == pair.ours);
  }
}

TEST_F(Channel, SignalsTheEventThatItIsTold) {
  ASSERT_EQ(Open(), LmIpcStatusCode::Success);
  const auto fired = [&] {
    return std::vector<bool>{Fires(served_.dataReadyEvent.get()), Fires(served_.dataConsumedEvent.get()),
                             Fires(served_.errorEvent.get()), Fires(served_.stopEvent.get())};
  };
  channel_->setDataReady();
  EXPECT_THAT(fired(), ElementsAre(true, false, false, false));
  channel_->setDataConsumed();
  EXPECT_THAT(fired(), ElementsAre(false, true, false, false));
  channel_->setError();
  EXPECT_THAT(fired(), ElementsAre(false, false, true, false));
  channel_->setStop();
  EXPECT_THAT(fired(), ElementsAre(false, false, false, true));
}

TEST_F(Channel, ThatIsNotOpenSignalsNothing) {
  channel_->setDataReady();
  channel_->setDataConsumed();
  channel_->setError();
  channel_->setStop();
  ExpectAllNull();
}

TEST_F(Channel, DoesWithoutTheRecordOnceItIsOpen) {
  {
    LmIpclibLinkChannelResourceWin given(true);
    served_.Give(given);
    ASSERT_EQ(channel_->open(given, errorCode_), LmIpcStatusCode::Success);
  }
  channel_->getView().front() = std::byte{1};
  channel_->setStop();
  EXPECT_TRUE(Fires(served_.stopEvent.get()));
}

TEST_F(Channel, LeavesTheRecordItsHandles) {
  ASSERT_EQ(Open(), LmIpcStatusCode::Success);
  channel_.reset();
  EXPECT_TRUE(IsOpen(resources_.mapping));
  EXPECT_TRUE(IsOpen(resources_.dataReadyEvent));
  EXPECT_TRUE(IsOpen(resources_.dataConsumedEvent));
  EXPECT_TRUE(IsOpen(resources_.errorEvent));
  EXPECT_TRUE(IsOpen(resources_.stopEvent));
}

TEST_F(Channel, FailsWithoutAMappingAtOnce) {
  const std::size_t before = OpenHandles();
  resources_.mapping = nullptr;
  EXPECT_EQ(Open(), LmIpcStatusCode::Unexpected);
  EXPECT_EQ(errorCode_, ERROR_INVALID_HANDLE);
  ExpectAllNull();
  EXPECT_EQ(OpenHandles(), before);
}

TEST_F(Channel, ThatLacksAnEventKeepsWhatItHasUntilItsEnd) {
  EventHandle* const events[] = {&resources_.dataReadyEvent, &resources_.dataConsumedEvent, &resources_.errorEvent,
                                 &resources_.stopEvent};
  const std::size_t before = OpenHandles();
  for (std::size_t missing = 0; missing < std::size(events); ++missing) {
    served_.Lend(resources_);
    *events[missing] = nullptr;
    channel_.emplace(0x11u, 0x22u, kChannelSize);
    EXPECT_EQ(Open(), LmIpcStatusCode::Unexpected);
    EXPECT_EQ(errorCode_, ERROR_INVALID_HANDLE);
    EXPECT_TRUE(channel_->getView().empty());
    EXPECT_EQ(IsOpen(channel_->getDataReadyEvent()), missing > 0);
    EXPECT_EQ(IsOpen(channel_->getDataConsumedEvent()), missing > 1);
    EXPECT_EQ(IsOpen(channel_->getErrorEvent()), missing > 2);
    EXPECT_FALSE(channel_->getStopEvent());
    EXPECT_EQ(OpenHandles(), before + 1 + missing);
    channel_.reset();
    EXPECT_EQ(OpenHandles(), before);
  }
}

TEST_F(Channel, WhoseBlockCannotBeMappedKeepsNothing) {
  const std::size_t before = OpenHandles();
  resources_.mapping = SectionHandle(served_.errorEvent.get().value());
  EXPECT_EQ(Open(), LmIpcStatusCode::Unexpected);
  EXPECT_EQ(errorCode_, ERROR_INVALID_HANDLE);
  ExpectAllNull();
  EXPECT_EQ(OpenHandles(), before);
}

TEST_F(Channel, GivesEverythingBackWhenDestroyed) {
  const std::size_t before = OpenHandles();
  ASSERT_EQ(Open(), LmIpcStatusCode::Success);
  EXPECT_EQ(OpenHandles(), before + 5);
  const void* const view = channel_->getView().data();
  channel_->destroy();
  ExpectAllNull();
  EXPECT_EQ(OpenHandles(), before);
  EXPECT_FALSE(UnmapViewOfFile(view));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS);
}

TEST_F(Channel, IsDestroyedTwiceWithoutHarm) {
  ASSERT_EQ(Open(), LmIpcStatusCode::Success);
  channel_->destroy();
  const std::size_t before = OpenHandles();
  channel_->destroy();
  EXPECT_EQ(OpenHandles(), before);
  ExpectAllNull();
}

TEST_F(Channel, CanBeOpenedAgain) {
  ASSERT_EQ(Open(), LmIpcStatusCode::Success);
  channel_->destroy();
  ASSERT_EQ(Open(), LmIpcStatusCode::Success);
  EXPECT_EQ(channel_->getView().size(), kChannelSize);
}

TEST_F(Channel, UnmapsItsBlockWhenItGoes) {
  ASSERT_EQ(Open(), LmIpcStatusCode::Success);
  const void* const view = channel_->getView().data();
  channel_.reset();
  EXPECT_FALSE(UnmapViewOfFile(view));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS);
}

TEST_F(Channel, TracesItsLife) {
  EXPECT_EQ(Open(), LmIpcStatusCode::Success);
  channel_->destroy();
  channel_.reset();
  EXPECT_THAT(Traces(), ElementsAre("-", ">", "< status: Success", ">", "<", ">", ">", "<", "<"));
}

TEST_F(Channel, TracesWhyItDoesNotOpen) {
  static_cast<void>(Traces());
  resources_.stopEvent = nullptr;
  EXPECT_EQ(Open(), LmIpcStatusCode::Unexpected);
  EXPECT_THAT(Traces(), ElementsAre(">", "< errorCode: 6"));
  served_.Lend(resources_);
  resources_.mapping = SectionHandle(served_.errorEvent.get().value());
  EXPECT_EQ(Open(), LmIpcStatusCode::Unexpected);
  EXPECT_THAT(Traces(), ElementsAre(">", ">", "<", "< errorCode: 6"));
}

TEST_F(Channel, TracesTheNameOfTheOperation) {
  static_cast<void>(Open());
  channel_.reset();
  std::vector<std::string> functions;
  for (const auto& line : TraceLines()) {
    functions.push_back(line.function);
    EXPECT_EQ(line.path, "lib\\ipc\\ipclib\\ipclibLinkChannelSharedMemWin");
    EXPECT_EQ(line.level, 6);
  }
  EXPECT_THAT(functions,
              ElementsAre("LmIpclibLinkChannelSharedMemWin", "open", "open", "~LmIpclibLinkChannelSharedMemWin",
                          "destroy", "destroy", "~LmIpclibLinkChannelSharedMemWin"));
}

}  // namespace
