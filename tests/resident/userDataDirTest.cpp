// The browsers' policy on where their user data lies.
#include "browser/userDataDir.h"

#include "platform/registry.h"
#include "tests/resident/residentTest.h"
#include "tests/support/process.h"

namespace resident {
namespace {

using browser::GetUserDataDirPath;
using browser::GetUserDataDirPathForChromiumBrowser;
using settings::BrowserType;
using support::SetText;
using testing::ElementsAre;
using testing::IsEmpty;
using UserDataDir = TracedResidentTest;

std::optional<std::u16string> Ask(BrowserType browser) {
  std::u16string path = u"kept";
  if (GetUserDataDirPathForChromiumBrowser(browser, path)) return path;
  EXPECT_EQ(path, u"kept");
  return std::nullopt;
}

TEST_F(UserDataDir, IsTheMachinesPolicyAheadOfTheUsers) {
  SetText(Hive::User, kChromePolicy, u"UserDataDir", u"C:\\user");
  EXPECT_EQ(Ask(BrowserType::Chrome), u"C:\\user");
  SetText(Hive::Machine, kChromePolicy, u"UserDataDir", u"C:\\machine");
  EXPECT_EQ(Ask(BrowserType::Chrome), u"C:\\machine");
}

TEST_F(UserDataDir, IsOfEachBrowserItsOwn) {
  SetText(Hive::Machine, kEdgePolicy, u"UserDataDir", u"C:\\edge");
  EXPECT_EQ(Ask(BrowserType::Edge), u"C:\\edge");
  EXPECT_EQ(Ask(BrowserType::Chrome), std::nullopt);
}

TEST_F(UserDataDir, OfEdgeIsTheUsersPolicyWhereTheMachineHasNone) {
  SetText(Hive::User, kEdgePolicy, u"UserDataDir", u"C:\\user");
  EXPECT_EQ(Ask(BrowserType::Edge), u"C:\\user");
  EXPECT_EQ(Ask(BrowserType::Chrome), std::nullopt);
  SetText(Hive::Machine, kEdgePolicy, u"UserDataDir", u"C:\\machine");
  EXPECT_EQ(Ask(BrowserType::Edge), u"C:\\machine");
}

TEST_F(UserDataDir, IsTracedOnItsWay) {
  SetText(Hive::Machine, kEdgePolicy, u"UserDataDir", u"C:\\a\\..\\edge");
  EXPECT_EQ(Ask(BrowserType::Edge), u"C:\\edge");
  EXPECT_THAT(
      helper.Traces(),
      ElementsAre("GetUserDataDirPath: Get user data directory path for Chromium-Edge.\n",
                  "GetUserDataDirPath: Succeeded to get user data directory path from registry \"C:\\a\\..\\edge\".\n",
                  "FormatPathStr: Succeeded to format and qualify the given path \"C:\\edge\".\n",
                  "ExpandChromiumEnvVariableInPath: Path input is empty or no environment variable is contained.\n",
                  "GetUserDataDirPathForChromiumBrowser: Succeed to get user data directory path \"C:\\edge\" for "
                  "Chromium-Edge.\n"));
}

TEST_F(UserDataDir, WithoutAPolicyIsTracedAsAFailure) {
  EXPECT_EQ(Ask(BrowserType::Chrome), std::nullopt);
  EXPECT_THAT(
      helper.Traces(),
      ElementsAre("GetUserDataDirPath: Get user data directory path for Chrome.\n",
                  "GetUserDataDirPath: Failed to get user data directory path from registry.\n",
                  "GetUserDataDirPathForChromiumBrowser: Failed to get user data directory path for Chrome.\n"));
}

TEST_F(UserDataDir, ThatIsNotValidIsTracedAsAFailure) {
  SetText(Hive::Machine, kChromePolicy, u"UserDataDir", u"C:\\a?b");
  EXPECT_EQ(Ask(BrowserType::Chrome), std::nullopt);
  EXPECT_THAT(helper.Traces(),
              ElementsAre("GetUserDataDirPath: Get user data directory path for Chrome.\n",
                          "GetUserDataDirPath: Succeeded to get user data directory path from registry \"C:\\a?b\".\n",
                          "ParseChromiumUserDataDirString: Invalid characters found in path string.\n",
                          "GetUserDataDirPathForChromiumBrowser: Failed to parse user data directory path string from "
                          "registry.\n"));
}

TEST_F(UserDataDir, OfFirefoxThereIsNone) {
  EXPECT_EQ(Ask(BrowserType::Firefox), std::nullopt);
  EXPECT_THAT(helper.Traces(), ElementsAre("GetUserDataDirPathForChromiumBrowser: User data directory registry is not "
                                           "supported for Firefox.\n"));
  helper.Forget();
  std::u16string path;
  EXPECT_FALSE(GetUserDataDirPath(BrowserType::Firefox, path));
  EXPECT_THAT(helper.Traces(), IsEmpty());
}

TEST_F(UserDataDir, OfFirefoxHasNoPlaceInTheRegistry) {
  EXPECT_THAT(browser::GetRegistryUserDataDirList(BrowserType::Firefox), IsEmpty());
  EXPECT_THAT(helper.Traces(), ElementsAre("GetRegistryUserDataDirList: Browser type is not supported.\n"));
}

TEST_F(UserDataDir, AMachinesPolicyThatIsEmptyLeavesItToTheUsers) {
  support::SetBytes(Hive::Machine, kChromePolicy, u"UserDataDir", platform::REG_SZ, {});
  SetText(Hive::User, kChromePolicy, u"UserDataDir", u"C:\\user");
  EXPECT_EQ(Ask(BrowserType::Chrome), u"C:\\user");
}

// A NUL alone is a value of two bytes, and so a policy: of an empty path, which is not valid.
TEST_F(UserDataDir, AMachinesPolicyOfANulAloneWinsAndIsNotValid) {
  SetText(Hive::Machine, kChromePolicy, u"UserDataDir", u"");
  SetText(Hive::User, kChromePolicy, u"UserDataDir", u"C:\\user");
  EXPECT_EQ(Ask(BrowserType::Chrome), std::nullopt);
}

TEST_F(UserDataDir, EndsAtANul) {
  SetText(Hive::Machine, kChromePolicy, u"UserDataDir", std::u16string(u"C:\\a\0|b", 8));
  EXPECT_EQ(Ask(BrowserType::Chrome), u"C:\\a");
}

TEST_F(UserDataDir, OfAnyTypeAndWithoutANulIsTaken) {
  SetUnterminated(Hive::Machine, kChromePolicy, u"UserDataDir", u"C:\\a");
  EXPECT_EQ(Ask(BrowserType::Chrome), u"C:\\a");
  support::SetBytes(Hive::Machine, kChromePolicy, u"UserDataDir", platform::REG_EXPAND_SZ,
                    Terminated(u"C:\\%x%").bytes);
  EXPECT_EQ(Ask(BrowserType::Chrome), u"C:\\%x%");
}

TEST_F(UserDataDir, WithQuotesPipesASecondColonOrFarTooLongDoesNoHarm) {
  for (const char16_t* path : {u"\"C:\\a\"", u"C:\\a|b", u"C:\\a:b", u"ab:c"}) {
    SetText(Hive::Machine, kChromePolicy, u"UserDataDir", path);
    EXPECT_EQ(Ask(BrowserType::Chrome), std::nullopt) << support::Narrow(path);
  }
  const std::u16string longPath = u"C:\\" + std::u16string(4997, u'x');
  SetText(Hive::Machine, kChromePolicy, u"UserDataDir", longPath);
  EXPECT_EQ(Ask(BrowserType::Chrome), longPath);
  SetText(Hive::Machine, kChromePolicy, u"UserDataDir", u"C:\\" + std::u16string(0xFFFFF / 2, u'x'));
  EXPECT_EQ(Ask(BrowserType::Chrome), std::nullopt);  // More than a text of the registry may have.
}

TEST_F(UserDataDir, ALoneSurrogateBecomesTheReplacementCharacter) {
  SetText(Hive::Machine, kChromePolicy, u"UserDataDir", u"C:\\a\xD800");
  const auto path = Ask(BrowserType::Chrome);
  ASSERT_TRUE(path);
  EXPECT_EQ(path->substr(0, 4), u"C:\\a");
}

// The environment's text enters in the ANSI code page and leaves as if it were UTF-8, which it is not.
TEST_F(UserDataDir, TextOutsideAsciiFromTheEnvironmentIsLost) {
  support::SetEnvironment("CLIENTNAME", "\u00e9");
  SetText(Hive::Machine, kChromePolicy, u"UserDataDir", u"C:\\a-${client_name}-b");
  EXPECT_EQ(Ask(BrowserType::Chrome), u"C:\\a-\uFFFD-b");
  support::UnsetEnvironment("CLIENTNAME");
}

}  // namespace
}  // namespace resident
