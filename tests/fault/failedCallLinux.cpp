// What one failed call of a start comes to, and what of the start stays.
#include <algorithm>
#include <string>

#include "tests/fault/faultWalkLinux.h"

namespace fault {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class FailedCall : public testing::Test {
 protected:
  // How a start with these arguments ends whose first call of that name fails. A resident that comes up is told to end.
  [[nodiscard]] Ending EndingWithout(const std::string& call, const Texts& arguments = {}) const {
    const Texts calls = Live({}, arguments).calls;
    const auto first = std::ranges::find(calls, call);
    EXPECT_NE(first, calls.end()) << call;
    machine.Restore();
    return Live({.at = static_cast<unsigned>(first - calls.begin()) + 1, .fromThereOn = false, .spared = {}},
                arguments);
  }

  const FaultMachine machine{u"Agent"};

 private:
  [[nodiscard]] Ending Live(const Fault& fault, const Texts& arguments) const {
    FaultedProcess process(arguments, fault, machine.ReportPath("faulted"));
    if (process.AwaitServing()) {
      EXPECT_TRUE(EndResident());
    }
    Ending ending = process.AwaitEnd();
    EXPECT_FALSE(ending.hung);
    EXPECT_EQ(ending.exitCode, 0) << ending.errorOutput;
    return ending;
  }
};

// ---- Of a launcher. ----

TEST_F(FailedCall, ForTheArgumentsMakesALauncherAResident) {
  const Ending ending = EndingWithout("CommandLineToArgvW", {"--url", "no-such-scheme:x"});
  EXPECT_THAT(ending.calls, Contains("GetMessageW"));
  EXPECT_THAT(ending.calls, Not(Contains("ShellExecuteExW")));
  EXPECT_TRUE(UserHas(u"Software\\Classes\\tavrix-prism-url-launch\\shell\\open\\command"));
}

TEST_F(FailedCall, ForTheSystemsTextShowsNoMessageBox) {
  const Ending ending = EndingWithout("FormatMessageW", {"no-such-argument"});
  EXPECT_THAT(ending.calls, Not(Contains("MessageBoxW")));
  EXPECT_THAT(ending.errorOutput, IsEmpty());
  EXPECT_THAT(machine.LogTexts(), IsEmpty());
}

// ---- Of a resident. ----

class FailedStart : public FailedCall {
 protected:
  // It never serves, gives back its mutex, and takes back nothing of what it has registered before: also on an agent,
  // whose residents do that at their end.
  void ExpectEndWithRegistrations(const Ending& ending) const {
    EXPECT_THAT(ending.calls, Not(Contains("GetMessageW")));
    EXPECT_THAT(ending.calls, Contains("ReleaseMutex"));
    EXPECT_THAT(ending.liveHandles, Not(Contains("Mutex")));
    EXPECT_TRUE(UserHas(u"Software\\Classes\\walked\\shell\\open\\command"));
    EXPECT_TRUE(UserHas(u"Software\\Mozilla\\ManagedStorage\\url-rules@corvane-lumenar.x"));
    EXPECT_TRUE(UserHas(u"Software\\Classes\\tavrix-prism-url-launch\\shell\\open\\command"));
  }

  void ExpectLogged(const std::string& text) const { EXPECT_THAT(machine.LogTexts(), Contains(text).Times(1)); }
};

TEST_F(FailedStart, WithoutAWindowClassHasNoWindowAndEndsWithItsRegistrations) {
  ExpectEndWithRegistrations(EndingWithout("RegisterClassExW"));
  ExpectLogged("Failed to create helper window, err=0x0000057f");  // There is no such class.
}

TEST_F(FailedStart, WithoutAWindowEndsWithItsRegistrations) {
  const Ending ending = EndingWithout("CreateWindowExW");
  ExpectEndWithRegistrations(ending);
  EXPECT_THAT(ending.calls, Not(Contains("CreateEventW")));
  ExpectLogged("Failed to create helper window, err=0x00000008");
}

TEST_F(FailedStart, WithoutAnEventEndsWithItsRegistrations) {
  const Ending ending = EndingWithout("CreateEventW");
  ExpectEndWithRegistrations(ending);
  EXPECT_THAT(ending.calls, Not(Contains("CreateThread")));
  ExpectLogged("Failed to create shutdown event, err=0x00000008");
}

TEST_F(FailedStart, WithoutAWatcherServesAllTheSame) {
  const Ending ending = EndingWithout("CreateThread");
  EXPECT_THAT(ending.calls, Contains("GetMessageW"));
  EXPECT_THAT(ending.calls, Not(Contains("RegNotifyChangeKeyValue")));
  EXPECT_THAT(ending.calls, Not(Contains("WaitForSingleObject")));
  EXPECT_FALSE(UserHas(u"Software\\Classes\\walked"));  // Its end is that of any agent.
  ExpectLogged("Failed to create helper thread, err=0x00000008");
}

}  // namespace
}  // namespace fault
