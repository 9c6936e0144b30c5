// How a library ends.
#include <optional>
#include <thread>

#include "tests/library/libraryFixture.h"

namespace library {
namespace {

using LibraryUninit = Library;

// A wait that is over at once: who is to be cut off need not be waited for.
constexpr std::chrono::milliseconds kAtOnce{0};

TEST_F(LibraryUninit, WithoutLinksPassesThroughBothWaits) {
  Start(std::chrono::hours(1));
  EXPECT_EQ(library->uninit(), Status::Success);
  EXPECT_EQ(library->state(), LmIpclib::State::Stopping);
}

TEST_F(LibraryUninit, WithoutInitSucceeds) {
  EXPECT_EQ(library->uninit(), Status::Success);
  EXPECT_EQ(library->uninit(), Status::Success);
}

TEST_F(LibraryUninit, TwiceSucceeds) {
  Start();
  static_cast<void>(Connected());
  EXPECT_EQ(library->uninit(), Status::Success);
  EXPECT_EQ(library->uninit(), Status::Success);
}

TEST_F(LibraryUninit, ClosesLinksInOrderAndSendsWhatWaits) {
  Start(std::chrono::hours(1));
  const auto stream = Connected();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(Send(stream, "message " + std::to_string(i)), Status::Success);
  EXPECT_EQ(stream->close(kNoTimer), Status::Success);
  EXPECT_EQ(library->uninit(), Status::Success);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(service.NextMessage(), "message " + std::to_string(i));
  EXPECT_EQ(service.NextMessage(), "<end>");
  EXPECT_THAT(heard.Texts(), ElementsAre("<end>"));
  EXPECT_EQ(stream->state(), LmIpclibStream::State::Closed);
}

TEST_F(LibraryUninit, EndsStreamsThatNobodyHasClosed) {
  Start(std::chrono::hours(1));
  const auto stream = Connected();
  EXPECT_EQ(library->uninit(), Status::Success);
  EXPECT_THAT(heard.Texts(), ElementsAre("<end>"));
  EXPECT_EQ(Send(stream, "too late"), Status::InvalidState);
  EXPECT_EQ(stream->close(kNoTimer), Status::Success);
  EXPECT_THAT(library->AllLinks(), IsEmpty());
  EXPECT_THAT(library->SharedEndpoints(), IsEmpty());
}

TEST_F(LibraryUninit, ShutsDownTheLinksWhosePeersDoNotPlayAlong) {
  service.closesInTurn = false;
  Start(kAtOnce);
  const auto stream = Connected();
  EXPECT_EQ(stream->close(kNoTimer), Status::Success);
  // Whether the end of the stream was heard before the second wait was over, is a matter of speed; and so is the
  // status.
  static_cast<void>(library->uninit());
  EXPECT_EQ(stream->state(), LmIpclibStream::State::Closed);
  EXPECT_THAT(library->AllLinks(), IsEmpty());
}

TEST_F(LibraryUninit, WaitsASecondTimeForThoseItHasShutDown) {
  service.closesInTurn = false;
  Start(2s);  // The first wait takes all of it. The second is for one callback.
  const auto stream = Connected();
  EXPECT_EQ(stream->close(kNoTimer), Status::Success);
  support::Signal within;
  heard.first = [&] { within.Give(); };
  EXPECT_EQ(library->uninit(), Status::Success);
  within.Await();
  EXPECT_THAT(heard.Texts(), ElementsAre("<end>"));
}

TEST_F(LibraryUninit, CompletesWhatAPeerNeverTakes) {
  service.isThere = false;
  Start(kAtOnce);
  const auto stream = Connected();
  std::mutex mutex;
  std::vector<Status> completed;
  const std::string text = "nobody reads this";
  ASSERT_TRUE(stream->send({}, static_cast<std::uint32_t>(text.size()), text.data(),
                           [&](Status status, const std::shared_ptr<LmIpclibMsg>&) {
                             const std::lock_guard lock(mutex);
                             completed.push_back(status);
                           }));
  static_cast<void>(library->uninit());
  EXPECT_THAT(completed, ElementsAre(Status::StreamClosed));
}

// The callback of a user that does not return: both waits are over, and the link is still there.
class LibraryUninitWithABusyUser : public Library {
 public:
  // What happens between the cut and the end of uninit is told by `then`, while the callback is kept.
  Status Uninit(const std::function<void()>& then) {
    support::Signal within;
    support::Signal returns;
    heard.first = [&] {
      within.Give();
      returns.Await();
    };
    service.Send("hold this");
    within.Await();
    const auto cut = Watch::For("abandon", ">");
    std::optional<Status> status;
    std::thread ends([&] { status = library->uninit(); });
    cut->Await();
    then();
    returns.Give();
    ends.join();
    return *status;
  }
};

TEST_F(LibraryUninitWithABusyUser, TimesOutAndCutsTheRestOff) {
  Start(kAtOnce);
  auto stream = Connected();
  const std::weak_ptr<LmIpclibLink> link = NewestLink();
  const std::weak_ptr<LmIpclibStream> last = stream;
  EXPECT_EQ(Uninit([&] { EXPECT_THAT(library->AllLinks(), IsEmpty()); }), Status::TimedOut);
  EXPECT_EQ(stream->state(), LmIpclibStream::State::Closed);
  EXPECT_EQ(heard.Texts().front(), "hold this");
  stream.reset();
  EXPECT_TRUE(link.expired());
  EXPECT_TRUE(last.expired());
}

TEST_F(LibraryUninitWithABusyUser, RefusesNewStreamsMeanwhile) {
  Start(kAtOnce);
  const auto stream = Connected();
  EXPECT_EQ(Uninit([&] { EXPECT_EQ(Connect().status(), Status::InvalidState); }), Status::TimedOut);
}

// The library has its tasks still, unlike behind its end.
TEST_F(LibraryUninit, RefusesNewStreamsWhileItWaitsForItsLinks) {
  service.closesInTurn = false;
  Start(std::chrono::hours(1));
  const auto stream = Connected();
  EXPECT_EQ(stream->close(kNoTimer), Status::Success);
  EXPECT_EQ(service.NextMessage(), "<end>");
  const auto waiting = Watch::For("uninit", "- Waiting for deferred stops");
  Status ended = Status::Unexpected;
  std::thread ends([&] { ended = library->uninit(); });
  waiting->Await();
  for (const StreamFlags flags : {kShared, kOwnLink}) EXPECT_EQ(Connect(flags).status(), Status::InvalidState);
  EXPECT_EQ(service.Waits().size(), 3u) << "it is awaited before";
  EXPECT_EQ(service.Asked().size(), 1u);
  EXPECT_EQ(library->AllLinks().size(), 1u);
  NewestLink()->shutdown();
  ends.join();
  EXPECT_EQ(ended, Status::Success);
}

TEST_F(LibraryUninit, EndsAConnectThatIsUnderWay) {
  Start(kAtOnce);
  HeldAnswer answer(service);
  Status connected = Status::Success;
  Status waited = Status::Success;
  std::thread connects([&] { connected = Connect().status(); });
  answer.AwaitQuestion();
  const auto waiting = Watch::For("connectWait", ">");
  std::thread waits([&] { waited = Connect().status(); });
  waiting->Await();
  EXPECT_EQ(library->uninit(), Status::Success) << "a link that is only being made is given up at once";
  answer.LetGo();
  connects.join();
  waits.join();
  EXPECT_EQ(connected, Status::InvalidState);
  EXPECT_EQ(waited, Status::InvalidState);
}

// Who is about to connect holds the executor. The end of the tasks must not wait for that, nor for who holds a link.
TEST_F(LibraryUninit, EndsTheTasksOfALinkThatSomebodyHoldsWhileAnotherIsMade) {
  Start(kAtOnce);
  auto stream = Connected();
  auto link = NewestLink();
  HeldAnswer answer(service);
  std::thread connects([&] { EXPECT_EQ(Connect(kOwnLink).status(), Status::InvalidState); });
  answer.AwaitQuestion();
  static_cast<void>(library->uninit());
  stream.reset();
  link.reset();
  answer.LetGo();
  connects.join();
}

TEST(LibraryThatHasEnded, LeavesNoHandleOpen) {
  const auto whole = [] {
    Service service;
    Hearer heard;
    const auto library = std::make_shared<OpenLibrary>();
    ASSERT_EQ(library->init(0), Status::Success);
    const auto stream = library->connect(kEndpoint, u"talk", kShared, heard.Callback(), 0, nullptr);
    ASSERT_TRUE(stream);
    EXPECT_EQ((*stream)->completeConnect(), Status::Success);
    EXPECT_EQ(Library::Send(*stream, "x"), Status::Success);
    EXPECT_EQ((*stream)->close(kNoTimer), Status::Success);
    EXPECT_EQ(library->uninit(), Status::Success);
  };
  EXPECT_TRUE(ipcTests::LeavesNoHandleOpen(whole));
}

TEST_F(LibraryUninit, ThatIsMissingIsMadeUpForByTheEndOfTheLibrary) {
  Start();
  const auto stream = Connected();
  const auto closing = Connected();
  service.closesInTurn = false;
  EXPECT_EQ(closing->close(kNoTimer), Status::Success);
  const std::weak_ptr<LmIpclibLink> link = NewestLink();
  library = std::make_shared<OpenLibrary>();
  EXPECT_TRUE(link.expired());
  EXPECT_EQ(stream->state(), LmIpclibStream::State::Closed);
  EXPECT_EQ(closing->state(), LmIpclibStream::State::Closed);
}

TEST_F(LibraryUninit, RemovesTheSinksOfTheTraces) {
  Start();
  const auto sink = std::make_shared<quill::log::LineSink>();
  ipcTrace->attach(sink);
  EXPECT_EQ(library->uninit(), Status::Success);
  for (const auto& logger :
       {ipcTrace->lib(), ipcTrace->listener(), ipcTrace->link(), ipcTrace->stream(), ipcTrace->msg()}) {
    EXPECT_EQ(logger->effectiveLevel(), -1);
  }
  EXPECT_EQ(sink.use_count(), 1);
}

class CountsItsClose final : public LmIpclibLinkListener {
 public:
  using LmIpclibLinkListener::LmIpclibLinkListener;
  LmIpcStatusCode close() override {
    ++closed;
    return Status::Success;
  }
  int closed = 0;
};

TEST_F(LibraryUninit, ClosesListeners) {
  Start();
  const auto linkListener = std::make_shared<CountsItsClose>(kEndpoint, nullptr);
  const auto listener =
      std::make_shared<LmIpclibListener>(kEndpoint, LmIpclibListener::State::Accepting,
                                         LmIpclibListener::LinkListeners{linkListener}, [](LmIpclibListener&) {});
  library->Listen(listener);
  EXPECT_EQ(library->uninit(), Status::Success);
  EXPECT_EQ(listener->state(), LmIpclibListener::State::Closed);
  EXPECT_EQ(linkListener->closed, 1);
  EXPECT_EQ(listener.use_count(), 1) << "the table is cleared";
}

// The traces of the library itself and its tasks: "operation text".
std::vector<std::string> Lines(quill::log::LineSink& sink, std::string_view unit) {
  std::vector<std::string> lines;
  for (const auto& line : sink.Take()) {
    if (line.path == unit) lines.push_back(line.function + ' ' + line.text);
  }
  return lines;
}
constexpr std::string_view kLibrary = "lib\\ipc\\ipclib\\ipclib";
constexpr std::string_view kTask = "lib\\ipc\\ipclib\\ipclibTaskWin";

class LibraryTraces : public Library {
 public:
  LibraryTraces() {
    ipcTrace->lib()->addSink(sink);
    ipcTrace->lib()->setLevel(kTraceLevel);
  }
  std::shared_ptr<quill::log::LineSink> sink = std::make_shared<quill::log::LineSink>();
};

TEST_F(LibraryTraces, TellOfInit) {
  EXPECT_EQ(library->init(0), Status::Success);
  EXPECT_EQ(library->init(0), Status::InvalidState);
  EXPECT_THAT(Lines(*sink, kLibrary),
              ElementsAre("init > state: Init", "init < state: Started, status: Success", "init > state: Started",
                          "init < state: Started, status: InvalidState"));
}

TEST_F(LibraryTraces, TellOfConnect) {
  EXPECT_EQ(library->init(0), Status::Success);
  static_cast<void>(sink->Take());
  service.answers = [] { return Status::AccessDenied; };
  EXPECT_EQ(Connect().status(), Status::AccessDenied);
  const auto stop = Lines(*sink, kLibrary);
  ASSERT_EQ(stop.size(), 6u);
  EXPECT_EQ(stop[0], "connect > state: Started, ep: {11223344-5566-7788-0102-030405060708}, streamName: talk");
  EXPECT_THAT(stop[1], Matches("removeSharedLink > state: Started, linkId: 0x4c[0-9a-f]+"));
  EXPECT_EQ(stop[2], "removeSharedLink < state: Started");
  EXPECT_THAT(stop[3], Matches("removeLink > state: Started, linkId: 0x4c[0-9a-f]+"));
  EXPECT_EQ(stop[4], "removeLink < state: Started");
  EXPECT_EQ(stop[5], "connect < state: Started, status: AccessDenied");
}

TEST_F(LibraryTraces, TellNamesAsText) {
  static_cast<void>(
      library->connect(kEndpoint, u"gr\u00FC\u00DFe \U0001F600 \xD800", StreamFlags(0x18), nullptr, 0, nullptr));
  EXPECT_THAT(Lines(*sink, kLibrary),
              ElementsAre("connect > state: Init, ep: {11223344-5566-7788-0102-030405060708}, streamName: "
                          "gr\xC3\xBC\xC3\x9F"
                          "e \xF0\x9F\x98\x80 \xEF\xBF\xBD",
                          "connect < state: Init, status: NotImplemented"));
}

TEST_F(LibraryTraces, TellOfUninitUpToTheLast) {
  EXPECT_EQ(library->init(0), Status::Success);
  static_cast<void>(sink->Take());
  EXPECT_EQ(library->uninit(), Status::Success);
  EXPECT_THAT(Lines(*sink, kLibrary),
              ElementsAre("uninit > state: Started", "uninit - Closing listeners", "uninit - Closing links",
                          "uninit - Waiting for deferred stops", "uninit - Shutting down links",
                          "uninit - Waiting for deferred stops"))
      << "the last one comes when the sinks are gone";
}

TEST_F(LibraryTraces, TellOfTheTasks) {
  EXPECT_EQ(library->init(0), Status::Success);
  EXPECT_THAT(Lines(*sink, kTask), ElementsAre("init > ", "init < status: Success"));
  EXPECT_EQ(library->uninit(), Status::Success);
  EXPECT_THAT(Lines(*sink, kTask), ElementsAre("uninit > ", "uninit Waiting for group callbacks to complete",
                                               "uninit Destroying threadpool environment", "uninit < "));
}

}  // namespace
}  // namespace library
