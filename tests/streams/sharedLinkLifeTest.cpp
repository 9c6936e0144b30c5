// What ends a link and what does not, and the pipe that ends with it.
#include "platform/error.h"
#include "platform/pipes.h"
#include "tests/streams/sharedLinkFixture.h"

namespace streams {
namespace {

TEST_F(SharedLink, IsNotClosedBeforeItHasConnected) {
  int told = 0;
  link = std::make_shared<OpenLink>([&](LmIpclibLink&) { ++told; }, [&](LmIpclibLink&) { ++told; });
  link->close();
  EXPECT_EQ(link->state(), LinkState::Init);
  ASSERT_EQ(link->connecting(), Status::Success);
  link->close();
  EXPECT_EQ(link->state(), LinkState::Connecting);
  EXPECT_EQ(told, 0);
  link->shutdown();
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_EQ(told, 2);
}

TEST_F(SharedLink, IsNotClosedWhileItShutsDown) {
  Connect();
  link->shutdown();
  ASSERT_EQ(link->state(), LinkState::ShuttingDown) << "its stream's user has not heard the end";
  EXPECT_TRUE(TakeSignal(peer->toLink.error));
  link->close();
  link->shutdown();
  EXPECT_EQ(link->state(), LinkState::ShuttingDown);
  EXPECT_FALSE(TakeSignal(peer->toLink.error)) << "the peer has been told";
  pool::RunAll();
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
}

TEST_F(SharedLink, TellsAPeerOfItsFailureAndThenOfItsEnd) {
  Connect();
  link->shutdown();
  EXPECT_TRUE(TakeSignal(peer->toLink.error));
  EXPECT_FALSE(TakeSignal(peer->toLink.stop));
  pool::RunAll();
  EXPECT_TRUE(TakeSignal(peer->toLink.stop));
  EXPECT_FALSE(TakeSignal(peer->toLink.error));
}

TEST_F(SharedLink, WhosePeerFailsBehindItsStopEndsAllTheSame) {
  Connect();
  const auto held = stream;
  platform::SetEvent(peer->fromLink.stop.get());
  platform::SetEvent(peer->fromLink.error.get());
  pool::RunAll();
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_EQ(held->state(), State::Closed);
  EXPECT_FALSE(TakeSignal(peer->toLink.stop));
  EXPECT_FALSE(TakeSignal(peer->toLink.error));
}

// A second handle to the end by which a peer watches this process.
platform::UniquePipe Watched(platform::PipeHandle pipe) {
  platform::UniquePipe second;
  const platform::ProcessHandle here = platform::GetCurrentProcess();
  EXPECT_TRUE(platform::DuplicateHandle(here, pipe, here, second.put(), 0, false, platform::DUPLICATE_SAME_ACCESS));
  return second;
}

// Sleeps until the other end is closed, and would for ever if it were not.
void ExpectBroken(const platform::UniquePipe& pipe) {
  std::byte nothing{};
  platform::DWORD read = 0;
  EXPECT_FALSE(platform::ReadFile(pipe.get(), &nothing, 1, &read, nullptr));
  EXPECT_EQ(platform::GetLastError(), platform::ERROR_BROKEN_PIPE);
}

TEST_F(SharedLink, BreaksItsPipeForANewOneAndWhenItGoes) {
  link = std::make_shared<OpenLink>();
  const auto first = Watched(link->getReadPipeReference());
  const auto second = Watched(link->getReadPipeReference());
  ExpectBroken(first);
  link.reset();
  ExpectBroken(second);
}

TEST_F(SharedLink, WaitsForNoPipeOfAPeerThatKeepsNone) {
  link = std::make_shared<OpenLink>();
  EXPECT_FALSE(link->blockOnReadClientPipe());
}

}  // namespace
}  // namespace streams
