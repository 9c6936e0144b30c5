#include "launcher/ruleMatching.h"

#include <regex>
#include <string>
#include <vector>

#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

using launcher::IsAppPathAllowed;
using launcher::MatchAppPathRules;
using testing::ElementsAre;
using testing::IsEmpty;

class RuleMatching : public TracedTest {};

TEST_F(RuleMatching, AnEmptyListAllowsNothing) {
  EXPECT_FALSE(IsAppPathAllowed(u"apppathrd/path=a", u""));
  EXPECT_FALSE(MatchAppPathRules(u"apppathrd/path=a", {}));
  EXPECT_THAT(helper.Traces(), IsEmpty());
}

TEST_F(RuleMatching, AListOfSeparatorsAloneAllowsNothing) {
  EXPECT_FALSE(IsAppPathAllowed(u"", u";;"));
  EXPECT_FALSE(IsAppPathAllowed(u"a", u";"));
  EXPECT_THAT(helper.Traces(), IsEmpty());
}

TEST_F(RuleMatching, LeadingTrailingAndDoubledSeparatorsMakeNoRule) {
  EXPECT_TRUE(IsAppPathAllowed(u"xbx", u";;a;;b;;"));
  EXPECT_FALSE(IsAppPathAllowed(u"xcx", u";;a;;b;;"));
}

TEST_F(RuleMatching, TheSecondRuleMatchesAnywhereInTheTextAndIsNamedInTheLog) {
  EXPECT_TRUE(IsAppPathAllowed(u"xxbxx", u"a;b"));
  EXPECT_THAT(helper.Traces(), ElementsAre("Match the rule b successfully.\n"));
}

TEST_F(RuleMatching, OnlyTheFirstRuleThatMatchesIsNamed) {
  EXPECT_TRUE(IsAppPathAllowed(u"abc", u"x;b;a;c"));
  EXPECT_THAT(helper.Traces(), ElementsAre("Match the rule b successfully.\n"));
}

TEST_F(RuleMatching, NothingIsLoggedWhenNoRuleMatches) {
  EXPECT_FALSE(IsAppPathAllowed(u"abc", u"x;y"));
  EXPECT_THAT(helper.HandOffs(), IsEmpty());
}

TEST_F(RuleMatching, DistinguishesCase) {
  EXPECT_FALSE(IsAppPathAllowed(u"abc", u"ABC"));
  EXPECT_TRUE(IsAppPathAllowed(u"ABC", u"ABC"));
}

TEST_F(RuleMatching, RulesAreNotTrimmed) {
  EXPECT_FALSE(IsAppPathAllowed(u"abc", u" abc"));
  EXPECT_FALSE(IsAppPathAllowed(u"abc", u"abc ;x"));
  EXPECT_TRUE(IsAppPathAllowed(u" abc", u" abc"));
}

TEST_F(RuleMatching, AnAnchoredRuleMeetsThePrefixFirst) {
  EXPECT_FALSE(IsAppPathAllowed(u"apppathrd/path=C:", u"^C:"));
  EXPECT_TRUE(IsAppPathAllowed(u"apppathrd/path=C:", u"^apppathrd/path=C:$"));
}

TEST_F(RuleMatching, AnEmptyPathMatchesARunOfAnything) { EXPECT_TRUE(IsAppPathAllowed(u"", u".*")); }

TEST_F(RuleMatching, PercentSignsAreMatchedAsTheyStand) {
  EXPECT_TRUE(IsAppPathAllowed(u"apppathrd/path=a%2Fb", u"a%2Fb$"));
  EXPECT_FALSE(IsAppPathAllowed(u"apppathrd/path=a%2Fb", u"a/b$"));
}

TEST_F(RuleMatching, AMalformedRuleThrows) {
  for (const char16_t* rule : {u"(", u")", u"[", u"*", u"a{2,1}", u"\\", u"(?<name>a)", u"[z-a]", u"(a)\\2"}) {
    EXPECT_THROW(static_cast<void>(IsAppPathAllowed(u"a", rule)), std::regex_error) << support::Narrow(rule);
  }
  EXPECT_THROW(static_cast<void>(IsAppPathAllowed(u"anything", u"(;.")), std::regex_error);
  EXPECT_THAT(helper.Traces(), IsEmpty());
}

TEST_F(RuleMatching, AMalformedRuleThrowsAlsoForATextThatNeedsAStackOfItsOwn) {
  EXPECT_THROW(static_cast<void>(IsAppPathAllowed(std::u16string(32767, u'a'), u"(.*")), std::regex_error);
}

TEST_F(RuleMatching, AMatchingRuleAheadOfAMalformedOneWins) {
  EXPECT_TRUE(IsAppPathAllowed(u"anything", u".;("));
  EXPECT_THAT(helper.Traces(), ElementsAre("Match the rule . successfully.\n"));
}

TEST_F(RuleMatching, ARuleThatDoesNotMatchAheadOfAMalformedOneDoesNotSaveIt) {
  EXPECT_THROW(static_cast<void>(IsAppPathAllowed(u"anything", u"x;(")), std::regex_error);
}

// A character beyond the first 65,536 is two units, and a rule counts units.
TEST_F(RuleMatching, ASurrogatePairIsTwoUnits) {
  EXPECT_FALSE(IsAppPathAllowed(u"\U0001F600", u"^.$"));
  EXPECT_TRUE(IsAppPathAllowed(u"\U0001F600", u"^..$"));
  EXPECT_TRUE(IsAppPathAllowed(u"a\U0001F600b", u"a\U0001F600b"));
}

TEST_F(RuleMatching, ALoneSurrogateIsAUnitLikeAnyOther) {
  const std::u16string lone(1, char16_t{0xD83D});
  EXPECT_TRUE(IsAppPathAllowed(u"a" + lone + u"b", u"a" + lone + u"b"));
  EXPECT_TRUE(IsAppPathAllowed(u"a" + lone + u"b", u"a.b"));
  EXPECT_FALSE(IsAppPathAllowed(u"a" + lone + u"b", u"a\U0001F600b"));
}

TEST_F(RuleMatching, TextBeyondTheBytesKeepsItsUnits) {
  EXPECT_TRUE(IsAppPathAllowed(u"\u4E2D\u6587", u"^\u4E2D\u6587$"));
  EXPECT_FALSE(IsAppPathAllowed(u"\u4E2D", u"-"));
}

TEST_F(RuleMatching, TheSameRulesAreCompiledAnewAtEachCall) {
  const std::vector<std::u16string> rules = {u"(a|b)+"};
  EXPECT_TRUE(MatchAppPathRules(u"xa", rules));
  EXPECT_FALSE(MatchAppPathRules(u"x", rules));
  EXPECT_TRUE(MatchAppPathRules(u"b", rules));
}

}  // namespace
}  // namespace unit
