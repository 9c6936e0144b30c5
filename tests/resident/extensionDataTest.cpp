// Where each browser's data file goes, and what stands there after a refresh and after a removal.
#include "browser/extensionData.h"

#include "tests/resident/residentTest.h"

namespace resident {
namespace {

using browser::BrowserType;
using browser::GetExtensionPath;
using browser::WriteExtensionData;
using support::SetText;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using ExtensionData = TracedResidentTest;

constexpr const char* kNotForFirefox =
    "GetUserDataDirPathForChromiumBrowser: User data directory registry is not supported for Firefox.\n";
// Of a machine that redirects no scheme.
constexpr const char* kOfAnAgent =
    "{\n"
    "\t\"enabled\" : 1,\n"
    "\t\"enabledIpRule\" : 0,\n"
    "\t\"host\" : \"Windows\",\n"
    "\t\"origin\" : \"Agent\",\n"
    "\t\"protocols\" : [],\n"
    "\t\"version\" : \"8.18.0\"\n"
    "}\n";
constexpr const char* kOfAClientForFirefox =
    "{\n"
    "\t\"data\" : \n"
    "\t{\n"
    "\t\t\"enabled\" : 1,\n"
    "\t\t\"host\" : \"Windows\",\n"
    "\t\t\"origin\" : \"Client\",\n"
    "\t\t\"protocols\" : [],\n"
    "\t\t\"version\" : \"8.18.0\"\n"
    "\t},\n"
    "\t\"description\" : \"ignored\",\n"
    "\t\"name\" : \"url-rules@corvane-lumenar.x\",\n"
    "\t\"type\" : \"storage\"\n"
    "}\n";
constexpr const char* kNoRules = "Failed to get the url filtering rules from registry.\n";

TEST_F(ExtensionData, LiesInTheUsersLocalApplicationData) {
  EXPECT_EQ(GetExtensionPath(BrowserType::Chrome),
            LocalFolder() + u"\\Google\\Chrome\\User Data\\Default\\Extensions\\pgmkcoafbnjdeihlmkgobfajcpeidnhl");
  EXPECT_EQ(GetExtensionPath(BrowserType::Edge),
            LocalFolder() + u"\\Microsoft\\Edge\\User Data\\Default\\Extensions\\pgmkcoafbnjdeihlmkgobfajcpeidnhl");
  helper.Forget();
  EXPECT_EQ(GetExtensionPath(BrowserType::Firefox), LocalFolder() + u"\\Mozilla\\Firefox\\Profiles");
  EXPECT_THAT(helper.Traces(), ElementsAre(kNotForFirefox));
}

// It has no policy of its own, and does not heed the others'.
TEST_F(ExtensionData, OfFirefoxIsLookedForWithTheSameMessageEachTime) {
  SetText(Hive::Machine, kChromePolicy, u"UserDataDir", u"C:\\moved");
  for (int i = 0; i < 2; ++i) EXPECT_EQ(GetExtensionPath(BrowserType::Firefox), FirefoxFolder());
  EXPECT_THAT(helper.Traces(), ElementsAre(kNotForFirefox, kNotForFirefox));
}

TEST_F(ExtensionData, LiesBelowTheFolderOfAPolicy) {
  SetText(Hive::Machine, kChromePolicy, u"UserDataDir", u"C:\\moved");
  EXPECT_EQ(GetExtensionPath(BrowserType::Chrome), u"C:\\moved\\Default\\Extensions\\" + kExtensionId);
  EXPECT_EQ(GetExtensionPath(BrowserType::Edge), EdgeFolder());
}

// The buffer holds 260 units; what does not fit is left away.
TEST_F(ExtensionData, APolicysFolderThatLeavesNoRoomIsUsedWithoutWhatDoesNotFit) {
  std::u16string folder = u"C:\\";
  folder.resize(230, u'x');
  SetText(Hive::Machine, kChromePolicy, u"UserDataDir", folder);
  EXPECT_EQ(GetExtensionPath(BrowserType::Chrome), folder + u"\\Default\\Extensions");
  folder.resize(250, u'x');
  SetText(Hive::Machine, kChromePolicy, u"UserDataDir", folder);
  EXPECT_EQ(GetExtensionPath(BrowserType::Chrome), folder) << "neither part fits";
}

TEST_F(ExtensionData, APolicyThatIsNotValidCountsAsNone) {
  SetText(Hive::Machine, kChromePolicy, u"UserDataDir", u"C:\\a|b");
  EXPECT_EQ(GetExtensionPath(BrowserType::Chrome), ChromeFolder());
}

TEST_F(ExtensionData, GoesBelowThePolicysFolderAndNotToTheDefault) {
  MakeMachine(u"Agent");
  MakeFolder(ChromeFolder() + u"\\1");
  const std::u16string folder = machine.Folder() + u"moved";
  SetText(Hive::User, kChromePolicy, u"UserDataDir", folder);
  MakeFolder(folder + u"\\Default\\Extensions\\" + kExtensionId + u"\\1");
  EXPECT_TRUE(WriteExtensionData(BrowserType::Chrome));
  EXPECT_EQ(Content(folder + u"\\Default\\Extensions\\" + kExtensionId + u"\\1\\data.json"), kOfAnAgent);
  EXPECT_EQ(Content(ChromeFolder() + u"\\1\\data.json"), std::nullopt);
}

TEST_F(ExtensionData, OfChromeAndEdgeGoesIntoEveryVersion) {
  MakeMachine(u"Agent");
  for (const std::u16string& folder : {ChromeFolder(), EdgeFolder()}) {
    MakeFolder(folder + u"\\1.0_0");
    MakeFolder(folder + u"\\1.1_0");
  }
  EXPECT_TRUE(WriteExtensionData(BrowserType::Chrome));
  EXPECT_EQ(Content(EdgeFolder() + u"\\1.0_0\\data.json"), std::nullopt);
  EXPECT_TRUE(WriteExtensionData(BrowserType::Edge));
  for (const std::u16string& folder : {ChromeFolder(), EdgeFolder()}) {
    EXPECT_EQ(Content(folder + u"\\1.0_0\\data.json"), kOfAnAgent);
    EXPECT_EQ(Content(folder + u"\\1.1_0\\data.json"), kOfAnAgent);
  }
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(ExtensionData, OfABrowserThatIsNotInstalledIsAQuietFailure) {
  MakeMachine(u"Agent");
  EXPECT_FALSE(WriteExtensionData(BrowserType::Chrome));
  EXPECT_FALSE(WriteExtensionData(BrowserType::Edge));
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(ExtensionData, OfFirefoxLiesInItsFolderAndAKeyLeadsToIt) {
  MakeMachine(u"Client");
  MakeFolder(FirefoxFolder());
  EXPECT_TRUE(WriteExtensionData(BrowserType::Firefox));
  EXPECT_EQ(Content(FirefoxFolder() + u"\\data.json"), kOfAClientForFirefox);
  EXPECT_EQ(Stored(Hive::User, kFirefoxKey), Terminated(FirefoxFolder() + u"\\data.json"));
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(ExtensionData, OfFirefoxWithoutItsFolderIsAFailureThatLeavesTheKey) {
  MakeMachine(u"Client");
  EXPECT_FALSE(WriteExtensionData(BrowserType::Firefox));
  EXPECT_FALSE(KeyExists(Hive::User, kFirefoxKey));
  EXPECT_THAT(log.Texts(), ElementsAre(HasSubstr("data.json, error=0x00000003\n")));
  SetText(Hive::User, kFirefoxKey, u"", u"old");
  EXPECT_FALSE(WriteExtensionData(BrowserType::Firefox));
  EXPECT_EQ(Stored(Hive::User, kFirefoxKey), Terminated(u"old"));
}

TEST_F(ExtensionData, StaysAsItIsWhereThereAreNoRules) {
  Put(ChromeFolder() + u"\\1\\data.json", "old");
  Put(FirefoxFolder() + u"\\data.json", "old");
  support::SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  for (const BrowserType browser : browser::kBrowsers) EXPECT_FALSE(WriteExtensionData(browser));
  EXPECT_EQ(Content(ChromeFolder() + u"\\1\\data.json"), "old");
  EXPECT_EQ(Content(FirefoxFolder() + u"\\data.json"), "old");
  EXPECT_FALSE(KeyExists(Hive::User, kFirefoxKey));
  EXPECT_THAT(log.Texts(), ElementsAre(kNoRules, kNoRules, kNoRules));
}

TEST_F(ExtensionData, TellsThatRedirectionIsOff) {
  MakeMachine(u"Agent", 0);
  Put(ChromeFolder() + u"\\1\\data.json", "old");
  EXPECT_TRUE(WriteExtensionData(BrowserType::Chrome));
  EXPECT_THAT(Content(ChromeFolder() + u"\\1\\data.json"), testing::Optional(HasSubstr("\"enabled\" : 0")));
}

TEST_F(ExtensionData, IsRemovedOfEveryBrowserAndTheDeletionsAreLogged) {
  for (const std::u16string& folder : {ChromeFolder() + u"\\1", EdgeFolder() + u"\\1", FirefoxFolder()}) {
    Put(folder + u"\\data.json", "x");
  }
  SetText(Hive::User, kFirefoxKey, u"", u"x");
  browser::RemoveAllExtensionData();
  EXPECT_EQ(Content(ChromeFolder() + u"\\1\\data.json"), std::nullopt);
  EXPECT_EQ(Content(EdgeFolder() + u"\\1\\data.json"), std::nullopt);
  EXPECT_EQ(Content(FirefoxFolder() + u"\\data.json"), std::nullopt);
  EXPECT_FALSE(KeyExists(Hive::User, kFirefoxKey));
  EXPECT_THAT(log.Texts(), ElementsAre(AllOf(HasSubstr("Failed to delete "), HasSubstr("Chrome")),
                                       AllOf(HasSubstr("Failed to delete "), HasSubstr("Edge")),
                                       AllOf(HasSubstr("Failed to delete "), HasSubstr("Firefox"))));
}

TEST_F(ExtensionData, WithNothingToRemoveOnlyTheMissingKeyIsLogged) {
  browser::RemoveAllExtensionData();
  EXPECT_THAT(log.Texts(), ElementsAre("Failed to delete key for Firefox Url extension path.\n"));
}

}  // namespace
}  // namespace resident
