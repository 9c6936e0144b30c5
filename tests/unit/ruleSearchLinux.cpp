// Rules when the system has no thread left.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "launcher/ruleSearch.h"
#include "platform/error.h"
#include "platform/linux/testHooks.h"

namespace unit {
namespace {

using launcher::ContainsMatch;

class RuleWithoutAThread : public testing::Test {
 protected:
  RuleWithoutAThread() { platform::test::ArmFaults(1, false, platform::ERROR_NOT_ENOUGH_MEMORY); }
  ~RuleWithoutAThread() override { platform::test::DisarmFaults(); }

  const std::u16string long_ = std::u16string(32'767, u'a');
};

TEST_F(RuleWithoutAThread, MatchesNoTextThatNeedsOne) {
  EXPECT_FALSE(ContainsMatch(long_, u"(a)+"));
  EXPECT_TRUE(ContainsMatch(long_, u"(a)+")) << "the next one has a thread";
}

TEST_F(RuleWithoutAThread, ThatIsNoExpressionIsToldAllTheSame) {
  EXPECT_THROW(static_cast<void>(ContainsMatch(long_, u"(a")), std::regex_error);
}

}  // namespace
}  // namespace unit
