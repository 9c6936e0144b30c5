// The settings watcher as a thread, with a window of this test in the place of the helper's.
#include <algorithm>

#include "tests/resident/settingsWatcherTest.h"

namespace resident {
namespace {

using support::SetNumber;
using support::SetText;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(SettingsWatcher, EndsByTheShutdownEvent) {
  MakeSettings();
  Start();
  Shutdown();
  EXPECT_THAT(seen, IsEmpty());
  EXPECT_THAT(log.Texts(), ElementsAre("The helper thread exists."));
}

TEST_F(SettingsWatcher, WithoutTheUsersKeyEndsAndSaysSo) {
  MakeMachine(u"Agent");
  Start();
  Join();
  EXPECT_THAT(seen, IsEmpty());
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to open root key under HKCU, err=0x00000002\n"));
}

TEST_F(SettingsWatcher, WithoutTheMachinesKeyEndsAndSaysSo) {
  support::CreateKey(Hive::User, kUserKey);
  Start();
  Join();
  EXPECT_THAT(seen, IsEmpty());
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to open root key under HKLM, err=0x00000002\n"));
}

TEST_F(SettingsWatcher, AChangeOfTheMachinesSettingsOrdersARefresh) {
  MakeSettings();
  StartAndChange(Hive::Machine);
  Shutdown();
  EXPECT_LE(seen.size(), changes_);  // Never more refreshes than changes.
  EXPECT_THAT(seen, testing::Each(platform::WM_USER));
  EXPECT_TRUE(KeyExists(Hive::User, kUserKey));
}

// Whether the origin is there is asked on the machine's side alone.
TEST_F(SettingsWatcher, AChangeOfTheUsersSettingsOrdersARefreshAlsoWithoutAnOrigin) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  SetText(Hive::User, kRoot, u"Origin", u"Client");
  StartAndChange(Hive::User);
  Shutdown();
  EXPECT_LE(seen.size(), changes_);
  EXPECT_THAT(seen, testing::Each(platform::WM_USER));
  EXPECT_TRUE(KeyExists(Hive::User, kRoot));
}

TEST_F(SettingsWatcher, AChangeFarBelowTheMachinesKeyIsNoticed) {
  MakeSettings();
  Start();
  ChangeUntil(platform::WM_USER, Hive::Machine, kRoot + u"\\http\\deeper");
}

TEST_F(SettingsWatcher, AChangeFarBelowTheUsersKeyIsNoticed) {
  MakeSettings();
  Start();
  ChangeUntil(platform::WM_USER, Hive::User, kRoot + u"\\http\\deeper");
}

TEST_F(SettingsWatcher, WithoutTheOriginWithdrawsEverythingOfTheUsersAndEnds) {
  MakeSettings();
  SetText(Hive::User, kRoot + u"\\http", u"rules", u"x");
  SetText(Hive::User, kUserKey, u"Other", u"kept");
  SetText(Hive::User, kClasses + kLaunchScheme + kCommand, u"", u"x");
  SetText(Hive::User, kFirefoxKey, u"", u"x");
  Put(ChromeFolder() + u"\\1\\data.json", "x");
  Put(FirefoxFolder() + u"\\data.json", "x");
  StartAndChange(Hive::Machine);
  DeleteOrigin();
  ChangeUntil(platform::WM_DESTROY, Hive::Machine, kRoot);
  EXPECT_FALSE(KeyExists(Hive::User, kRoot));  // All has gone by the time of the order.
  EXPECT_EQ(Stored(Hive::User, kUserKey, u"Other"), Terminated(u"kept"));
  EXPECT_FALSE(KeyExists(Hive::User, kClasses + kLaunchScheme));
  EXPECT_FALSE(KeyExists(Hive::User, kFirefoxKey));
  EXPECT_EQ(Content(ChromeFolder() + u"\\1\\data.json"), std::nullopt);
  EXPECT_EQ(Content(FirefoxFolder() + u"\\data.json"), std::nullopt);
  EXPECT_TRUE(KeyExists(Hive::Machine, kRoot));
  Join();  // By itself, without the event.
  EXPECT_EQ(seen.back(), platform::WM_DESTROY);
  EXPECT_EQ(std::ranges::count(seen, platform::WM_DESTROY), 1);
}

// What it orders then is the system's own (settingsWatcherLinux.cpp), but it ends when it is told to.
TEST_F(SettingsWatcher, WhoseKeysAreDeletedMeanwhileEndsAllTheSame) {
  MakeSettings();
  StartAndChange(Hive::User);
  support::DeleteKey(Hive::User, u"Software\\Corvane");
  support::DeleteKey(Hive::Machine, u"Software\\Corvane");
  Shutdown();
  EXPECT_FALSE(KeyExists(Hive::User, kUserKey));
  EXPECT_FALSE(KeyExists(Hive::Machine, kRoot));
}

}  // namespace
}  // namespace resident
