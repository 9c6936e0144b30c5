// Resident helpers whose calls fail, from their start to their end. The launcher beside them is this process: its calls
// do not fail, and to start one for each failure of the helper would take longer than all the rest.
#include "launcher/launchUrl.h"
#include "platform/raii.h"
#include "platform/registry.h"
#include "tests/fault/faultWalkLinux.h"
#include "tests/support/machine.h"

namespace fault {
namespace {

class Resident : public FaultWalk {
 protected:
  // From the start, over a launch and a refresh, to the end. The start may fail.
  static Outcome Live(const FaultMachine& machine, const Fault& fault) {
    FaultedProcess process({}, fault, machine.ReportPath("faulted"));
    if (process.AwaitServing()) {
      launcher::LaunchUrl(support::Wide(AppPath()));
      launcher::LaunchUrl(u"#createConfigData");
      EXPECT_TRUE(EndResident());
    }
    Ending ending = process.AwaitEnd();
    return {.ending = std::move(ending), .log = machine.LogTexts()};
  }
};

// A start that fails at its window does not undo what it has registered.
void ExpectRegistrationsOfAFailedStart(const Outcome& outcome) {
  if (outcome.ending.FirstFailedCall() != "CreateWindowExW") return;
  EXPECT_TRUE(UserHas(u"Software\\Classes\\walked\\shell\\open\\command"));
  EXPECT_TRUE(UserHas(u"Software\\Classes\\tavrix-prism-url-launch\\shell\\open\\command"));
}

Texts Behind(const std::string& first, Texts texts) {
  texts.insert(texts.begin(), first);
  return texts;
}

TEST_P(Resident, FromStartToEnd) {
  const FaultMachine machine(u"Client");
  const Texts all = LaunchTexts();
  const std::string noLocalEvent = "Failed to create local setting update event, err=0x00000008";
  const std::string noUserEvent = "Failed to create user setting update event, err=0x00000008";
  const std::string noRoot = "IsURLRedirectionEnabled: Failed to open url redirection root key.";
  const Promise promise{
      .log = all,
      .unless =
          {// The machine's root, behind two places where there is none: by the start itself, for the handlers, and for
           // the path of their command.
           {"RegOpenKeyExW#3", Behind(noRoot, all)},
           {"RegOpenKeyExW#6", Behind(noRoot, all)},
           {"RegOpenKeyExW#15", Behind(noRoot, all)},
           {"RegisterClassExW#1", {"Failed to create helper window, err=0x0000057f"}},  // There is no such class.
           {"CreateWindowExW#1", {"Failed to create helper window, err=0x00000008"}},
           {"CreateEventW#1", {"Failed to create shutdown event, err=0x00000008"}},
           // The settings watcher's two, behind the one for the shutdown.
           {"CreateEventW#2", Behind(noLocalEvent, all)},
           {"CreateEventW#3", Behind(noUserEvent, all)},
           {"CreateThread#1", Behind("Failed to create helper thread, err=0x00000008", all)}},
      .amongOthers = true,
      .anywhere = {noLocalEvent, noUserEvent}};
  Walk(machine, promise, [&](const Fault& fault) {
    Outcome outcome = Live(machine, fault);
    EXPECT_TRUE(MutexIsFree());
    ExpectRegistrationsOfAFailedStart(outcome);
    return outcome;
  });
}

TEST_P(Resident, WhereOneRunsAlready) {
  const FaultMachine machine(u"Client");
  Healthy first(machine);
  ASSERT_TRUE(first.AwaitServing());
  const Promise promise{.log = {kAlreadyRunning},
                        .unless = {{"CreateMutexW#1", LaunchTexts()}},  // It cannot tell, and starts.
                        .amongOthers = true,
                        .residentIsUp = true};
  Walk(machine, promise, [&](const Fault& fault) { return Live(machine, fault); });
  ASSERT_TRUE(EndResident());
  EXPECT_EQ(first.AwaitEnd().exitCode, 0);
}

INSTANTIATE_TEST_SUITE_P(Calls, Resident, testing::Values(Mode::Once, Mode::FromThereOn), ModeName);

}  // namespace
}  // namespace fault
