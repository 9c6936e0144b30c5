// Which calls the helper's window procedure makes for a launch: counted, as only Linux can.
#include <string>

#include "launcher/helperWindow.h"
#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

using testing::Contains;
using testing::Not;

class HelperLaunch : public FrontEndTest {
 protected:
  ~HelperLaunch() override { platform::test::DisarmFaults(); }

  std::vector<std::string> CallsFor(const char16_t* origin, void* data, platform::DWORD size) {
    support::SetText(Hive::Machine, kRoot, u"Origin", origin);
    platform::COPYDATASTRUCT message{.dwData = 501, .cbData = size, .lpData = data};
    platform::test::ArmFaults(0, false, platform::ERROR_SUCCESS);
    EXPECT_EQ(launcher::HelperWindowProc({}, platform::WM_COPYDATA, 0, reinterpret_cast<platform::LPARAM>(&message)),
              0);
    platform::test::DisarmFaults();
    return platform::test::CountedCalls();
  }

  std::u16string line = u"C:\\no-such-program.exe";
};

TEST_F(HelperLaunch, StartsNoProcessOnAnAgent) {
  EXPECT_THAT(CallsFor(u"Agent", line.data(), 46), Not(Contains("CreateProcessW")));
}

TEST_F(HelperLaunch, StartsAProcessForEveryOtherOrigin) {
  EXPECT_THAT(CallsFor(u"Client", line.data(), 46), Contains("CreateProcessW"));
  EXPECT_THAT(CallsFor(u"Unheard", line.data(), 46), Contains("CreateProcessW"));
}

TEST_F(HelperLaunch, OfNoDataStartsNoProcess) {
  for (const platform::DWORD size : {0u, 46u}) {
    EXPECT_THAT(CallsFor(u"Client", nullptr, size), Not(Contains("CreateProcessW")));
  }
}

TEST_F(HelperLaunch, ThatFailsWaitsForNothing) {
  EXPECT_THAT(CallsFor(u"Client", line.data(), 46), Not(Contains("WaitForInputIdle")));
}

TEST_F(HelperLaunch, AWindowIsThereEvenWhenTheMessageFilterFails) {
  platform::test::ArmFaults(1, false, platform::ERROR_ACCESS_DENIED);
  EXPECT_EQ(launcher::HelperWindowProc({}, platform::WM_CREATE, 0, 0), 0);
  EXPECT_THAT(platform::test::CountedCalls(), testing::ElementsAre("!ChangeWindowMessageFilterEx"));
}

}  // namespace
}  // namespace unit
