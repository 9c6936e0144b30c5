// The settings watcher when a key is deleted that it watches: Windows signals that, and so does this platform; Wine 8
// does not, and the watcher would wait there for good. When changes come without a pause. And when the system cannot
// make the path of a key, or does not watch one.
#include <filesystem>
#include <thread>
#include <utility>

#include "platform/error.h"
#include "platform/format.h"
#include "platform/linux/testHooks.h"
#include "tests/resident/settingsWatcherTest.h"

namespace resident {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

// What is logged of a key that has been deleted; of which one it is, the digits tell.
constexpr const char* kNotWatched = "RegNotifyChangeKeyValue failed for [0-9A-F]{16}, err=0x000003fa\n";

// The handle that the watcher's key of the machine will be: the first that is free goes to whoever asks. The start asks
// for the thread, and the watcher for an event and a key of either side, the user's first.
platform::HKEY MachineKeyToCome() {
  const platform::UniqueEvent asked[] = {platform::UniqueEvent(platform::CreateEventW(nullptr, false, false, nullptr)),
                                         platform::UniqueEvent(platform::CreateEventW(nullptr, false, false, nullptr)),
                                         platform::UniqueEvent(platform::CreateEventW(nullptr, false, false, nullptr)),
                                         platform::UniqueEvent(platform::CreateEventW(nullptr, false, false, nullptr))};
  platform::UniqueKey key;
  EXPECT_EQ(platform::RegOpenKeyExW(platform::HKEY_LOCAL_MACHINE, kRoot.c_str(), 0, platform::KEY_READ, key.put()), 0);
  return key.get();
}

// Which of the calls that can fail, from 1 on, is the `number`-th of that name; 0 when none is.
unsigned PlaceOf(const std::vector<std::string>& calls, const std::string& name, int number) {
  for (unsigned i = 0; i < calls.size(); ++i) {
    if (calls[i] == name && --number == 0) return i + 1;
  }
  return 0;
}

// A key that is deleted before the watcher has come back to watching it cannot be watched any more: that ends the
// watcher without a withdrawal, as it should, and here there is another try.
TEST_F(SettingsWatcher, WithoutTheMachinesKeyWithdrawsAndLogsWhatIsNotThere) {
  do {
    seen.clear();
    log.RemoveFolder();
    std::filesystem::create_directories(log.Folder());
    MakeSettings();
    StartAndChange(Hive::Machine);
    support::DeleteKey(Hive::Machine, kRoot);
    Join();
  } while (log.Content().find("RegNotifyChangeKeyValue failed") != std::string::npos);
  EXPECT_EQ(seen.back(), platform::WM_DESTROY);
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to delete url redirection settings, err=0x00000002\n",
                                       "Failed to delete key for Firefox Url extension path.\n",
                                       "Failed to delete key for custom protocol url launch\n"));
}

TEST_F(SettingsWatcher, GoesOnWithTheMachinesSideWhenTheUsersKeyIsDeleted) {
  MakeSettings();
  StartAndChange(Hive::Machine);
  support::DeleteKey(Hive::User, u"Software\\Corvane");
  // An order may be left of an earlier change: so one change follows the other until the deletion was seen.
  while (log.Content().find("RegNotifyChangeKeyValue failed") == std::string::npos) {
    seen.clear();
    support::SetNumber(Hive::Machine, kRoot, u"Change", ++changes_);
    Await(platform::WM_USER);
  }
  DeleteOrigin();
  Await(platform::WM_DESTROY);
  Join();
  EXPECT_THAT(log.Texts(), Contains(MatchesRegex(kNotWatched)));
}

// Here alone, for Wine 8 forgets a change that comes between an order and the next watch: Windows keeps it.
TEST_F(SettingsWatcher, ABurstOfChangesEndsWithARefreshThatSeesTheLast) {
  MakeSettings();
  StartAndChange(Hive::Machine);
  std::thread burst([] {
    for (std::uint32_t i = 1; i <= 1000; ++i) support::SetNumber(Hive::Machine, kRoot, u"Burst", i);
  });
  Value last{};
  const Value expected{platform::REG_DWORD, {0xE8, 3, 0, 0}};
  while (last != expected) {
    seen.clear();
    Await(platform::WM_USER);
    last = Stored(Hive::Machine, kRoot, u"Burst").value_or(Value{});
  }
  burst.join();
}

// A path that stopped short would lead to the key above it, and the withdrawal would delete that.
TEST_F(SettingsWatcher, WhosePathCannotBeMadeEndsAndSaysSo) {
  MakeSettings();
  // On this thread, so that no other's calls are counted. Once ahead of the count: the first use of a service has calls
  // of its own.
  for (int i = 0; i < 2; ++i) {
    platform::SetEvent(launcher::ShutdownEvent);
    platform::test::ArmFaults(0, false, 0);
    launcher::SettingsWatcherThread(nullptr);
  }
  const std::vector<std::string> calls = platform::test::CountedCalls();
  for (const auto& [place, hive] : {std::pair(1, "HKCU"), std::pair(2, "HKLM")}) {
    const unsigned call = PlaceOf(calls, "PathCchAppend", place);
    ASSERT_NE(call, 0U);
    log.RemoveFolder();
    std::filesystem::create_directories(log.Folder());
    platform::test::ArmFaults(call, false, platform::ERROR_NOT_ENOUGH_MEMORY);
    launcher::SettingsWatcherThread(nullptr);
    platform::test::DisarmFaults();
    EXPECT_THAT(log.Texts(), ElementsAre(std::string("Failed to open root key under ") + hive + ", err=0x8007007a\n"));
  }
}

class UnwatchedKey : public SettingsWatcher {
 protected:
  ~UnwatchedKey() override { platform::test::DisarmFaults(); }
};

TEST_F(UnwatchedKey, OfTheMachineEndsTheWatcherWhichNamesKeyAndErrorAndOrdersNothing) {
  MakeSettings();
  const std::string line =
      support::Narrow(platform::Format(u"RegNotifyChangeKeyValue failed for %p, err=0x00000005\n", MachineKeyToCome()));
  platform::test::ArmFaultsOf("RegNotifyChangeKeyValue", platform::ERROR_ACCESS_DENIED);
  Start();
  Join();  // By itself, without the event.
  EXPECT_THAT(seen, IsEmpty());
  EXPECT_THAT(log.Texts(), ElementsAre(line));
}

// Between two changes the watcher comes back to the machine's key first.
TEST_F(UnwatchedKey, OfTheMachineAfterAChangeEndsTheWatcherWithoutAWithdrawal) {
  MakeSettings();
  StartAndChange(Hive::Machine);
  platform::test::ArmFaultsOf("RegNotifyChangeKeyValue", platform::ERROR_KEY_DELETED);
  support::SetNumber(Hive::Machine, kRoot, u"Change", ++changes_);
  Join();
  EXPECT_THAT(seen, testing::Each(platform::WM_USER));
  ASSERT_THAT(log.Texts(), testing::Not(IsEmpty()));
  EXPECT_THAT(log.Texts(), testing::Each(MatchesRegex(kNotWatched)));
  EXPECT_TRUE(KeyExists(Hive::User, kUserKey));
}

}  // namespace
}  // namespace resident
