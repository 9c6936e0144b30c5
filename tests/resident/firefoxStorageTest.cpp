// The key that leads Firefox to its data file.
#include "browser/firefoxStorage.h"

#include "tests/resident/residentTest.h"

namespace resident {
namespace {

using browser::SetFirefoxManagedStorageKey;
using testing::ElementsAre;
using testing::IsEmpty;
using FirefoxStorage = ResidentTest;

TEST_F(FirefoxStorage, KeyHasTheFileWithItsNulAsItsOwnValue) {
  SetFirefoxManagedStorageKey(true, u"C:\\x\\data.json");
  EXPECT_EQ(Stored(Hive::User, kFirefoxKey), Terminated(u"C:\\x\\data.json"));
  SetFirefoxManagedStorageKey(true, u"C:\\x\\data.json");
  EXPECT_EQ(Stored(Hive::User, kFirefoxKey), Terminated(u"C:\\x\\data.json"));
  SetFirefoxManagedStorageKey(true, u"");
  EXPECT_EQ(Stored(Hive::User, kFirefoxKey), Terminated(u""));
  EXPECT_FALSE(KeyExists(Hive::Machine, kFirefoxKey));
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(FirefoxStorage, KeyIsWrittenAnewByEachCallWhateverStandsThere) {
  SetFirefoxManagedStorageKey(true, u"C:\\x\\data.json");
  support::SetNumber(Hive::User, kFirefoxKey, u"", 7);
  SetFirefoxManagedStorageKey(true, u"C:\\x\\data.json");
  EXPECT_EQ(Stored(Hive::User, kFirefoxKey), Terminated(u"C:\\x\\data.json"));
}

TEST_F(FirefoxStorage, KeyGoesWithAllBelowItAndTheBaseKeyStays) {
  support::CreateKey(Hive::User, kFirefoxKey + u"\\more");
  SetFirefoxManagedStorageKey(false, u"not used");
  EXPECT_FALSE(KeyExists(Hive::User, kFirefoxKey));
  EXPECT_TRUE(KeyExists(Hive::User, u"Software\\Mozilla\\ManagedStorage"));
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(FirefoxStorage, KeyThatIsMissingIsLoggedAtDeletion) {
  SetFirefoxManagedStorageKey(false, u"");
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to delete key for Firefox Url extension path.\n"));
}

}  // namespace
}  // namespace resident
