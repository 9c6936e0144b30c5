// User data directories when the system does not tell its folders.
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

}  // namespace
}  // namespace resident
