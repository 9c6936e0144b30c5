// The settings watcher when a key is deleted that it watches. Windows signals that, and so does this platform; Wine 8
// does not, and the watcher would wait there for good.
#include <filesystem>

#include "tests/resident/settingsWatcherTest.h"

namespace resident {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

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
  seen.clear();
  support::DeleteKey(Hive::User, u"Software\\Corvane");
  Await(platform::WM_USER);
  DeleteOrigin();
  Await(platform::WM_DESTROY);
  Join();
  EXPECT_THAT(log.Texts(), Contains(AllOf(StartsWith("RegNotifyChangeKeyValue failed for "), EndsWith("\n"))));
}

}  // namespace
}  // namespace resident
