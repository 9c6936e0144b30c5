// Who gets a stream, on which link.
#include <thread>

#include "tests/library/libraryFixture.h"

namespace library {

static bool operator==(const WaitAsked& left, const WaitAsked& right) {
  return left.endpoint == right.endpoint && left.timeoutMs == right.timeoutMs && left.abortEvent == right.abortEvent;
}

namespace {

using LibraryInit = Library;
using LibraryFlags = Library;
using LibraryConnect = Library;
using LibraryLinks = Library;

TEST_F(LibraryInit, StartsTheLibrary) {
  EXPECT_EQ(library->state(), LmIpclib::State::Init);
  EXPECT_EQ(library->init(7), Status::Success);
  EXPECT_EQ(library->state(), LmIpclib::State::Started);
}

TEST_F(LibraryInit, TwiceIsRefusedAndTheLibraryGoesOnWorking) {
  Start();
  EXPECT_EQ(library->init(0), Status::InvalidState);
  EXPECT_EQ(library->state(), LmIpclib::State::Started);
  EXPECT_TRUE(Connect());
}

TEST_F(LibraryInit, IsRefusedBehindUninit) {
  Start();
  EXPECT_EQ(library->uninit(), Status::Success);
  EXPECT_EQ(library->init(0), Status::InvalidState);
  EXPECT_EQ(library->state(), LmIpclib::State::Stopping);
}

struct FlagsCase {
  std::uint32_t flags;
  Status status;
};

TEST_F(LibraryFlags, OutOfTheRulesAreRefusedInTheOrderOfTheRules) {
  Start();
  const FlagsCase cases[] = {
      {0x00, Status::InvalidParam},    // Neither 0x08 nor 0x10.
      {0x01, Status::InvalidParam},    //
      {0x03, Status::InvalidParam},    //
      {0x04, Status::InvalidParam},    //
      {0x07, Status::InvalidParam},    //
      {0x101, Status::InvalidParam},   //
      {0x08, Status::InvalidParam},    // No mode.
      {0x108, Status::InvalidParam},   //
      {0x10, Status::NotImplemented},  // 0x10, which asks for no mode.
      {0x18, Status::NotImplemented},  //
      {0x13, Status::NotImplemented},  //
      {0x1B, Status::NotImplemented},  //
      {0x0C, Status::NotImplemented},  // 0x04.
      {0x0D, Status::NotImplemented},  //
      {0x0F, Status::NotImplemented},  // Ahead of the two modes that exclude each other.
      {0x0B, Status::InvalidParam},    // Those.
      {0x10B, Status::InvalidParam},   //
  };
  for (const auto& [flags, status] : cases) {
    EXPECT_EQ(Connect(StreamFlags(flags)).status(), status) << "flags " << flags;
  }
  EXPECT_THAT(service.Waits(), IsEmpty()) << "nobody is waited for";
  EXPECT_THAT(service.Asked(), IsEmpty());
  EXPECT_THAT(library->AllLinks(), IsEmpty());
}

TEST_F(LibraryFlags, OfTheProgramPass) {
  for (const std::uint32_t flags : {9U, 265U}) {
    Start();
    EXPECT_TRUE(Connected(StreamFlags(flags))) << flags;
    EXPECT_EQ(service.Asked().back(), StreamFlags(flags));
    EXPECT_EQ(library->uninit(), Status::Success);
  }
}

TEST_F(LibraryFlags, AreCheckedBeforeTheState) {
  EXPECT_EQ(Connect(StreamFlags(1)).status(), Status::InvalidParam);
  EXPECT_EQ(Connect(StreamFlags(0x18)).status(), Status::NotImplemented);
}

TEST_F(LibraryFlags, ThatAreTheLinksReachItWithTheMark) {
  Start();
  std::vector<std::uint32_t> seen;
  for (const std::uint32_t flags : {9U, 265U, 0x12347FCAU}) {
    const auto stream = Connect(StreamFlags(flags));
    ASSERT_TRUE(stream) << flags;
    seen.push_back(NewestLink()->flags());
    (*stream)->shutdown();
    service.AwaitLinksClosed();
  }
  EXPECT_THAT(seen, ElementsAre(0x00018009, 0x00018109, 0x0001810A)) << "with the peer's own, in the high half";
}

TEST_F(LibraryConnect, BeforeInitIsRefused) {
  EXPECT_EQ(Connect().status(), Status::InvalidState);
  EXPECT_THAT(service.Waits(), IsEmpty());
}

TEST_F(LibraryConnect, BehindUninitIsRefused) {
  Start();
  EXPECT_EQ(library->uninit(), Status::Success);
  EXPECT_EQ(Connect().status(), Status::InvalidState);
  EXPECT_THAT(service.Asked(), IsEmpty());
}

TEST_F(LibraryConnect, WaitsForTheServiceAsItIsTold) {
  Start();
  const platform::UniqueEvent abort(platform::CreateEventW(nullptr, true, false, nullptr));
  EXPECT_TRUE(library->connect(kOtherEndpoint, u"n", kShared, heard.Callback(), 1234, abort.get()));
  EXPECT_THAT(service.Waits(), ElementsAre(WaitAsked{kOtherEndpoint, 1234, abort.get()}));
  EXPECT_THAT(service.Names(), ElementsAre(u"n"));
}

TEST_F(LibraryConnect, ThatIsAbortedAsksNobody) {
  Start();
  service.listens = Status::Abort;
  EXPECT_EQ(Connect().status(), Status::Abort);
  EXPECT_THAT(service.Asked(), IsEmpty());
  EXPECT_THAT(library->AllLinks(), IsEmpty());
}

TEST_F(LibraryConnect, GoesOnWhateverElseTheWaitComesTo) {
  Start();
  for (const Status listens : {Status::Success, Status::TimedOut, Status::Unexpected, Status::InvalidParam}) {
    service.listens = listens;
    const auto stream = Connect(kOwnLink);
    EXPECT_TRUE(stream);
  }
}

TEST_F(LibraryConnect, WithoutAKindOfLinkIsNotImplemented) {
  Start();
  service.hasLinks = false;
  EXPECT_EQ(Connect().status(), Status::NotImplemented);
  EXPECT_THAT(service.Asked(), IsEmpty());
  EXPECT_THAT(library->SharedEndpoints(), IsEmpty());
}

TEST_F(LibraryConnect, ThatTheServiceRefusesEndsWithItsStatusAndLeavesNothing) {
  Start();
  service.answers = [] { return Status::AccessDenied; };
  EXPECT_EQ(Connect().status(), Status::AccessDenied);
  EXPECT_THAT(library->AllLinks(), IsEmpty());
  EXPECT_THAT(library->SharedEndpoints(), IsEmpty());
  service.answers = {};
  EXPECT_TRUE(Connect()) << "the next one has a link of its own";
  EXPECT_EQ(service.Asked().size(), 2u);
}

TEST_F(LibraryConnect, ThatNoConnectorSuitsFindsNothing) {
  Start();
  service.isReachable = false;
  EXPECT_EQ(Connect().status(), Status::NotFound);
  EXPECT_THAT(library->AllLinks(), IsEmpty());
}

TEST_F(LibraryConnect, GivesAStreamThatHearsNothingBeforeItIsComplete) {
  Start();
  const auto stream = Connect();
  ASSERT_TRUE(stream);
  EXPECT_EQ((*stream)->streamName(), u"talk");
  EXPECT_EQ((*stream)->endpoint(), kEndpoint);
  service.Send("early");
  EXPECT_EQ(Send(*stream, "out"), Status::Success);
  EXPECT_EQ(service.NextMessage(), "out");
  EXPECT_THAT(heard.Texts(), IsEmpty());
  EXPECT_EQ((*stream)->completeConnect(), Status::Success);
  heard.came.Await();
  EXPECT_THAT(heard.Texts(), ElementsAre("early"));
}

TEST_F(LibraryLinks, AreSharedByStreamsToOneEndpoint) {
  Start();
  const auto first = Connected();
  const auto second = Connected();
  EXPECT_EQ(service.Asked().size(), 1u);
  EXPECT_EQ(service.Opened(), 1u);
  EXPECT_EQ(library->AllLinks().size(), 1u);
  EXPECT_THAT(library->SharedEndpoints(), ElementsAre(kEndpoint));
  EXPECT_EQ(Send(first, "one"), Status::Success);
  EXPECT_EQ(service.NextMessage(), "one");
  EXPECT_EQ(Send(second, "two"), Status::Success);
  EXPECT_EQ(service.NextMessage(), "two");
}

TEST_F(LibraryLinks, OfDifferentEndpointsAreNotShared) {
  Start();
  const auto first = Connected(kShared, kOtherEndpoint);
  const auto second = Connected(kShared, kEndpoint);
  EXPECT_EQ(service.Asked().size(), 2u);
  EXPECT_THAT(library->SharedEndpoints(), ElementsAre(kEndpoint, kOtherEndpoint)) << "in the order of their bytes";
  const auto links = library->AllLinks();
  ASSERT_EQ(links.size(), 2u);
  EXPECT_LT(links[0]->linkId(), links[1]->linkId());
}

// The first number is little-endian, so its last byte is its highest.
TEST_F(LibraryLinks, AreInTheOrderOfTheirEndpointsBytes) {
  Start();
  const platform::GUID later{0x00000002, 0, 0, {}};
  const platform::GUID sooner{0x01000000, 0, 0, {}};
  const auto first = Connected(kShared, later);
  const auto second = Connected(kShared, sooner);
  EXPECT_THAT(library->SharedEndpoints(), ElementsAre(sooner, later));
}

TEST_F(LibraryLinks, OfExclusiveStreamsAreTheirOwn) {
  Start();
  const auto first = Connected(kOwnLink);
  const auto second = Connected(kOwnLink);
  const auto third = Connected(kShared);
  EXPECT_EQ(service.Asked().size(), 3u);
  EXPECT_EQ(library->AllLinks().size(), 3u);
  EXPECT_THAT(library->SharedEndpoints(), ElementsAre(kEndpoint));
  EXPECT_EQ(service.Opened(), 0u);
}

TEST_F(LibraryLinks, GoWithTheirLastStream) {
  Start();
  const auto stream = Connected();
  EXPECT_EQ(stream->close(kNoTimer), Status::Success);
  heard.came.Await();
  service.AwaitLinksClosed();
  EXPECT_EQ(library->uninit(), Status::Success);
  EXPECT_THAT(library->AllLinks(), IsEmpty());
  EXPECT_THAT(heard.Texts(), ElementsAre("<end>"));
}

TEST_F(LibraryLinks, ThatStopAreNotShared) {
  service.closesInTurn = false;
  Start();
  const auto first = Connected();
  const auto stopping = NewestLink();
  EXPECT_EQ(first->close(kNoTimer), Status::Success);
  stopping->close();
  EXPECT_THAT(library->SharedEndpoints(), IsEmpty());
  EXPECT_EQ(library->AllLinks().size(), 1u) << "it is alive still";
  const auto second = Connected();
  EXPECT_NE(NewestLink(), stopping);
  EXPECT_EQ(service.Asked().size(), 2u);
  stopping->shutdown();
}

// Looks like a mistake, and is how it has always been.
TEST_F(LibraryLinks, ThatHaveEndedTakeAYoungerOneOfTheirEndpointWithThem) {
  service.closesInTurn = false;
  Start();
  const auto first = Connected();
  const auto stopping = NewestLink();
  EXPECT_EQ(first->close(kNoTimer), Status::Success);
  stopping->close();
  const auto second = Connected();
  ASSERT_THAT(library->SharedEndpoints(), ElementsAre(kEndpoint));

  const auto removed = Watch::For("removeLink", "<");
  stopping->shutdown();
  removed->Await();
  EXPECT_THAT(library->SharedEndpoints(), IsEmpty());
  EXPECT_EQ(library->AllLinks().size(), 1u) << "the younger one is alive";
  EXPECT_EQ(service.NextMessage(), "<end>") << "of the first stream";
  EXPECT_EQ(Send(second, "still here"), Status::Success);
  EXPECT_EQ(service.NextMessage(), "still here");
  const auto third = Connected();
  EXPECT_EQ(service.Asked().size(), 3u) << "so the third makes its own";
}

// The same again: every link that a connect has made counts as shared, as it stops and when it has ended.
TEST_F(LibraryLinks, OfExclusiveStreamsTakeTheSharedOneOfTheirEndpointWithThemTwice) {
  service.closesInTurn = false;
  Start();
  const auto before = Connected();
  const auto exclusive = Connected(kOwnLink);
  const auto stopping = NewestLink();
  const auto elsewhere = Connected(kShared, kOtherEndpoint);
  EXPECT_EQ(exclusive->close(kNoTimer), Status::Success);
  stopping->close();
  EXPECT_THAT(library->SharedEndpoints(), ElementsAre(kOtherEndpoint));
  const auto after = Connected();
  ASSERT_THAT(library->SharedEndpoints(), ElementsAre(kEndpoint, kOtherEndpoint));
  EXPECT_EQ(service.Asked().size(), 4u) << "the younger one has made its own";

  const auto removed = Watch::For("removeLink", "<");
  stopping->shutdown();
  removed->Await();
  EXPECT_THAT(library->SharedEndpoints(), ElementsAre(kOtherEndpoint));
  EXPECT_EQ(library->AllLinks().size(), 3u);
  for (const auto& stream : {before, after}) EXPECT_EQ(stream->state(), LmIpclibStream::State::Connected);
}

TEST_F(LibraryLinks, OnWhichAStreamIsRefusedAreTriedAgain) {
  Start();
  const auto first = Connected();
  int refusals = 3;
  service.opens = [&] { return --refusals >= 0 ? Status::AccessDenied : Status::Success; };
  const auto second = Connected();
  EXPECT_EQ(service.Opened(), 4u);
  EXPECT_EQ(service.Asked().size(), 1u);
}

TEST_F(LibraryLinks, ThatEndWhileAStreamOpensAreReplaced) {
  Start();
  const auto first = Connected();
  const auto ending = NewestLink();
  // Which may still be at it when the test is through.
  service.opens = [ending] {
    ending->shutdown();
    return Status::AccessDenied;
  };
  const auto second = Connected();
  ASSERT_NE(second, nullptr);
  EXPECT_NE(NewestLink(), ending);
  EXPECT_EQ(service.Asked().size(), 2u);
}

TEST_F(LibraryLinks, InTheMakingAreWaitedForByTheOthers) {
  Start();
  HeldAnswer answer(service);
  const auto waiting = Watch::For("connectWait", ">");
  LmIpclib::Stream first;
  LmIpclib::Stream second;
  std::thread makes([&] { first = Connected(); });
  answer.AwaitQuestion();
  std::thread waits([&] { second = Connected(); });
  waiting->Await();
  answer.LetGo();
  makes.join();
  waits.join();
  ASSERT_TRUE(first && second);
  EXPECT_EQ(service.Asked().size(), 1u);
  EXPECT_EQ(library->AllLinks().size(), 1u);
}

TEST_F(LibraryLinks, ThatCannotBeMadeAreMadeAnewByThoseWhoWaited) {
  Start();
  support::Signal asked;
  support::Signal goesOn;
  int attempts = 0;
  service.answers = [&] {
    if (++attempts > 1) return Status::Success;
    asked.Give();
    goesOn.Await();
    return Status::AccessDenied;
  };
  const auto waiting = Watch::For("connectWait", ">");
  Status first = Status::Success;
  LmIpclib::Stream second;
  std::thread makes([&] { first = Connect().status(); });
  asked.Await();
  std::thread waits([&] { second = Connected(); });
  waiting->Await();
  goesOn.Give();
  makes.join();
  waits.join();
  EXPECT_EQ(first, Status::AccessDenied);
  EXPECT_NE(second, nullptr);
  EXPECT_EQ(service.Asked().size(), 2u);
}

TEST_F(LibraryLinks, CarryTheStreamsOfManyThreads) {
  Start();
  constexpr int kThreads = 4;
  constexpr int kRounds = 20;
  support::StartLine line(kThreads);
  std::vector<std::thread> users;
  for (int user = 0; user < kThreads; ++user) {
    users.emplace_back([&] {
      line.ArriveAndWait();
      for (int round = 0; round < kRounds; ++round) {
        Hearer hearer;
        const auto stream = library->connect(kEndpoint, u"talk", kShared, hearer.Callback(), 0, nullptr);
        ASSERT_TRUE(stream);
        EXPECT_EQ((*stream)->completeConnect(), Status::Success);
        EXPECT_EQ(Send(*stream, "x"), Status::Success);
        EXPECT_EQ((*stream)->close(kNoTimer), Status::Success);
        hearer.came.Await();
        EXPECT_THAT(hearer.Texts(), ElementsAre("<end>"));
      }
    });
  }
  for (auto& user : users) user.join();
  int messages = 0;
  for (int i = 0; i < 2 * kThreads * kRounds; ++i) messages += service.NextMessage() == "x";
  EXPECT_EQ(messages, kThreads * kRounds);
  EXPECT_EQ(library->uninit(), Status::Success);
}

}  // namespace
}  // namespace library
