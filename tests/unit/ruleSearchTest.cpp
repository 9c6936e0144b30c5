#include "launcher/ruleSearch.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <random>
#include <regex>
#include <string>

#include "tests/support/machine.h"

namespace unit {
namespace {

using launcher::ContainsMatch;
using launcher::MatchesFromLineStartsAlone;
using support::Narrow;

constexpr std::size_t kLongestText = 32767;

// Whether the text holds a match; nothing when the rule is no expression.
using Answer = std::optional<bool>;

Answer OfTheSearch(const std::u16string& text, const std::u16string& rule) {
  try {
    return ContainsMatch(text, rule);
  } catch (const std::regex_error&) {
    return std::nullopt;
  }
}

// The plain search that starts anew at every character.
Answer OfThePlainSearch(const std::u16string& text, const std::u16string& rule) {
  try {
    const std::wregex expression(std::wstring(rule.begin(), rule.end()), std::wregex::ECMAScript);
    return std::regex_search(std::wstring(text.begin(), text.end()), expression);
  } catch (const std::regex_error&) {
    return std::nullopt;
  }
}

std::string Word(const Answer& answer) { return !answer ? "malformed" : *answer ? "match" : "no match"; }

TEST(RuleSearch, AnswersAsThePlainSearchForRulesThatLeadWithARun) {
  const char16_t* const rules[] = {
      u".*",
      u".*x",
      u".*$",
      u".*^x",
      u"^.*x",
      u".*\\bx",
      u".*\\Bx",
      u".*\\b",
      u".*?x",
      u".*?",
      u".*{0}x",
      u".*{1}x",
      u".*?{0}x",
      u".**{0}x",
      u".*+{0}x",
      u".*?"
      u"?{0}x",
      u".**x",
      u".*+x",
      u".*?"
      u"?x",
      u".*{0,1}x",
      u".*?{0,}x",
      u".*|x",
      u"x|.*y",
      u".*x|y",
      u"(.*x|y)",
      u"(.*x|y)z",
      u".*(x|y)",
      u".*(x|y|)$",
      u".*(?:x|y)z",
      u".*\\(x|y",
      u".*\\|x",
      u".*\\)|x",
      u".*[|]x",
      u".*[(]|x",
      u".*[(|)]x",
      u".*[x|y",
      u".*[^x]y",
      u".*[[:alpha:]]x",
      u".*[\\]|]x",
      u".*(x)\\1",
      u".*(x|y)\\1",
      u".*(?=x)",
      u".*(?!x)y",
      u".*(?=x|y)z",
      u".*\\nx",
      u".*\\sx",
      u".*\nx",
      u".*x\n",
      u".*\\r",
      u".*.*x",
      u".*x.*y",
      u".*(.*)x",
      u"(.*)x",
      u".+x",
      u".?x",
      u"\\.*x",
      u".*\\",
      u".*(",
      u".*)",
      u".*x{2}",
      u".*x{0}y",
      u".*()x",
      u".*(x?)*y",
      u".*^",
      u".*\\x78",
      u".*\\u0078",
      u".*\\cJ",
      u".*\\0",
      u"x",
      u"",
      u"|",
      u"^x|.*",
  };
  using namespace std::string_literals;
  const std::u16string texts[] = {
      u"",     u"x",   u"ax",  u"xx",         u"xy",       u"y",        u"axyz",     u"a\nx",    u"a\n\nbx",
      u"\n",   u"\nx", u"x\n", u"a\rx",       u"\r\nx",    u"a\u2028x", u"\u2029xx", u"a\u2028", u"a b x y",
      u"axx",  u"a|x", u"a(x", u"a)x",        u"yz\nxz",   u"a\nxy\nz", u"\n\n\n",   u"xyxy",    u"a\0x"s,
      u"a\\x", u".x",  u"..x", u"aa\nbb\ncc", u"x\ny\nxx", u"[x|y",
  };
  for (const std::u16string rule : rules) {
    for (const std::u16string& text : texts) {
      EXPECT_EQ(Word(OfTheSearch(text, rule)), Word(OfThePlainSearch(text, rule)))
          << "rule '" << Narrow(rule) << "', text '" << Narrow(text) << "'";
    }
  }
}

class RandomRules {
 public:
  explicit RandomRules(std::uint32_t seed) : engine_(seed) {}

  // Repetitions of repetitions take the matcher time that grows by a power with each, so a rule has one besides the run
  // that leads it.
  std::u16string Rule() {
    std::u16string rule;
    if (Below(4) != 0) rule += u".*";
    const unsigned pieces = Below(7);
    for (unsigned i = 0, repetitions = 0; i < pieces; ++i) {
      const std::u16string_view piece = Piece();
      const bool repeats = piece == u"?" || piece.find_first_of(u"*+{") != piece.npos;
      if (repeats && ++repetitions > 1) continue;
      rule += piece;
    }
    return rule;
  }

  std::u16string Text() {
    static constexpr std::u16string_view kUnits = u"aabbcx \n\r\u2028\u2029";
    std::u16string text;
    const unsigned length = Below(9);
    for (unsigned i = 0; i < length; ++i) text += kUnits[Below(kUnits.size())];
    return text;
  }

 private:
  // Not a distribution of the library's: those differ between implementations, and a seed must mean the same on both
  // targets.
  unsigned Below(std::size_t bound) { return static_cast<unsigned>(engine_() % bound); }

  std::u16string_view Piece() {
    static constexpr std::u16string_view kPieces[] = {
        u"a",    u"b",   u"x",     u".",       u".*",  u"*",   u"+",     u"?",     u"{0}",  u"{2}",  u"{0,1}",
        u"(a",   u")",   u"(a|b)", u"(?:a|x)", u"|",   u"^",   u"$",     u"\\b",   u"\\B",  u"[ab]", u"[^a]",
        u"[|(]", u"\\1", u"\\|",   u"\\(",     u"\\n", u"\\s", u"(?=a)", u"(?!b)", u"(.*)", u"\n",   u"()"};
    return kPieces[Below(std::size(kPieces))];
  }

  std::mt19937 engine_;
};

// The seed is a new one each time and is printed when the answers differ; LUMENAR_SEED replays it.
TEST(RuleSearch, AnswersAsThePlainSearchForRandomRules) {
  const char* const replayed = std::getenv("LUMENAR_SEED");
  const std::uint32_t seed =
      replayed != nullptr ? static_cast<std::uint32_t>(std::strtoul(replayed, nullptr, 10)) : std::random_device{}();
  RandomRules random(seed);
  for (int i = 0; i < 1000; ++i) {
    const std::u16string rule = random.Rule();
    for (int j = 0; j < 5; ++j) {
      const std::u16string text = random.Text();
      ASSERT_EQ(Word(OfTheSearch(text, rule)), Word(OfThePlainSearch(text, rule)))
          << "LUMENAR_SEED=" << seed << ", rule '" << Narrow(rule) << "', text '" << Narrow(text) << "'";
    }
  }
}

TEST(LineStartsAlone, AreEnoughForALeadingRun) {
  for (const char16_t* rule :
       {u".*", u".*x", u".*?x", u".*$", u".*(a|b)", u".*(a|(b|c))d", u".*\\|x", u".*[ab]", u".*x{2}"}) {
    EXPECT_TRUE(MatchesFromLineStartsAlone(rule)) << Narrow(rule);
  }
}

TEST(LineStartsAlone, AreNotEnoughWhereTheRunMayBeMissing) {
  for (const char16_t* rule :
       {u"", u"x", u"x.*", u".+", u".", u"*", u"(.*)x", u"\\.*", u".*{0}x", u".*?{0}x", u".**{0}x", u".*+{0}x",
        u".*?"
        u"?{0}x",
        u".*a|b", u".*|b", u".*(a)|b", u".*\\(a|b", u".*(a))|b"}) {
    EXPECT_FALSE(MatchesFromLineStartsAlone(rule)) << Narrow(rule);
  }
}

// ---- The longest text that a command line can carry. ----

TEST(RuleSearchInTheLongestText, ARunOfAnythingMatches) {
  EXPECT_TRUE(ContainsMatch(std::u16string(kLongestText, u'a'), u".*"));
}

TEST(RuleSearchInTheLongestText, ARepeatedAlternativeMatches) {
  std::u16string text(kLongestText, u'a');
  for (std::size_t i = 0; i < text.size(); i += 2) text[i] = u'b';
  text.back() = u'c';
  EXPECT_TRUE(ContainsMatch(text, u"(a|b)*c"));
}

// A search that started anew at each character would take half a minute here, and minutes with a sanitizer.
TEST(RuleSearchInTheLongestText, ALeadingRunThatDoesNotMatchFinishes) {
  const std::u16string text(kLongestText, u'a');
  EXPECT_FALSE(ContainsMatch(text, u".*x"));
  EXPECT_FALSE(ContainsMatch(text, u".*(x|y)z"));
}

TEST(RuleSearchInTheLongestText, ManyLinesAreSearchedEach) {
  std::u16string text;
  while (text.size() + 10 < kLongestText) text += u"aaaaaaaaa\n";
  EXPECT_FALSE(ContainsMatch(text, u".*x"));
  EXPECT_TRUE(ContainsMatch(text + u"aax", u".*x"));
}

TEST(RuleSearchInTheLongestText, NestedGroupsMatch) {
  EXPECT_TRUE(ContainsMatch(std::u16string(kLongestText, u'a'), u"^((((a))))*$"));
  EXPECT_TRUE(ContainsMatch(std::u16string(kLongestText, u'a'), u"^(a|(b|(c|d)))+$"));
}

TEST(RuleSearchInTheLongestText, CountedRepetitionsMatch) {
  EXPECT_TRUE(ContainsMatch(std::u16string(kLongestText, u'a'), u"^(a{1,3})*$"));
  EXPECT_TRUE(ContainsMatch(std::u16string(kLongestText, u'a'), u"a{200}"));
}

TEST(RuleSearchInTheLongestText, AClassMatches) {
  EXPECT_TRUE(ContainsMatch(std::u16string(kLongestText, u'a'), u"^[a-z]*$"));
  EXPECT_TRUE(ContainsMatch(std::u16string(kLongestText, u'a'), u"^\\w+$"));
}

// Reading a rule nests as matching does: once for each of its parts.
TEST(RuleSearchForALongRule, ALiteralIsFound) {
  const std::u16string literal(30000, u'a');
  EXPECT_TRUE(ContainsMatch(u"x" + literal, literal));
  EXPECT_FALSE(ContainsMatch(u"a", literal));
}

TEST(RuleSearchForALongRule, PartsThatTakeNoCharacterAreFound) {
  std::u16string rule;
  for (int i = 0; i < 10000; ++i) rule += u"^";
  EXPECT_TRUE(ContainsMatch(u"a", rule + u"a"));
}

TEST(RuleSearchForALongRule, DeeplyNestedGroupsAreFound) {
  const std::u16string rule = std::u16string(5000, u'(') + u"a" + std::u16string(5000, u')');
  EXPECT_TRUE(ContainsMatch(u"ba", rule));
}

TEST(RuleSearchForALongRule, ManyAlternativesAreFound) {
  std::u16string rule = u"b";
  for (int i = 0; i < 10000; ++i) rule += u"|b";
  EXPECT_TRUE(ContainsMatch(u"ab", rule));
  EXPECT_FALSE(ContainsMatch(u"aa", rule));
}

TEST(RuleSearchForALongRule, OneBeyondTheMatchersLimitIsMalformed) {
  // In groups: the address sanitizer loses track of a throw from more than 64 MiB of stack.
  std::u16string rule;
  for (int i = 0; i < 400; ++i) rule += u"(" + std::u16string(500, u'a') + u")";
  EXPECT_THROW(static_cast<void>(ContainsMatch(u"a", rule)), std::regex_error);
}

}  // namespace
}  // namespace unit
