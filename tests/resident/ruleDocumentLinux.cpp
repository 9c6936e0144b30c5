// The rule document when a call of the system fails in the middle.
#include <algorithm>

#include "platform/error.h"
#include "platform/linux/testHooks.h"
#include "settings/ruleDocument.h"
#include "tests/resident/residentTest.h"

namespace resident {
namespace {

using settings::BrowserType;
using settings::GetUrlRedirectionRules;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using RuleDocumentFaults = TracedResidentTest;

// The numbers of the calls of that name, counted from 1, in the building of a document.
std::vector<unsigned> CallsOf(const std::string& name) {
  static_cast<void>(GetUrlRedirectionRules(BrowserType::Chrome));  // The first use of a service has calls of its own.
  platform::test::ArmFaults(0, false, 0);
  static_cast<void>(GetUrlRedirectionRules(BrowserType::Chrome));
  const std::vector<std::string> calls = platform::test::CountedCalls();
  platform::test::DisarmFaults();
  std::vector<unsigned> numbers;
  for (unsigned i = 0; i < calls.size(); ++i) {
    if (calls[i] == name) numbers.push_back(i + 1);
  }
  return numbers;
}

std::string RulesWithFaultAt(unsigned number, bool persistent = false) {
  platform::test::ArmFaults(number, persistent, platform::ERROR_NOT_ENOUGH_MEMORY);
  std::string rules = GetUrlRedirectionRules(BrowserType::Chrome);
  platform::test::DisarmFaults();
  return rules;
}

void MakeMachineWithSchemes() {
  MakeMachine(u"Agent");
  for (const char16_t* name : {u"a", u"b"}) support::CreateKey(Hive::Machine, kRoot + u"\\" + name);
}

// The names of the scheme keys that open in a document, told by making one open after the other fail.
TEST_F(RuleDocumentFaults, ASchemeThatDoesNotOpenInEitherTreeIsLeftOutWithoutAMessage) {
  MakeMachineWithSchemes();
  bool seen = false;
  for (const unsigned number : CallsOf("NtOpenKey")) {
    helper.Forget();
    const std::string rules = RulesWithFaultAt(number);
    if (rules.empty() || rules.find("\"protocol\" : \"a\"") != rules.npos) continue;
    seen = true;
    EXPECT_THAT(rules, HasSubstr("\"protocol\" : \"b\""));
    EXPECT_THAT(helper.Traces(), Not(Contains(HasSubstr("Failed"))));
  }
  EXPECT_TRUE(seen);
}

TEST_F(RuleDocumentFaults, WithoutARootThereIsNone) {
  MakeMachineWithSchemes();
  bool seen = false;
  for (const unsigned number : CallsOf("NtOpenKey")) {
    helper.Forget();
    if (RulesWithFaultAt(number).empty()) {
      seen |= testing::Value(
          helper.Traces(), testing::ElementsAre("GetUrlRedirectionRules: Failed to open Url Redirection root key.\n"));
    }
  }
  EXPECT_TRUE(seen);
}

TEST_F(RuleDocumentFaults, TheFirstNameThatCannotBeHadEndsTheList) {
  MakeMachineWithSchemes();
  const std::vector<unsigned> names = CallsOf("RegEnumKeyW");
  ASSERT_EQ(names.size(), 3u);
  const std::string rules = RulesWithFaultAt(names[1]);
  EXPECT_THAT(rules, HasSubstr("\"protocol\" : \"a\""));
  EXPECT_THAT(rules, Not(HasSubstr("\"protocol\" : \"b\"")));
}

TEST_F(RuleDocumentFaults, ATextThatCannotBeConvertedBecomesAnEmptyMember) {
  MakeMachineWithSchemes();
  const std::vector<unsigned> conversions = CallsOf("WideCharToMultiByte");
  helper.Forget();
  EXPECT_THAT(RulesWithFaultAt(conversions.at(1)), HasSubstr("\"protocol\" : \"\""));
  EXPECT_THAT(helper.Traces(), Contains("WStringToString: Failed to convert a, error=0x00000008\n"));
}

}  // namespace
}  // namespace resident
