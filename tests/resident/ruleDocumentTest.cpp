// The document that browsers read. What is expected is written out by hand.
#include "settings/ruleDocument.h"

#include <json/reader.h>
#include <json/value.h>

#include "tests/resident/residentTest.h"

namespace resident {
namespace {

using settings::BrowserType;
using settings::GetUrlRedirectionRules;
using support::CreateKey;
using support::SetNumber;
using support::SetText;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using RuleDocument = TracedResidentTest;

constexpr const char* kEmptyConversion = "WStringToString: The input wstring is empty.\n";
constexpr const char* kConfigured = "GetUrlRedirectionRules: Url Redirection is configured.\n";

std::u16string Below(std::u16string_view name) { return kRoot + u"\\" + std::u16string(name); }

std::u16string Normalized(std::u16string rules) {
  settings::NormalizeRuleList(rules);
  return rules;
}

Json::Value Parsed(const std::string& text) {
  Json::Value value;
  std::string errors;
  const Json::CharReaderBuilder builder;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &errors)) << errors;
  return value;
}

std::vector<std::string> ProtocolsOf(const std::string& text) {
  std::vector<std::string> names;
  const Json::Value document = Parsed(text);
  for (const Json::Value& protocol : document["protocols"]) names.push_back(protocol["protocol"].asString());
  return names;
}

TEST_F(RuleDocument, OfAnAgentForChromeAndEdgeByteForByte) {
  MakeMachine(u"Agent");
  SetText(Hive::Machine, Below(u"http"), u"rules", u"*.example.com;intranet");
  const std::string expected =
      "{\n"
      "\t\"enabled\" : 1,\n"
      "\t\"enabledIpRule\" : 0,\n"
      "\t\"host\" : \"Windows\",\n"
      "\t\"origin\" : \"Agent\",\n"
      "\t\"protocols\" : \n"
      "\t[\n"
      "\t\t{\n"
      "\t\t\t\"agentRules\" : \"\",\n"
      "\t\t\t\"brokerHostname\" : \"\",\n"
      "\t\t\t\"clientRules\" : \".*.example.com;intranet\",\n"
      "\t\t\t\"protocol\" : \"http\",\n"
      "\t\t\t\"remoteItem\" : \"\"\n"
      "\t\t}\n"
      "\t],\n"
      "\t\"version\" : \"8.18.0\"\n"
      "}\n";
  EXPECT_EQ(GetUrlRedirectionRules(BrowserType::Chrome), expected);
  EXPECT_EQ(GetUrlRedirectionRules(BrowserType::Edge), expected);
}

TEST_F(RuleDocument, OfAClientForFirefoxByteForByte) {
  MakeMachine(u"Client");
  SetNumber(Hive::Machine, kRoot, u"EnabledIPRules", 1);
  SetText(Hive::Machine, Below(u"mailto"), u"rules", u"a@b");
  SetText(Hive::Machine, Below(u"mailto"), u"brokerHostname", u"broker");
  SetText(Hive::Machine, Below(u"mailto"), u"remoteItem", u"Mail \"7\"\\x/y");
  EXPECT_EQ(GetUrlRedirectionRules(BrowserType::Firefox),
            "{\n"
            "\t\"data\" : \n"
            "\t{\n"
            "\t\t\"enabled\" : 1,\n"
            "\t\t\"host\" : \"Windows\",\n"
            "\t\t\"origin\" : \"Client\",\n"
            "\t\t\"protocols\" : \n"
            "\t\t[\n"
            "\t\t\t{\n"
            "\t\t\t\t\"agentRules\" : \"a@b\",\n"
            "\t\t\t\t\"brokerHostname\" : \"broker\",\n"
            "\t\t\t\t\"clientRules\" : \"\",\n"
            "\t\t\t\t\"protocol\" : \"mailto\",\n"
            "\t\t\t\t\"remoteItem\" : \"Mail \\\"7\\\"\\\\x/y\"\n"
            "\t\t\t}\n"
            "\t\t],\n"
            "\t\t\"version\" : \"8.18.0\"\n"
            "\t},\n"
            "\t\"description\" : \"ignored\",\n"
            "\t\"name\" : \"url-rules@corvane-lumenar.x\",\n"
            "\t\"type\" : \"storage\"\n"
            "}\n");
}

TEST_F(RuleDocument, WithoutSchemesHasAnEmptyArray) {
  MakeMachine(u"Client");
  EXPECT_EQ(GetUrlRedirectionRules(BrowserType::Chrome),
            "{\n"
            "\t\"enabled\" : 1,\n"
            "\t\"enabledIpRule\" : 0,\n"
            "\t\"host\" : \"Windows\",\n"
            "\t\"origin\" : \"Client\",\n"
            "\t\"protocols\" : [],\n"
            "\t\"version\" : \"8.18.0\"\n"
            "}\n");
  EXPECT_THAT(helper.Traces(), ElementsAre(kConfigured, "IsSupportIpRules: Support IP rules - no.\n"));
}

TEST_F(RuleDocument, SupportForIpRulesIsANumberAndNotAskedForFirefox) {
  MakeMachine(u"Client");
  SetNumber(Hive::Machine, kRoot, u"EnabledIPRules", 7);
  EXPECT_THAT(GetUrlRedirectionRules(BrowserType::Edge), HasSubstr("\t\"enabledIpRule\" : 1,\n"));
  EXPECT_THAT(helper.Traces(), Contains("IsSupportIpRules: Support IP rules - yes.\n"));
  helper.Forget();
  EXPECT_THAT(GetUrlRedirectionRules(BrowserType::Firefox), Not(HasSubstr("enabledIpRule")));
  EXPECT_THAT(helper.Traces(), ElementsAre(kConfigured));
}

TEST_F(RuleDocument, IsWholeWhenRedirectionIsOffAndSaysSo) {
  MakeMachine(u"Agent", 0);
  CreateKey(Hive::Machine, Below(u"ftp"));
  const std::string text = GetUrlRedirectionRules(BrowserType::Chrome);
  EXPECT_THAT(text, HasSubstr("\t\"enabled\" : 0,\n"));
  EXPECT_THAT(ProtocolsOf(text), ElementsAre("ftp"));
}

TEST_F(RuleDocument, CharactersOutsideAsciiAreEscapes) {
  MakeMachine(u"Agent");
  SetText(Hive::Machine, Below(u"x"), u"brokerHostname", u"\u00fc\u4e2d\U0001F600\t\x01");
  SetText(Hive::Machine, Below(u"x"), u"remoteItem", u"a\xD800z");
  const std::string text = GetUrlRedirectionRules(BrowserType::Chrome);
  EXPECT_THAT(text, HasSubstr("\"brokerHostname\" : \"\\u00fc\\u4e2d\\ud83d\\ude00\\t\\u0001\",\n"));
  EXPECT_THAT(text, HasSubstr("\"remoteItem\" : \"a\\ufffdz\"\n"));
  EXPECT_TRUE(std::ranges::all_of(text, [](unsigned char byte) { return byte < 0x80; }));
}

TEST_F(RuleDocument, RulesOfAnAgentAreForTheClientAndTheOtherWayAbout) {
  SetText(Hive::Machine, Below(u"x"), u"rules", u"a");
  SetText(Hive::Machine, Below(u"x"), u"agentRules", u"not looked at");
  MakeMachine(u"Agent");
  EXPECT_THAT(GetUrlRedirectionRules(BrowserType::Chrome),
              testing::AllOf(HasSubstr("\"agentRules\" : \"\""), HasSubstr("\"clientRules\" : \"a\"")));
  MakeMachine(u"Client");
  EXPECT_THAT(GetUrlRedirectionRules(BrowserType::Chrome),
              testing::AllOf(HasSubstr("\"agentRules\" : \"a\""), HasSubstr("\"clientRules\" : \"\"")));
}

TEST_F(RuleDocument, RulesOfBothSidesAreNormalizedEach) {
  MakeMachine(u"Agent");
  SetText(Hive::Machine, Below(u"x"), u"clientRules", u";;*a;;b*;");
  SetText(Hive::Machine, Below(u"x"), u"agentRules", u"**;;;c");
  EXPECT_THAT(GetUrlRedirectionRules(BrowserType::Chrome),
              testing::AllOf(HasSubstr("\"agentRules\" : \".**;c\""), HasSubstr("\"clientRules\" : \".*a;b*\"")));
}

TEST_F(RuleDocument, ASchemeWithoutValuesHasEmptyMembersAndAMessageForEach) {
  MakeMachine(u"Agent");
  CreateKey(Hive::Machine, Below(u"x"));
  EXPECT_THAT(ProtocolsOf(GetUrlRedirectionRules(BrowserType::Chrome)), ElementsAre("x"));
  EXPECT_THAT(helper.Traces(), ElementsAre(kConfigured, kEmptyConversion, kEmptyConversion, kEmptyConversion,
                                           kEmptyConversion, "IsSupportIpRules: Support IP rules - no.\n"));
}

TEST_F(RuleDocument, SchemesComeInTheOrderOfTheRegistry) {
  MakeMachine(u"Agent");
  for (const char16_t* name : {u"zeta", u"Beta", u"alpha", u"gamma", u"ALPHA2"}) CreateKey(Hive::Machine, Below(name));
  std::vector<std::string> registry;
  for (const std::u16string& name : Subkeys(Hive::Machine, kRoot)) registry.push_back(support::Narrow(name));
  EXPECT_EQ(ProtocolsOf(GetUrlRedirectionRules(BrowserType::Chrome)), registry);
  EXPECT_THAT(registry, ElementsAre("alpha", "ALPHA2", "Beta", "gamma", "zeta"));
}

TEST_F(RuleDocument, TheUsersRootComesFirst) {
  MakeMachine(u"Agent");
  CreateKey(Hive::Machine, Below(u"machine"));
  SetText(Hive::User, kRoot, u"Origin", u"Client");
  SetNumber(Hive::User, kRoot, u"Enabled", 1);
  CreateKey(Hive::User, Below(u"user"));
  const std::string text = GetUrlRedirectionRules(BrowserType::Chrome);
  EXPECT_THAT(ProtocolsOf(text), ElementsAre("user"));
  EXPECT_THAT(text, HasSubstr("\"origin\" : \"Client\""));
}

TEST_F(RuleDocument, WithoutAnOriginThereIsNone) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  EXPECT_EQ(GetUrlRedirectionRules(BrowserType::Chrome), "");
  EXPECT_THAT(helper.Traces(), ElementsAre("GetUrlRedirectionRules: Url Redirection origin is unknown.\n"));
}

TEST_F(RuleDocument, WithAnOriginThatIsNeitherSideThereIsNone) {
  MakeMachine(u"agent");
  EXPECT_EQ(GetUrlRedirectionRules(BrowserType::Firefox), "");
  EXPECT_THAT(helper.Traces(), ElementsAre("GetUrlRedirectionRules: Url Redirection origin is unknown.\n"));
}

TEST_F(RuleDocument, WithoutACurrentRootThereIsNoneAlsoWhereThereIsALegacyRoot) {
  SetText(Hive::Machine, kLegacyRoot, u"Origin", u"Agent");
  SetNumber(Hive::Machine, kLegacyRoot, u"Enabled", 1);
  SetText(Hive::Machine, kLegacyRoot + u"\\old", u"rules", u"*r");
  EXPECT_EQ(GetUrlRedirectionRules(BrowserType::Chrome), "");
  EXPECT_THAT(helper.Traces(), ElementsAre("GetUrlRedirectionRules: Url Redirection origin is unknown.\n"));
}

TEST_F(RuleDocument, OfTheLegacyRootListsItsSchemesAndSaysThatRedirectionIsOff) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Agent");
  SetNumber(Hive::Machine, kLegacyRoot, u"Enabled", 1);
  SetText(Hive::Machine, kLegacyRoot + u"\\old", u"rules", u"*r");
  // The current root's, which the legacy one's takes the place of; and again when the rules on IP addresses are read.
  support::PromiseLeftOpen("NativeKey", 2);
  const std::string text = GetUrlRedirectionRules(BrowserType::Chrome);
  EXPECT_THAT(text, HasSubstr("\t\"enabled\" : 0,\n"));
  EXPECT_THAT(text, HasSubstr("\"clientRules\" : \".*r\""));
  EXPECT_THAT(ProtocolsOf(text), ElementsAre("old"));
  EXPECT_THAT(helper.Traces(), Contains("GetUrlRedirectionRules: Legacy Url Redirection is configured.\n"));
  EXPECT_THAT(helper.Traces(), Not(Contains(kConfigured)));
}

TEST_F(RuleDocument, OfALegacyRootThatIsOffIsBuiltAllTheSame) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Agent");
  SetNumber(Hive::Machine, kLegacyRoot, u"Enabled", 0);
  support::PromiseLeftOpen("NativeKey", 2);
  EXPECT_THAT(GetUrlRedirectionRules(BrowserType::Chrome), HasSubstr("\t\"enabled\" : 0,\n"));
}

TEST_F(RuleDocument, WithoutEnabledAndWithoutALegacyRootThereIsNone) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Agent");
  support::PromiseLeftOpen("NativeKey");
  EXPECT_EQ(GetUrlRedirectionRules(BrowserType::Chrome), "");
  EXPECT_THAT(helper.Traces(),
              ElementsAre("GetUrlRedirectionRules: Failed to open legacy Url Redirection root key.\n"));
}

TEST_F(RuleDocument, WithoutEnabledInEitherRootThereIsNoneAndNoMessage) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Agent");
  CreateKey(Hive::Machine, kLegacyRoot);
  support::PromiseLeftOpen("NativeKey", 2);
  EXPECT_EQ(GetUrlRedirectionRules(BrowserType::Chrome), "");
  EXPECT_THAT(helper.Traces(), IsEmpty());
}

TEST_F(RuleDocument, TakesThreeHundredSchemesWithHostileNames) {
  MakeMachine(u"Agent");
  std::vector<std::string> expected;
  for (char16_t i = 0; i < 300; ++i) {
    std::u16string name = u".\u00fc\xD800";
    name += static_cast<char16_t>(u'A' + i / 26 % 26);
    name += static_cast<char16_t>(u'A' + i % 26);
    name.resize(255, u'x');
    CreateKey(Hive::Machine, Below(name));
    expected.push_back(".\u00fc\uFFFD" + support::Narrow(name.substr(3)));
  }
  EXPECT_EQ(ProtocolsOf(GetUrlRedirectionRules(BrowserType::Chrome)), expected);
}

TEST_F(RuleDocument, TakesARuleListUpToTheLongestText) {
  MakeMachine(u"Agent");
  std::u16string rules;
  while (rules.size() < 0xFFFFF / 2 - 1) rules += u"*a;;";
  rules.resize(0xFFFFF / 2 - 1);
  SetText(Hive::Machine, Below(u"long"), u"rules", rules);           // 0xFFFFE bytes with its NUL.
  SetText(Hive::Machine, Below(u"longer"), u"rules", rules + u"b");  // 1 MiB, which is no text any more.
  const Json::Value document = Parsed(GetUrlRedirectionRules(BrowserType::Chrome));
  std::string expected;
  for (std::size_t i = 0; i < rules.size() / 4; ++i) expected += i == 0 ? ".*a" : ";.*a";
  switch (rules.size() % 4) {
    case 1: expected += ";.*"; break;
    case 2:
    case 3: expected += ";.*a"; break;
    default: break;
  }
  EXPECT_EQ(document["protocols"][0]["clientRules"].asString(), expected);
  EXPECT_EQ(document["protocols"][1]["clientRules"].asString(), "");
}

TEST(RuleList, GetsADotAheadOfALeadingAsteriskOnly) { EXPECT_EQ(Normalized(u"*.a;b*c;**;.*d"), u".*.a;b*c;.**;.*d"); }

TEST(RuleList, LosesEmptyElements) {
  EXPECT_EQ(Normalized(u";;a;;;b;"), u"a;b");
  EXPECT_EQ(Normalized(u""), u"");
  EXPECT_EQ(Normalized(u";;;;"), u"");
}

TEST(RuleList, EndsAtANul) {
  EXPECT_EQ(Normalized(std::u16string(u"*a;b\0c;d", 8)), u".*a;b");
  EXPECT_EQ(Normalized(std::u16string(u"\0a", 2)), u"");
}

TEST(RuleList, KeepsEverythingElseAsItIs) { EXPECT_EQ(Normalized(u" *a ; (;[\\\xD800"), u" *a ; (;[\\\xD800"); }

}  // namespace
}  // namespace resident
