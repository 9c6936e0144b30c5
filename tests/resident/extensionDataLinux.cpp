// Extension data when the system does not tell its folders or does not take a key.
#include "browser/extensionData.h"
#include "browser/firefoxStorage.h"
#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "tests/resident/residentTest.h"

namespace resident {
namespace {

using browser::BrowserType;
using testing::ElementsAre;
using ExtensionDataFaults = ResidentTest;

// The number of the first call of that name. The work is done once ahead of it: a process's first use of a service has
// calls of its own.
unsigned NumberOf(const std::string& call, void (*work)()) {
  work();
  platform::test::ArmFaults(0, false, 0);
  work();
  const std::vector<std::string> calls = platform::test::CountedCalls();
  platform::test::DisarmFaults();
  for (unsigned i = 0; i < calls.size(); ++i) {
    if (calls[i] == call) return i + 1;
  }
  return 0;
}

void WithFaultAt(const std::string& call, void (*work)()) {
  const unsigned number = NumberOf(call, work);
  ASSERT_NE(number, 0u);
  platform::test::ArmFaults(number, false, platform::ERROR_GEN_FAILURE);
  work();
  platform::test::DisarmFaults();
}

TEST_F(ExtensionDataFaults, AFolderThatCannotBeFoundOutIsLogged) {
  MakeMachine(u"Agent");
  WithFaultAt("SHGetFolderPathW", [] { EXPECT_FALSE(browser::WriteExtensionData(BrowserType::Chrome)); });
  EXPECT_THAT(log.Texts(),
              ElementsAre("Failed to get the Google\\Chrome\\User Data\\Default\\Extensions extension path.\n"));
}

TEST_F(ExtensionDataFaults, AFolderThatCannotBeFoundOutIsLoggedAtRemovalAndTheNextBrowserFollows) {
  WithFaultAt("SHGetFolderPathW", [] {
    support::CreateKey(Hive::User, kFirefoxKey);
    browser::RemoveAllExtensionData();
  });
  EXPECT_THAT(log.Texts(),
              ElementsAre("Failed to get the Google\\Chrome\\User Data\\Default\\Extensions extension path.\n"));
  EXPECT_FALSE(KeyExists(Hive::User, kFirefoxKey));
}

TEST_F(ExtensionDataFaults, AKeyForFirefoxThatCannotBeMadeIsLogged) {
  WithFaultAt("RegCreateKeyExW", [] { browser::SetFirefoxManagedStorageKey(true, u"x"); });
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to create key for Firefox Url extension path.\n"));
}

TEST_F(ExtensionDataFaults, AKeyForFirefoxWhoseValueCannotBeWrittenIsLeftWithoutAWord) {
  platform::test::ArmFaultsOf("RegSetValueExW", platform::ERROR_GEN_FAILURE);
  browser::SetFirefoxManagedStorageKey(true, u"x");
  platform::test::DisarmFaults();
  EXPECT_THAT(platform::test::CountedCalls(), testing::Contains("!RegSetValueExW").Times(1));
  EXPECT_TRUE(KeyExists(Hive::User, kFirefoxKey));
  EXPECT_EQ(Stored(Hive::User, kFirefoxKey), std::nullopt);
  EXPECT_THAT(log.Texts(), testing::IsEmpty());
}

TEST_F(ExtensionDataFaults, ForFirefoxAreWrittenAlsoWhenTheKeysValueCannotBe) {
  MakeMachine(u"Client");
  MakeFolder(FirefoxFolder());
  platform::test::ArmFaultsOf("RegSetValueExW", platform::ERROR_GEN_FAILURE);
  EXPECT_TRUE(browser::WriteExtensionData(BrowserType::Firefox));
  platform::test::DisarmFaults();
  EXPECT_NE(Content(FirefoxFolder() + u"\\data.json"), std::nullopt);
  EXPECT_THAT(log.Texts(), testing::IsEmpty());
}

}  // namespace
}  // namespace resident
