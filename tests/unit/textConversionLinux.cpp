// Conversions that fail on demand.
#include "platform/linux/testHooks.h"
#include "settings/textConversion.h"
#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

using testing::ElementsAre;

class FailingTextConversion : public TracedTest {
 protected:
  ~FailingTextConversion() override { platform::test::DisarmFaults(); }
};

TEST_F(FailingTextConversion, IsTracedWithTheTextAndTheErrorAndIsEmpty) {
  platform::test::ArmFaults(2, false, 0x71);
  EXPECT_EQ(settings::WStringToString(u"text"), "");
  platform::test::ArmFaults(2, false, 0x71);
  EXPECT_EQ(settings::StringToWString("text"), u"");
  platform::test::DisarmFaults();
  EXPECT_THAT(helper.Traces(), ElementsAre("WStringToString: Failed to convert text, error=0x00000071\n",
                                           "StringToWString: Failed to convert text, error=0x00000071\n"));
}

TEST_F(FailingTextConversion, OfTheSizeGivesTheEmptyText) {
  platform::test::ArmFaults(1, false, 0x71);
  EXPECT_EQ(settings::WStringToString(u"text"), "");
  platform::test::ArmFaults(1, false, 0x71);
  EXPECT_EQ(settings::StringToWString("text"), u"");
}

}  // namespace
}  // namespace unit
