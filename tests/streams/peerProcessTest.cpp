// A peer whose process ends without a word.
#include "platform/handles.h"
#include "tests/platform/programOnDrive.h"
#include "tests/streams/sharedLinkFixture.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace streams {
namespace {

constexpr const char* kEndName = "Local\\Lumenar Test: the end of a peer";

platform::UniqueEvent TheEnd() { return platform::UniqueEvent(platform::CreateEventA(nullptr, true, false, kEndName)); }

CHILD_BODY(IsAPeerUntilItsEnd) {
  platform::WaitForSingleObject(TheEnd().get(), platform::INFINITE);
  return 0;
}

class PeerProcess {
 public:
  PeerProcess() {
    std::u16string line = programs::Put(machine_, u"peer.exe") + u" --child=IsAPeerUntilItsEnd";
    platform::STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    platform::PROCESS_INFORMATION information{};
    EXPECT_TRUE(platform::CreateProcessW(nullptr, line.data(), nullptr, nullptr, false, 0, nullptr, nullptr, &startup,
                                         &information));
    process_.reset(information.hProcess);
    thread_.reset(information.hThread);
  }
  ~PeerProcess() { End(); }
  PeerProcess(const PeerProcess&) = delete;
  PeerProcess& operator=(const PeerProcess&) = delete;

  [[nodiscard]] platform::ProcessHandle Handle() const { return process_.get(); }
  void End() const {
    platform::SetEvent(end_.get());
    EXPECT_EQ(platform::WaitForSingleObject(process_.get(), platform::INFINITE), platform::WAIT_OBJECT_0);
  }

 private:
  const support::Machine machine_;
  const platform::UniqueEvent end_ = TheEnd();
  platform::UniqueProcess process_;
  platform::UniqueThread thread_;
};

TEST_F(SharedLink, WhosePeersProcessEndsGivesUpWhatIsUnsentAndTellsNobody) {
  const PeerProcess process;
  Connect(4096, process.Handle());
  ASSERT_TRUE(TakeSignal(peer->toLink.dataConsumed));
  ASSERT_EQ(Send(stream, "one"), Status::Success);
  pool::RunAll();
  ASSERT_EQ(Send(stream, "two"), Status::Success);
  pool::RunAll();
  EXPECT_EQ(link->state(), LinkState::Connected);
  EXPECT_THAT(completed, ElementsAre(Status::Success)) << "the peer has not taken the first yet";
  process.End();
  pool::RunAll();
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_THAT(completed, ElementsAre(Status::Success, Status::StreamClosed));
  EXPECT_THAT(heard.texts, ElementsAre("<end>"));
  EXPECT_FALSE(TakeSignal(peer->toLink.error));
  EXPECT_FALSE(TakeSignal(peer->toLink.stop));
}

TEST_F(SharedLink, ThatClosesWhileItsPeersProcessEndsGivesUpWhatIsUnsent) {
  const PeerProcess process;
  Connect(4096, process.Handle());
  ASSERT_EQ(Send(stream, "one"), Status::Success);
  pool::RunAll();
  ASSERT_EQ(Send(stream, "two"), Status::Success);
  link->close();
  pool::RunAll();
  EXPECT_EQ(link->state(), LinkState::Closing);
  process.End();
  pool::RunAll();
  EXPECT_EQ(link->state(), LinkState::Closed);
  EXPECT_THAT(completed, ElementsAre(Status::Success, Status::StreamClosed));
  EXPECT_FALSE(TakeSignal(peer->toLink.error));
}

}  // namespace
}  // namespace streams
