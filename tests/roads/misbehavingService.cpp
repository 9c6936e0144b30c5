// What launchers make of a service that does not do what it should: each ends with exit code 0, at once where there is
// nothing to wait for, and else when it has waited long enough.
#include <gmock/gmock.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/roads/commandService.h"

namespace roads {
namespace {

using std::chrono::steady_clock;
using testing::Contains;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

// A launcher that waits does so for ten seconds, or twice.
constexpr double kLessThanAWait = 9;  // Seconds.
constexpr double kAtWorst = 25;

constexpr const char16_t* kUrl = u"https://example.com/a";
constexpr const char* kCommand = "command 2 url https://example.com/a";
constexpr const char* kPosted = "Connect to rdeServer succeed.\n";

std::string Failed(int status) {
  return "RdeCmdClient::PostRdeCmdRequest: Failed to connect the rdeServer, error = " + std::to_string(status) + ".\n";
}

// A launcher that is on its way, and under the watch of a thread.
class TimedLauncher {
 public:
  explicit TimedLauncher(RoadMachine& machine)
      : started_(steady_clock::now()), process_(machine.Start({std::u16string(kLaunchPrefix) + kUrl})), thread_([this] {
          exitCode_ = Await(process_);
          took_ = steady_clock::now() - started_;
        }) {}
  TimedLauncher(const TimedLauncher&) = delete;
  TimedLauncher& operator=(const TimedLauncher&) = delete;
  ~TimedLauncher() {
    if (thread_.joinable()) thread_.join();
  }

  void ExpectEndsAtOnce() { EXPECT_LT(Seconds(), kLessThanAWait); }
  void ExpectEnds() { EXPECT_LT(Seconds(), kAtWorst); }
  void ExpectWaitsAndEnds() {
    EXPECT_GT(Seconds(), kLessThanAWait);
    EXPECT_LT(Seconds(), kAtWorst);
  }

 private:
  double Seconds() {
    if (thread_.joinable()) {
      thread_.join();
      EXPECT_EQ(exitCode_, 0);
    }
    return took_.count();
  }

  const steady_clock::time_point started_;
  support::Process process_;
  int exitCode_ = -1;
  std::chrono::duration<double> took_{};
  std::thread thread_;
};

class MisbehavingService : public testing::Test {
 protected:
  // The resident takes the launchers' traces.
  MisbehavingService() {
    machine.SetUp(u"Agent");
    machine.StartResident();
    static_cast<void>(machine.NewLog());
  }
  ~MisbehavingService() override { EXPECT_EQ(machine.EndResident(), 0); }

  // The last of the lines that launchers have traced.
  [[nodiscard]] std::string LastTrace() {
    Texts log = machine.NewLog();
    return log.empty() ? std::string() : log.back();
  }

  RoadMachine machine;
};

constexpr int kDied = 9;

struct Refusal {
  std::vector<std::string> switches;
  int status;
  int exitCode;  // Of the service.
};

TEST_F(MisbehavingService, ThatAnswersTheCallWithoutALinkCostsTheUrlAndNoTime) {
  const std::vector<Refusal> refusals{
      {{"--refuse", "7"}, 7, 0},
      {{"--refuse", "13"}, 13, 0},
      {{"--refuse", "255"}, 255, 0},
      {{"--leave-status-preset"}, 1, 0},
      {{"--call-status", "5"}, 7, 0},
      {{"--call-status", "1722"}, 10, 0},
      {{"--die", "before-answer"}, 1, kDied},
  };
  for (const Refusal& refusal : refusals) {
    SCOPED_TRACE(testing::PrintToString(refusal.switches));
    CommandService service(refusal.switches);
    TimedLauncher launcher(machine);
    launcher.ExpectEndsAtOnce();
    EXPECT_EQ(LastTrace(), Failed(refusal.status));
    EXPECT_THAT(Beginning(refusal.exitCode == kDied ? service.Rest() : service.End(), "connected "), IsEmpty());
    EXPECT_EQ(service.Wait(), refusal.exitCode);
  }
}

TEST_F(MisbehavingService, ThatDoesNotListenYetCostsTheUrlAndNoTime) {
  CommandService service({"--listen-after-line"});
  TimedLauncher early(machine);
  early.ExpectEndsAtOnce();
  EXPECT_EQ(LastTrace(), Failed(10));
  service.Say("now");
  EXPECT_THAT(service.Next(), StartsWith("ready "));
  TimedLauncher launcher(machine);
  launcher.ExpectEndsAtOnce();
  EXPECT_THAT(Beginning(service.End(), "command "), testing::ElementsAre(kCommand));
  EXPECT_EQ(service.Wait(), 0);
}

TEST_F(MisbehavingService, ThatIsNotThereCostsTheUrlAndNoTime) {
  TimedLauncher launcher(machine);
  launcher.ExpectEndsAtOnce();
  EXPECT_EQ(LastTrace(), Failed(10));
}

TEST_F(MisbehavingService, ThatOnlyBehavesOddlyGetsTheUrl) {
  const std::vector<std::vector<std::string>> oddities{
      {"--channel-size", "69"},
      {"--channel-size", "70"},
      {"--channel-size", "16777216"},
      {"--unknown-type"},
      {"--open", "towards the launcher"},
      {"--send", "to the launcher"},
      {"--open", "a", "--open", "a", "--send", "b", "--unknown-type", "--send", "c"},
  };
  for (const std::vector<std::string>& switches : oddities) {
    SCOPED_TRACE(testing::PrintToString(switches));
    CommandService service(switches);
    TimedLauncher launcher(machine);
    EXPECT_THAT(service.UntilEnded(1), Contains(kCommand));
    launcher.ExpectEndsAtOnce();
    EXPECT_EQ(LastTrace(), kPosted);
    EXPECT_THAT(service.End(), IsEmpty());
    EXPECT_EQ(service.Wait(), 0);
  }
}

// The launcher is past its send by then, and waits for the answer to its Close: what comes instead ends the wait.
TEST_F(MisbehavingService, ThatFailsBeforeItAnswersACloseEndsTheWait) {
  struct Fault {
    std::string order;
    std::string told;  // By the launcher, or about it.
  };
  const std::vector<Fault> faults{
      {"wrong-crc", "failed link "},  {"wrong-sequence", "failed link "}, {"no-blocks", "failed link "},
      {"error", "client gone link "}, {"answer-close", "closed link "},
  };
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.order);
    CommandService service({"--close-answer", "late"});
    TimedLauncher launcher(machine);
    EXPECT_THAT(service.Until("close stream "), Contains(kCommand));
    service.Say(fault.order);
    EXPECT_THAT(service.Next(), StartsWith(fault.told));
    launcher.ExpectEndsAtOnce();
    EXPECT_EQ(LastTrace(), kPosted);
    EXPECT_THAT(service.End(), IsEmpty());
    EXPECT_EQ(service.Wait(), 0);
  }
}

TEST_F(MisbehavingService, ThatDiesBeforeItAnswersACloseEndsTheWait) {
  CommandService service({"--close-answer", "never"});
  TimedLauncher launcher(machine);
  EXPECT_THAT(service.Until("close stream "), Contains(kCommand));
  service.Say("die");
  EXPECT_THAT(service.Rest(), IsEmpty());
  EXPECT_EQ(service.Wait(), kDied);
  launcher.ExpectEndsAtOnce();
}

TEST_F(MisbehavingService, ThatDiesInTheMiddleOfATransactionIsNotWaitedFor) {
  CommandService service({"--die", "in-transaction"});
  TimedLauncher launcher(machine);
  EXPECT_THAT(service.Rest(), Contains(StartsWith("connected link ")));
  EXPECT_EQ(service.Wait(), kDied);
  launcher.ExpectEndsAtOnce();
  EXPECT_EQ(LastTrace(), kPosted) << "the library had taken it";
}

// The launcher is at any of its steps by then, from its connect to its end.
TEST_F(MisbehavingService, ThatFailsOnceTheLinkHasComeUpMayCostTheUrl) {
  const std::vector<std::vector<std::string>> faults{
      {"--wrong-crc", "--close-answer", "never"},
      {"--wrong-sequence", "--close-answer", "never"},
      {"--no-blocks", "--close-answer", "never"},
      {"--error", "--close-answer", "never"},
      {"--unknown-type", "--wrong-crc", "--close-answer", "never", "--channel-size", "69"},
      {"--shutdown"},
      {"--close"},
      {"--die", "after-answer"},
  };
  for (const std::vector<std::string>& switches : faults) {
    SCOPED_TRACE(testing::PrintToString(switches));
    CommandService service(switches);
    TimedLauncher launcher(machine);
    launcher.ExpectEndsAtOnce();
    EXPECT_THAT(service.Until("connected link "), testing::SizeIs(3));
    const bool dies = switches.front() == "--die";
    EXPECT_THAT(Beginning(dies ? service.Rest() : service.End(), "error "), IsEmpty())
        << "the launcher is not at fault";
    EXPECT_EQ(service.Wait(), dies ? kDied : 0);
  }
}

// A launcher whose Close was still to be sent waits for an answer that nobody will give.
TEST_F(MisbehavingService, ThatStopsTheLinkOnceItHasComeUpMayCostTheUrlAndOneWait) {
  CommandService service({"--stop"});
  TimedLauncher launcher(machine);
  launcher.ExpectEnds();
  EXPECT_THAT(Beginning(service.End(), "error "), IsEmpty());
  EXPECT_EQ(service.Wait(), 0);
}

// Three launchers wait at the same time, each for something else.
TEST_F(MisbehavingService, ThatFallsSilentIsWaitedForOnce) {
  CommandService service({"--hold-first-consumed", "--close-answer", "never"});
  TimedLauncher ofADeafLink(machine);
  EXPECT_THAT(service.Until("connected link "), testing::SizeIs(3));
  service.Say("deafen");
  service.Say("consume");
  service.Say("behind that");
  EXPECT_EQ(service.Next(), "error no order: behind that") << "no later link hears of it any more";

  TimedLauncher ofAnUnansweredClose(machine);
  EXPECT_THAT(service.Until("connected link "), testing::SizeIs(3));
  service.Say("consume");
  EXPECT_THAT(service.Until("close stream "), Contains(kCommand));

  TimedLauncher ofALinkThatMayNotSend(machine);
  EXPECT_THAT(service.Until("connected link "), testing::SizeIs(3));

  ofADeafLink.ExpectWaitsAndEnds();
  ofAnUnansweredClose.ExpectWaitsAndEnds();
  ofALinkThatMayNotSend.ExpectWaitsAndEnds();
  EXPECT_THAT(service.End(), testing::UnorderedElementsAre(StartsWith("client gone link "), StartsWith("failed link "),
                                                           StartsWith("failed link ")));
  EXPECT_EQ(service.Wait(), 0);
}

}  // namespace
}  // namespace roads
