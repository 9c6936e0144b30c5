// User data directories as Chromium's policies write them.
#include "browser/chromiumPath.h"

#include "platform/session.h"
#include "tests/resident/residentTest.h"
#include "tests/support/process.h"

namespace resident {
namespace {

using settings::BrowserType;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kNoVariable =
    "ExpandChromiumEnvVariableInPath: Path input is empty or no environment variable is contained.\n";
constexpr const char* kInvalid = "ParseChromiumUserDataDirString: Invalid characters found in path string.\n";

std::string Formatted(const std::string& path) {
  return "FormatPathStr: Succeeded to format and qualify the given path \"" + path + "\".\n";
}

std::string Expanded(const std::string& variable, const std::string& value) {
  return "ExpandEnvVariable: Expand environment variable \"" + variable + "\" into \"" + value + "\".\n";
}

class ChromiumPath : public TracedResidentTest {
 protected:
  // Two that are set by a remote session alone, and so by no machine that runs tests.
  ~ChromiumPath() override {
    support::UnsetEnvironment("CLIENTNAME");
    support::UnsetEnvironment("SESSIONNAME");
  }

  static std::optional<std::string> Parsed(std::string path, BrowserType browser = BrowserType::Chrome) {
    if (!browser::ParseChromiumUserDataDirString(browser, path)) return std::nullopt;
    return path;
  }
  static std::string ProgramFiles() {
    std::string path;
    EXPECT_TRUE(browser::GetKnownFolderPath(platform::FOLDERID_ProgramFiles, path));
    return path;
  }
};

TEST_F(ChromiumPath, WithADriveAndNoVariableStaysAsItIs) {
  EXPECT_EQ(Parsed("D:\\data\\chrome"), "D:\\data\\chrome");
  EXPECT_THAT(helper.Traces(), ElementsAre(Formatted("D:\\data\\chrome"), kNoVariable));
}

TEST_F(ChromiumPath, OfPlainWordsGoesBelowTheBrowsersApplicationFolder) {
  EXPECT_EQ(ProgramFiles(), "C:\\Program Files");
  EXPECT_EQ(Parsed("data"), "C:\\Program Files\\Google\\Chrome\\Application\\data");
  EXPECT_THAT(helper.Traces(), ElementsAre(Formatted("C:\\data"), kNoVariable));
  EXPECT_EQ(Parsed("a\\b", BrowserType::Edge), "C:\\Program Files\\Microsoft\\Edge\\Application\\a\\b");
}

TEST_F(ChromiumPath, ForFirefoxOrEmptyIsRefusedWithoutAMessage) {
  EXPECT_EQ(Parsed("C:\\x", BrowserType::Firefox), std::nullopt);
  EXPECT_EQ(Parsed(""), std::nullopt);
  EXPECT_THAT(helper.Traces(), IsEmpty());
}

TEST_F(ChromiumPath, ThatBeginsWithAVariableOfAnAbsoluteFolderIsAbsolute) {
  const std::string local = support::Narrow(LocalFolder());
  EXPECT_EQ(Parsed("${local_app_data}\\Chrome"), local + "\\Chrome");
  EXPECT_THAT(helper.Traces(),
              ElementsAre(Formatted("C:\\${local_app_data}\\Chrome"), Expanded("${local_app_data}", local)));
}

TEST_F(ChromiumPath, EachForbiddenCharacterIsRefusedAndThePathUnchanged) {
  for (const char* path : {"C:\\a:b", "a:b:c", "ab:", "C:\\a*", "a?", "\"C:\\a\"", "a<b", "a>b", "C:\\a|b", "C::\\a",
                           "C:\\file:stream", "\\\\?\\C:\\a"}) {
    helper.Forget();
    std::string changed = path;
    EXPECT_FALSE(browser::ParseChromiumUserDataDirString(BrowserType::Chrome, changed)) << path;
    EXPECT_EQ(changed, path);
    EXPECT_THAT(helper.Traces(), ElementsAre(kInvalid));
  }
}

TEST_F(ChromiumPath, WithADollarOrABraceOnItsOwnIsValid) {
  EXPECT_EQ(Parsed("C:\\$a{b}c$"), "C:\\$a{b}c$");
  EXPECT_EQ(Parsed("C:\\${}"), "C:\\${}");
  EXPECT_EQ(Parsed("C:\\${a__b}${_a}${a_}${a1}"), "C:\\${a__b}${_a}${a_}${a1}");
  EXPECT_THAT(helper.Traces(), Not(Contains(HasSubstr("supported"))));
}

// Nothing but the number of the drive tells one system from another here: it is that of the current folder.
TEST_F(ChromiumPath, ThatBeginsWithABackslashIsRooted) {
  const auto path = Parsed("\\data");
  ASSERT_TRUE(path);
  EXPECT_EQ(path->substr(1), ":\\data");
  EXPECT_EQ(Parsed("\\\\server\\share\\x"), "\\\\server\\share\\x");
}

TEST_F(ChromiumPath, HasItsDotsCarriedOut) {
  EXPECT_EQ(Parsed("C:\\a\\..\\b\\.\\c"), "C:\\b\\c");
  EXPECT_EQ(Parsed("C:\\..\\..\\b"), "C:\\b");
  EXPECT_EQ(Parsed("..\\..\\b"), "C:\\Program Files\\Google\\Chrome\\Application\\b");
  EXPECT_EQ(Parsed(".."), "C:\\Program Files\\Google\\Chrome\\Application\\");
  EXPECT_EQ(Parsed("C:/a/b"), "C:\\a\\b");
}

TEST_F(ChromiumPath, WithAVariableThatIsNotKnownKeepsItAndIsRelative) {
  EXPECT_EQ(Parsed("${temp}\\x"), "C:\\Program Files\\Google\\Chrome\\Application\\${temp}\\x");
  EXPECT_THAT(helper.Traces(),
              ElementsAre(Formatted("C:\\${temp}\\x"),
                          "ExpandEnvVariable: The environment variable ${temp} is not supported.\n",
                          "ExpandChromiumEnvVariableInPath: There is no matched variable in path string.\n"));
}

TEST_F(ChromiumPath, WithAKnownAndAnUnknownVariableHasTheKnownOneReplaced) {
  support::SetEnvironment("CLIENTNAME", "host");
  EXPECT_EQ(Parsed("C:\\${nothing}\\${client_name}"), "C:\\${nothing}\\host");
  EXPECT_THAT(helper.Traces(), Contains("ExpandEnvVariable: The environment variable ${nothing} is not supported.\n"));
}

TEST_F(ChromiumPath, ACapitalLetterMakesNoVariable) {
  EXPECT_EQ(Parsed("C:\\${Windows}"), "C:\\${Windows}");
  EXPECT_THAT(helper.Traces(), ElementsAre(Formatted("C:\\${Windows}"), kNoVariable));
}

TEST_F(ChromiumPath, TheSameVariableTwiceIsExpandedOnceAndReplacedInBothPlaces) {
  support::SetEnvironment("CLIENTNAME", "host");
  EXPECT_EQ(Parsed("C:\\${client_name}\\${client_name}"), "C:\\host\\host");
  EXPECT_THAT(helper.Traces(),
              ElementsAre(Formatted("C:\\${client_name}\\${client_name}"), Expanded("${client_name}", "host")));
}

TEST_F(ChromiumPath, AllElevenVariablesAreKnown) {
  support::SetEnvironment("CLIENTNAME", "client");
  support::SetEnvironment("SESSIONNAME", "session");
  for (const char* name : {"machine_name", "user_name", "client_name", "documents", "global_app_data", "local_app_data",
                           "profile", "program_files", "roaming_app_data", "session_name", "windows"}) {
    std::string path = "${" + std::string(name) + "}";
    EXPECT_TRUE(browser::ExpandChromiumEnvVariableInPath(path)) << name;
    EXPECT_THAT(path, Not(HasSubstr("$"))) << name;
    EXPECT_THAT(path, Not(HasSubstr("%"))) << name;
    EXPECT_NE(path, "");
  }
  const std::string local = support::Narrow(LocalFolder());
  const std::string profile = local.substr(0, local.size() - std::string("\\AppData\\Local").size());
  EXPECT_EQ(Parsed("${local_app_data}"), local);
  EXPECT_EQ(Parsed("${profile}"), profile);
  EXPECT_EQ(Parsed("${roaming_app_data}"), profile + "\\AppData\\Roaming");
  EXPECT_EQ(Parsed("${documents}"), profile + "\\Documents");
  EXPECT_EQ(Parsed("${global_app_data}"), "C:\\ProgramData");
  EXPECT_EQ(Parsed("${program_files}"), "C:\\Program Files");
  EXPECT_EQ(Parsed("${windows}"), "C:\\windows");
  EXPECT_EQ(Parsed("C:\\${client_name}-${session_name}"), "C:\\client-session");
  char machineName[platform::MAX_PATH] = "";
  platform::ExpandEnvironmentStringsA("%COMPUTERNAME%", machineName, platform::MAX_PATH);
  EXPECT_EQ(Parsed("C:\\${machine_name}"), "C:\\" + std::string(machineName));
  char16_t user[platform::MAX_PATH] = u"";
  platform::DWORD size = platform::MAX_PATH;
  ASSERT_TRUE(platform::GetUserNameW(user, &size));
  EXPECT_EQ(Parsed("C:\\${user_name}"), "C:\\" + support::Narrow(user));
}

TEST_F(ChromiumPath, DocumentsAreLookedUpAsAFolder) {
  std::string path = "${documents}";
  EXPECT_TRUE(browser::ExpandChromiumEnvVariableInPath(path));
  EXPECT_THAT(helper.Traces(),
              ElementsAre("ExpandEnvVariable: Expand environment variable ${documents} into: " + path + ".\n"));
}

TEST_F(ChromiumPath, AnEnvironmentVariableThatIsNotSetStaysAsItsNameAndCountsAsSuccess) {
  EXPECT_EQ(Parsed("C:\\${client_name}"), "C:\\%CLIENTNAME%");
  EXPECT_THAT(helper.Traces(), Contains(Expanded("${client_name}", "%CLIENTNAME%")));
}

// Each variable is replaced in one pass, in the order of the names: "${client_name}" comes ahead of "${session_name}".
TEST_F(ChromiumPath, AValueThatHoldsAVariableIsSearchedForLaterVariablesOnly) {
  support::SetEnvironment("CLIENTNAME", "<${session_name}${client_name}>");
  support::SetEnvironment("SESSIONNAME", "[${client_name}${session_name}]");
  EXPECT_EQ(Parsed("C:\\${session_name}\\${client_name}"),
            "C:\\[${client_name}${session_name}]\\<[${client_name}${session_name}]${client_name}>");
}

TEST_F(ChromiumPath, AValueThatHoldsAVariableThatThePathDoesNotHaveIsLeftAlone) {
  support::SetEnvironment("CLIENTNAME", "${windows}");
  EXPECT_EQ(Parsed("C:\\${client_name}"), "C:\\${windows}");
}

TEST_F(ChromiumPath, OnlyTheConfiguredTextIsVetted) {
  support::SetEnvironment("CLIENTNAME", "a|b:c");
  EXPECT_EQ(Parsed("C:\\${client_name}"), "C:\\a|b:c");
}

TEST_F(ChromiumPath, AnEnvironmentThatDoesNotFitTheBufferIsAFailedExpansion) {
  support::SetEnvironment("CLIENTNAME", std::string(300, 'x'));
  EXPECT_EQ(Parsed("C:\\${client_name}"), "C:\\${client_name}");
  EXPECT_THAT(helper.Traces(), ElementsAre(Formatted("C:\\${client_name}"),
                                           "ExpandEnvVariable: Failed to expand environment variable.\n",
                                           "ExpandChromiumEnvVariableInPath: There is no matched variable in path "
                                           "string.\n"));
}

TEST_F(ChromiumPath, OfFiveThousandUnitsCannotBeQualifiedAndStaysAsItIs) {
  const std::string path = "C:\\" + std::string(4997, 'x');
  EXPECT_EQ(Parsed(path), path);
  EXPECT_THAT(helper.Traces(), ElementsAre(kNoVariable));
  const std::string relative(5000, 'y');
  EXPECT_EQ(Parsed(relative), "C:\\Program Files\\Google\\Chrome\\Application\\" + relative);
}

// The registry holds texts of three times that length.
TEST_F(ChromiumPath, WithAVariableOfAnyLengthIsReadWithoutAStackOfThatDepth) {
  std::string words = "${a";
  while (words.size() < 150'000) words += "_a";
  for (const std::string& variable : {"${" + std::string(150'000, 'a') + "}", words + "}"}) {
    helper.Forget();
    EXPECT_EQ(Parsed("C:\\" + variable), "C:\\" + variable);
    EXPECT_THAT(helper.Traces(),
                Contains("ExpandChromiumEnvVariableInPath: There is no matched variable in path string.\n"));
  }
  helper.Forget();
  EXPECT_EQ(Parsed("C:\\" + words), "C:\\" + words);
  EXPECT_THAT(helper.Traces(), ElementsAre(kNoVariable));
}

TEST_F(ChromiumPath, WithTensOfThousandsOfVariablesHasEachReplaced) {
  support::SetEnvironment("CLIENTNAME", "a longer name than that of the variable");
  std::string path = "C:\\";
  std::string expected = path;
  for (int i = 0; i < 20'000; ++i) {
    path += "${client_name}";
    expected += "a longer name than that of the variable";
  }
  EXPECT_EQ(Parsed(path), expected);
}

// A path that may be a drive's ends up as that of its current folder, which is the drive's root when nobody has one.
TEST_F(ChromiumPath, ADriveAloneIsItsRoot) { EXPECT_EQ(Parsed("D:\\"), "D:\\"); }

TEST_F(ChromiumPath, TheKnownFoldersAreFound) {
  std::string path;
  EXPECT_TRUE(browser::GetKnownFolderPath(platform::FOLDERID_Documents, path));
  EXPECT_THAT(path, testing::EndsWith("\\Documents"));
  path = "kept";
  EXPECT_FALSE(browser::GetKnownFolderPath(platform::KNOWNFOLDERID{}, path));
  EXPECT_EQ(path, "kept");
  EXPECT_THAT(helper.Traces(),
              ElementsAre("GetKnownFolderPath: Failed to retrieve the full path of a known folder.\n"));
}

}  // namespace
}  // namespace resident
