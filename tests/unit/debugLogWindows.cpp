// The daily log with a temporary folder that is longer than a path may be: Windows takes it from the environment.
#include <cstdlib>
#include <string>

#include "launcher/debugLog.h"
#include "tests/support/process.h"
#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

class DebugLogPath : public FrontEndTest {
 protected:
  DebugLogPath() : folder_(std::getenv("TMP") != nullptr ? std::getenv("TMP") : "") {}
  ~DebugLogPath() override { support::SetEnvironment("TMP", folder_); }

 private:
  std::string folder_;
};

TEST_F(DebugLogPath, OfMoreThan260UnitsLosesTheText) {
  for (const std::size_t length : {200u, 240u, 250u, 256u, 257u, 258u, 300u, 1000u}) {
    ForgetLogState();
    support::SetEnvironment("TMP", "C:\\" + std::string(length, 'x'));
    debugLog::AppendDebugLogLine(u"lost\n");
  }
  EXPECT_THAT(log.Files(), testing::IsEmpty());
}

}  // namespace
}  // namespace unit
