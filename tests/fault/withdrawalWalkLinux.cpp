// Resident helpers whose calls fail while the machine's origin goes: from their start, where they register the handler
// of a scheme, over the withdrawal, to their end.
#include <algorithm>

#include "platform/raii.h"
#include "tests/fault/faultWalkLinux.h"
#include "tests/support/machine.h"

namespace fault {
namespace {

using platform::HKEY;
using platform::UniqueKey;

constexpr const char16_t* kHandler = u"Software\\Classes\\walked\\shell\\open\\command";
constexpr const char16_t* kLaunchScheme = u"Software\\Classes\\tavrix-prism-url-launch\\shell\\open\\command";

constexpr int kUntilNextTry = 20;         // Milliseconds.
constexpr int kTriesWithoutPromise = 5;   // For what may never end by itself.
constexpr int kTriesWithPromise = 3'000;  // What has not ended by then hangs.

UniqueKey Opened(HKEY hive, const char16_t* path, platform::REGSAM access) {
  UniqueKey key;
  platform::RegOpenKeyExW(hive, path, 0, access, key.put());
  return key;
}

void RemoveOrigin() {
  const UniqueKey root = Opened(platform::HKEY_LOCAL_MACHINE, kRoot, platform::KEY_WRITE);
  ASSERT_EQ(platform::RegDeleteValueW(root.get(), u"Origin"), 0);
}

bool TellsOfADeadWatcher(const Texts& log) {
  const std::string ends[] = {"Failed to create local setting update event",
                              "Failed to create user setting update",
                              "Failed to open root key under ",
                              "RegNotifyChangeKeyValue failed for ",
                              "WaitForMultipleObjects failed",
                              "Failed to create helper thread"};
  return std::ranges::any_of(log, [&](const std::string& text) {
    return std::ranges::any_of(ends, [&](const std::string& end) { return text.starts_with(end); });
  });
}

// Whether the process may wait for an order that nobody gives any more: its watcher is dead, or has withdrawn, so that
// nothing but the order can be missing.
bool MayNeverEnd(const FaultMachine& machine, const Fault& fault) {
  return fault.fromThereOn || !UserHas(kLaunchScheme) || TellsOfADeadWatcher(machine.LogTexts());
}

// Nothing tells when the watcher begins to watch, and a change ahead of that is none for it: so one follows the other
// until the process has ended. One that may never do so is asked to, after a while.
void AwaitWithdrawal(const FaultMachine& machine, const Fault& fault, const FaultedProcess& process) {
  for (int tries = 1; tries < kTriesWithPromise && !process.EndsWithin(kUntilNextTry); ++tries) {
    if (tries >= kTriesWithoutPromise && MayNeverEnd(machine, fault)) {
      EndResident();
      return;
    }
    support::SetNumber(support::Hive::Machine, kRoot, u"Change", static_cast<std::uint32_t>(tries));
  }
}

class Withdrawal : public FaultWalk {
 protected:
  void WalkWithdrawal(std::u16string_view origin, Promise promise) {
    const FaultMachine machine(origin, SettingsOf::MachineAndUser);
    promise.amongOthers = true;
    const std::map<std::string, Texts> starts = {
        {"RegCreateKeyExW#1", {"SetListOfDefaultHandlers: RegCreateKeyEx failed."}},
        {"RegCreateKeyExW#2", {"SetListOfDefaultHandlers: RegCreateKeyEx-2 failed."}},
        {"RegisterClassExW#1", {"Failed to create helper window, err=0x0000057f"}},
        {"CreateWindowExW#1", {"Failed to create helper window, err=0x00000008"}},
        {"CreateEventW#1", {"Failed to create shutdown event, err=0x00000008"}},
        {"CreateEventW#2", {"Failed to create local setting update event, err=0x00000008"}},
        {"CreateEventW#3", {"Failed to create user setting update event, err=0x00000008"}},
        {"CreateThread#1", {"Failed to create helper thread, err=0x00000008"}},
        {"WaitForMultipleObjects#1", {"WaitForMultipleObjects failed, err=0x00000008"}},
        {"RegDeleteTreeW#1", {"Failed to delete url redirection settings, err=0x00000008"}}};
    promise.unless.insert(starts.begin(), starts.end());
    Walk(machine, promise, [&](const Fault& fault) {
      FaultedProcess process({}, fault, machine.ReportPath("faulted"));
      if (process.AwaitServing()) {
        RemoveOrigin();
        AwaitWithdrawal(machine, fault, process);
      }
      Ending ending = process.AwaitEnd();
      EXPECT_TRUE(MutexIsFree());
      if (ending.FirstFailedCall().empty()) {
        ExpectWithdrawn(origin);
        ExpectSettledOrder(ending.calls, origin);
      }
      return Outcome{.ending = std::move(ending), .log = machine.LogTexts()};
    });
  }

 private:
  static void ExpectWithdrawn(std::u16string_view origin) {
    EXPECT_FALSE(UserHas(kRoot));
    EXPECT_FALSE(UserHas(kLaunchScheme));
    EXPECT_EQ(UserHas(kHandler), origin == u"Client");
  }

  // The watcher deletes the settings, Firefox's key and the launch scheme. Behind that an agent gives its handler back;
  // then the watcher is told and waited for, and the mutex comes last.
  static void ExpectSettledOrder(const Texts& calls, std::u16string_view origin) {
    const auto told = std::ranges::find(calls, "SetEvent");
    EXPECT_EQ(std::count(calls.begin(), told, "RegDeleteTreeW"), origin == u"Agent" ? 4 : 3);
    const auto awaited = std::find(told, calls.end(), "WaitForSingleObject");
    EXPECT_NE(awaited, calls.end());
    EXPECT_NE(std::find(awaited, calls.end(), "ReleaseMutex"), calls.end());
    EXPECT_EQ(std::ranges::count(calls, "ReleaseMutex"), 1);
  }
};

TEST_P(Withdrawal, OfAnAgent) { WalkWithdrawal(u"Agent", {}); }

TEST_P(Withdrawal, OfAClient) { WalkWithdrawal(u"Client", {}); }

INSTANTIATE_TEST_SUITE_P(Calls, Withdrawal, testing::Values(Mode::Once, Mode::FromThereOn), ModeName);

}  // namespace
}  // namespace fault
