// User data directories when the system does not tell its folders, and those of a user with another name.
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

#include "browser/chromiumPath.h"
#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "tests/resident/residentTest.h"
#include "tests/support/process.h"

namespace resident {
namespace {

using settings::BrowserType;
using testing::Contains;
using ChromiumPathFaults = TracedResidentTest;

constexpr const char* kNoFolder = "GetKnownFolderPath: Failed to retrieve the full path of a known folder.\n";

bool ParsedWithFaultAt(const std::string& call, std::string& path,
                       platform::DWORD error = platform::ERROR_GEN_FAILURE) {
  std::string copy = path;
  platform::test::ArmFaults(0, false, 0);
  static_cast<void>(browser::ParseChromiumUserDataDirString(BrowserType::Chrome, copy));
  const std::vector<std::string> calls = platform::test::CountedCalls();
  platform::test::DisarmFaults();
  unsigned number = 0;
  for (unsigned i = 0; i < calls.size() && number == 0; ++i) number = calls[i] == call ? i + 1 : 0;
  EXPECT_NE(number, 0u) << call;
  platform::test::ArmFaults(number, false, error);
  const bool parsed = browser::ParseChromiumUserDataDirString(BrowserType::Chrome, path);
  platform::test::DisarmFaults();
  return parsed;
}

TEST_F(ChromiumPathFaults, WithoutTheDocumentsFolderTheOtherVariablesAreReplaced) {
  std::string path = "C:\\${documents}\\${windows}";
  EXPECT_TRUE(ParsedWithFaultAt("SHGetKnownFolderPath", path));
  EXPECT_EQ(path, "C:\\${documents}\\C:\\windows");
  EXPECT_THAT(helper.Traces(), Contains(kNoFolder));
  EXPECT_THAT(helper.Traces(), Contains("ExpandEnvVariable: Failed to retrieve the full path of Documents.\n"));
}

TEST_F(ChromiumPathFaults, WithoutTheProgramFilesFolderARelativePathIsRefused) {
  std::string path = "data";
  EXPECT_FALSE(ParsedWithFaultAt("SHGetKnownFolderPath", path));
  EXPECT_THAT(helper.Traces(), Contains(kNoFolder));
  EXPECT_THAT(helper.Traces(),
              Contains("ParseChromiumUserDataDirString: Failed to retrieve the full path of Program Files.\n"));
}

TEST_F(ChromiumPathFaults, AFolderThatIsSaidNotToFitIsConvertedOnceMore) {
  std::string path = "data";
  EXPECT_TRUE(ParsedWithFaultAt("WideCharToMultiByte", path, platform::ERROR_INSUFFICIENT_BUFFER));
  EXPECT_EQ(path, "C:\\Program Files\\Google\\Chrome\\Application\\data");
}

TEST_F(ChromiumPathFaults, ThatCannotBeQualifiedStays) {
  std::string path = "a\\..\\b";
  EXPECT_TRUE(ParsedWithFaultAt("PathSearchAndQualifyA", path));
  EXPECT_EQ(path, "C:\\Program Files\\Google\\Chrome\\Application\\a\\..\\b");
}

TEST_F(ChromiumPathFaults, AnExpansionThatFailsLeavesTheVariable) {
  std::string path = "C:\\${windows}";
  EXPECT_TRUE(ParsedWithFaultAt("ExpandEnvironmentStringsA", path));
  EXPECT_EQ(path, "C:\\${windows}");
  EXPECT_THAT(helper.Traces(), Contains("ExpandEnvVariable: Failed to expand environment variable.\n"));
}

// The documents folder of a user of that name; nothing when this one may not be another. The host knows none with that
// number, so that the environment's name counts.
std::optional<std::string> DocumentsOf(const std::string& user) {
  constexpr uid_t kUnknown = 54'321;
  const char* const before = std::getenv("USER");
  const std::string own = before != nullptr ? before : "";
  support::SetEnvironment("USER", user);
  std::optional<std::string> folder;
  std::thread([&folder] {  // The number is this thread's alone, and ends with it.
    if (syscall(SYS_setresuid, kUnknown, kUnknown, kUnknown) != 0) return;
    EXPECT_TRUE(browser::GetKnownFolderPath(platform::FOLDERID_Documents, folder.emplace()));
  })
      .join();
  prctl(PR_SET_DUMPABLE, 1);  // Which a change of user clears for the whole process, and the sanitizers need.
  before != nullptr ? support::SetEnvironment("USER", own) : support::UnsetEnvironment("USER");
  return folder;
}

using KnownFolder = ResidentTest;

// Not in UTF-8, as the texts are that it is joined with.
TEST_F(KnownFolder, WithLettersOutsideAsciiIsInTheAnsiCodePage) {
  const auto folder = DocumentsOf("J\xC3\xBCrgen \xE2\x82\xAC");
  if (!folder) GTEST_SKIP() << "this user may not become another";
  EXPECT_EQ(folder, "C:\\users\\J\xFCrgen \x80\\Documents");
}

}  // namespace
}  // namespace resident
