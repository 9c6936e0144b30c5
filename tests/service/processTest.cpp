#include <string>

#include "platform/session.h"

#include "tests/service/serviceProcess.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::AllOf;
using testing::AnyOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

TEST_F(ServiceOfItsOwn, TakesAMessageByteForByte) {
  std::string bytes;
  for (int i = 0; i < 1000; ++i) bytes += static_cast<char>(i * 7);
  ServiceProcess process(endpoint, {"--bytes"});
  process.AwaitReady();
  Caller caller(endpoint);
  ASSERT_EQ(caller.Connect(), Status::Success);
  EXPECT_THAT(process.Next(), StartsWith("connect stream talk procedure 0"));
  EXPECT_THAT(process.Next(),
              AllOf(StartsWith("asks version 1 link " + standIn::Hex(caller.link->linkId())),
                    HasSubstr(" stream " + standIn::Hex(caller.stream->streamId())), EndsWith(" channel size 65536")));
  EXPECT_EQ(process.Next(), "connected link " + standIn::Hex(caller.link->linkId()));
  caller.Send(bytes);
  EXPECT_EQ(process.Next(), "message stream " + standIn::Hex(caller.stream->remoteStreamId()) + " bytes 1000 " +
                                standIn::HexBytes(bytes));
  EXPECT_THAT(process.Next(), StartsWith("no command: "));
  EXPECT_EQ(caller.stream->close(kNoLimit), Status::Success);
  caller.heard.end.Await();
  caller.AwaitClosed();
  EXPECT_THAT(process.Next(), StartsWith("close stream "));
  EXPECT_THAT(process.Next(), StartsWith("closed link "));
  EXPECT_EQ(process.Wait(), 0);
  EXPECT_EQ(process.RestOfOutput(), "");
  EXPECT_EQ(process.ErrorOutput(), "");
}

TEST_F(ServiceOfItsOwn, SendsMessagesToo) {
  ServiceProcess process(endpoint, {"--send", "hello", "--channel-size", "69"});
  process.AwaitReady();
  Caller caller(endpoint);
  ASSERT_EQ(caller.Connect(), Status::Success);
  caller.heard.one.Await();
  EXPECT_THAT(caller.heard.texts, ElementsAre("hello"));
}

TEST_F(ServiceOfItsOwn, HearsFromAClientThatAuthenticates) {
  ServiceProcess process(endpoint);
  process.AwaitReady();
  Caller caller(endpoint);
  ASSERT_EQ(caller.Connect(kAuthenticated), Status::Success);
  EXPECT_EQ(process.Next(), "connect stream talk procedure 0 authenticated");
}

TEST_F(ServiceOfItsOwn, KeepsTheNamesUnits) {
  ServiceProcess process(endpoint);
  process.AwaitReady();
  Caller caller(endpoint);
  ASSERT_EQ(caller.Connect(kPlain, u"\xD800 caf\u00E9"), Status::Success);
  EXPECT_THAT(process.Next(), StartsWith("connect stream \\uD800 caf\xC3\xA9 procedure 0"));
}

TEST_F(ServiceOfItsOwn, RefusesWithAStatus) {
  ServiceProcess process(endpoint, {"--refuse", "7"});
  process.AwaitReady();
  Caller caller(endpoint);
  EXPECT_EQ(caller.Connect(), Status::AccessDenied);
}

TEST_F(ServiceOfItsOwn, LeavesTheStatusPreset) {
  ServiceProcess process(endpoint, {"--leave-status-preset"});
  process.AwaitReady();
  Caller caller(endpoint);
  EXPECT_EQ(caller.Connect(), Status::Unexpected);
}

TEST_F(ServiceOfItsOwn, EndsTheCallWithAStatus) {
  ServiceProcess process(endpoint, {"--call-status", "5"});
  process.AwaitReady();
  Caller caller(endpoint);
  EXPECT_EQ(caller.Connect(), Status::AccessDenied);
}

TEST_F(ServiceOfItsOwn, DiesWithinTheCall) {
  ServiceProcess process(endpoint, {"--die", "before-answer"});
  process.AwaitReady();
  Caller caller(endpoint);
  EXPECT_EQ(caller.Connect(), Status::Unexpected) << "a call that failed";
  EXPECT_EQ(process.Wait(), 9);
}

TEST_F(ServiceOfItsOwn, DiesBehindTheCall) {
  ServiceProcess process(endpoint, {"--die", "after-answer"});
  process.AwaitReady();
  Caller caller(endpoint);
  // The service dies while this side finishes its connect, before or behind any of the steps that are left.
  const Status status = caller.Connect();
  EXPECT_THAT(status, AnyOf(Status::Success, Status::StreamClosed, Status::InvalidState));
  if (status == Status::Success) caller.heard.end.Await();
  caller.AwaitClosed();
  EXPECT_EQ(process.Wait(), 9);
}

TEST_F(ServiceOfItsOwn, DiesInTheMiddleOfATransaction) {
  ServiceProcess process(endpoint, {"--die", "in-transaction"});
  process.AwaitReady();
  Caller caller(endpoint);
  ASSERT_EQ(caller.Connect(), Status::Success);
  caller.Send("hello");
  caller.heard.end.Await();
  caller.AwaitClosed();
  EXPECT_EQ(process.Wait(), 9);
}

TEST_F(ServiceOfItsOwn, IsKilled) {
  ServiceProcess process(endpoint);
  process.AwaitReady();
  Caller caller(endpoint);
  ASSERT_EQ(caller.Connect(), Status::Success);
  process.Kill();
  caller.heard.end.Await();
  caller.AwaitClosed();
}

TEST_F(ServiceOfItsOwn, StartsLate) {
  ServiceProcess process(endpoint, {"--listen-after-line"});
  EXPECT_EQ(process.Next(), "waiting");
  {
    Caller early(endpoint);
    EXPECT_EQ(early.Connect(), Status::NotFound);
  }
  const std::string name = "Global\\ipclibLinkReady(" + standIn::GuidText(endpoint) + ")";
  const platform::UniqueEvent ready(platform::CreateEventA(nullptr, true, false, name.c_str()));
  EXPECT_EQ(platform::WaitForSingleObject(ready.get(), 0), platform::WAIT_TIMEOUT);
  process.Say("now");
  EXPECT_EQ(platform::WaitForSingleObject(ready.get(), 60'000), platform::WAIT_OBJECT_0);
  Caller caller(endpoint);
  EXPECT_EQ(caller.Connect(), Status::Success);
  process.AwaitReady();
}

TEST_F(ServiceOfItsOwn, EndsAfterAsManyCommandsAsItWasTold) {
  ServiceProcess process(endpoint, {"--messages", "2"});
  process.AwaitReady();
  for (int i = 0; i < 2; ++i) {
    Caller caller(endpoint);
    ASSERT_EQ(caller.Connect(), Status::Success);
    caller.Send("\2\0\0\0\4\0\0\0a\0\0\0\0\0\0\0"s);
    EXPECT_EQ(caller.stream->close(kNoLimit), Status::Success);
    caller.heard.end.Await();
    process.AwaitConnected();
    EXPECT_THAT(process.Next(), StartsWith("message stream "));
    EXPECT_EQ(process.Next(), "command 2 url a");
    EXPECT_THAT(process.Next(), StartsWith("close stream "));
    EXPECT_THAT(process.Next(), StartsWith("closed link "));
  }
  EXPECT_EQ(process.Next(), "") << "its output has ended, though its input has not";
  EXPECT_EQ(process.Wait(), 0);
}

TEST_F(ServiceOfItsOwn, EndsAtTheLineOnceItsClientsAreGone) {
  ServiceProcess process(endpoint);
  process.AwaitReady();
  Caller caller(endpoint);
  ASSERT_EQ(caller.Connect(), Status::Success);
  process.AwaitConnected();
  process.Say("end");
  caller.Send("still here");
  EXPECT_THAT(process.Next(), EndsWith(" bytes 10"));
  EXPECT_THAT(process.Next(), StartsWith("no command: "));
  EXPECT_EQ(caller.stream->close(kNoLimit), Status::Success);
  EXPECT_THAT(process.Next(), StartsWith("close stream "));
  EXPECT_THAT(process.Next(), StartsWith("closed link "));
  EXPECT_EQ(process.Next(), "") << "its output has ended, though its input has not";
  EXPECT_EQ(process.Wait(), 0);
}

TEST_F(ServiceOfItsOwn, IsTakenForTheServiceOfTheSession) {
  support::Process process({.program = ServiceProgram(), .arguments = {}, .environment = {}});
  platform::DWORD session = 0;
  ASSERT_TRUE(platform::ProcessIdToSessionId(platform::GetCurrentProcessId(), &session));
  EXPECT_EQ(process.Hear(), "ready " + standIn::GuidText(standIn::CommandEndpoint(session)));
  EXPECT_EQ(process.Wait(), 0);
}

TEST_F(ServiceOfItsOwn, ExplainsItself) {
  support::Process help({.program = ServiceProgram(), .arguments = {"--help"}, .environment = {}});
  EXPECT_EQ(help.Hear(), "usage: standInService [switches]");
  EXPECT_EQ(help.Wait(), 0);
  support::Process wrong({.program = ServiceProgram(), .arguments = {"--wrong"}, .environment = {}});
  EXPECT_EQ(wrong.Wait(), 2);
  EXPECT_THAT(wrong.ErrorOutput(), StartsWith("standInService: unknown switch --wrong"));
}

TEST_F(ServiceOfItsOwn, TellsOfOrdersThatItDoesNotKnow) {
  ServiceProcess process(endpoint);
  process.AwaitReady();
  process.Say("dance");
  EXPECT_EQ(process.Next(), "error no order: dance");
  EXPECT_EQ(process.Wait(), 0);
}

// Stays on the line until it is killed.
CHILD_BODY(Calls) {
  Caller caller(standIn::ParseGuid(arguments.at(0)).value());
  if (caller.Connect() != Status::Success) return 1;
  support::Say("connected");
  static_cast<void>(support::Hear());
  return 0;
}

TEST_F(ServiceOfItsOwn, LearnsThatAClientWasKilled) {
  ServiceProcess process(endpoint);
  process.AwaitReady();
  support::Process client = support::StartChild("Calls", {standIn::GuidText(endpoint)});
  EXPECT_EQ(client.Hear(), "connected");
  process.AwaitConnected();
  client.Kill();
  EXPECT_THAT(process.Next(), StartsWith("client gone link "));
}

}  // namespace
}  // namespace service
