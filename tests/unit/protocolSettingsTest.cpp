#include <string>

#include "settings/redirectionSettings.h"
#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

using settings::UrlOrigin;
using support::SetText;

const std::u16string kHttp = std::u16string(kRoot) + u"\\http";
const std::u16string kLegacyHttp = std::u16string(kLegacyRoot) + u"\\http";

class ProtocolSettings : public TracedTest {
 protected:
  bool Read(bool fromCurrentUser, UrlOrigin origin = UrlOrigin::Client, std::u16string_view protocol = u"http") {
    return settings::GetProtocolRedirectionSettings(fromCurrentUser, protocol, origin, clientRules, agentRules,
                                                    brokerHostname, remoteItem);
  }
  void ExpectTexts(std::u16string_view client, std::u16string_view agent, std::u16string_view host,
                   std::u16string_view item) const {
    EXPECT_EQ(clientRules, client);
    EXPECT_EQ(agentRules, agent);
    EXPECT_EQ(brokerHostname, host);
    EXPECT_EQ(remoteItem, item);
  }

  std::u16string clientRules;
  std::u16string agentRules;
  std::u16string brokerHostname;
  std::u16string remoteItem;
};

TEST_F(ProtocolSettings, AreMissingWhereNeitherRootHasTheProtocol) {
  support::CreateKey(Hive::User, kRoot);
  support::CreateKey(Hive::User, kLegacyRoot);
  clientRules = u"old";
  EXPECT_FALSE(Read(true));
  EXPECT_EQ(clientRules, u"old");
}

TEST_F(ProtocolSettings, AreThoseOfTheHiveThatTheCallerChose) {
  SetText(Hive::User, kHttp, u"brokerHostname", u"of-user");
  EXPECT_FALSE(Read(false));
  SetText(Hive::Machine, kHttp, u"brokerHostname", u"of-machine");
  EXPECT_TRUE(Read(false));
  EXPECT_EQ(brokerHostname, u"of-machine");
  EXPECT_TRUE(Read(true));
  EXPECT_EQ(brokerHostname, u"of-user");
}

TEST_F(ProtocolSettings, OfTheCurrentTreeHideThoseOfTheLegacyTree) {
  for (const Hive hive : {Hive::User, Hive::Machine}) {
    SetText(hive, kLegacyHttp, u"brokerHostname", u"legacy");
    SetText(hive, kLegacyHttp, u"remoteItem", u"legacy-item");
    EXPECT_TRUE(Read(hive == Hive::User));
    ExpectTexts(u"", u"", u"legacy", u"legacy-item");
    brokerHostname.clear();
    remoteItem.clear();
    SetText(hive, kHttp, u"brokerHostname", u"current");
    EXPECT_TRUE(Read(hive == Hive::User));
    ExpectTexts(u"", u"", u"current", u"");
  }
}

TEST_F(ProtocolSettings, OneListOfRulesGoesToTheOtherSide) {
  SetText(Hive::User, kHttp, u"rules", u"one;two");
  const auto readWithOldRules = [this](UrlOrigin origin) {
    clientRules = u"old client";
    agentRules = u"old agent";
    EXPECT_TRUE(Read(true, origin));
  };
  readWithOldRules(UrlOrigin::Client);
  ExpectTexts(u"", u"one;two", u"", u"");
  readWithOldRules(UrlOrigin::Agent);
  ExpectTexts(u"one;two", u"", u"", u"");
  readWithOldRules(UrlOrigin::Unknown);
  ExpectTexts(u"one;two", u"", u"", u"");
}

TEST_F(ProtocolSettings, OneListOfRulesHidesTheListsOfTheSides) {
  SetText(Hive::User, kHttp, u"rules", u"one");
  SetText(Hive::User, kHttp, u"clientRules", u"client");
  SetText(Hive::User, kHttp, u"agentRules", u"agent");
  EXPECT_TRUE(Read(true, UrlOrigin::Client));
  ExpectTexts(u"", u"one", u"", u"");
}

TEST_F(ProtocolSettings, WithoutOneListEachSideHasItsOwn) {
  SetText(Hive::User, kHttp, u"clientRules", u"client");
  SetText(Hive::User, kHttp, u"agentRules", u"agent");
  SetText(Hive::User, kHttp, u"brokerHostname", u"host");
  SetText(Hive::User, kHttp, u"remoteItem", u"item");
  EXPECT_TRUE(Read(true, UrlOrigin::Client));
  ExpectTexts(u"client", u"agent", u"host", u"item");
  EXPECT_TRUE(Read(true, UrlOrigin::Agent));
  ExpectTexts(u"client", u"agent", u"host", u"item");
}

TEST_F(ProtocolSettings, AListOfZeroLengthCountsAsAbsent) {
  support::SetBytes(Hive::User, kHttp, u"rules", platform::REG_SZ, {});
  SetText(Hive::User, kHttp, u"clientRules", u"client");
  EXPECT_TRUE(Read(true));
  ExpectTexts(u"client", u"", u"", u"");
}

TEST_F(ProtocolSettings, AListOfANulAloneIsThereAndEmpty) {
  SetText(Hive::User, kHttp, u"rules", u"");
  SetText(Hive::User, kHttp, u"clientRules", u"client");
  EXPECT_TRUE(Read(true));
  ExpectTexts(u"", u"", u"", u"");
}

TEST_F(ProtocolSettings, AListOverTheLimitCountsAsAbsent) {
  support::SetBytes(Hive::User, kHttp, u"rules", platform::REG_SZ, std::vector<std::uint8_t>(0x100000, 0x61));
  SetText(Hive::User, kHttp, u"agentRules", u"agent");
  EXPECT_TRUE(Read(true));
  ExpectTexts(u"", u"agent", u"", u"");
}

TEST_F(ProtocolSettings, OnlyTheFirstElementOfAMultiStringIsSeen) {
  support::SetBytes(Hive::User, kHttp, u"clientRules", platform::REG_MULTI_SZ, {'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0});
  EXPECT_TRUE(Read(true));
  ExpectTexts(u"a", u"", u"", u"");
}

TEST_F(ProtocolSettings, TextsThatAreNotSetKeepWhatTheyHeld) {
  support::CreateKey(Hive::Machine, kHttp);
  clientRules = u"1";
  agentRules = u"2";
  brokerHostname = u"3";
  remoteItem = u"4";
  EXPECT_TRUE(Read(false));
  ExpectTexts(u"1", u"2", u"3", u"4");
}

TEST_F(ProtocolSettings, AProtocolsNameComparesWithoutCase) {
  SetText(Hive::User, kHttp, u"remoteItem", u"item");
  EXPECT_TRUE(Read(true, UrlOrigin::Client, u"HTTP"));
  EXPECT_EQ(remoteItem, u"item");
}

TEST_F(ProtocolSettings, NothingIsTraced) {
  Read(true);
  Read(false);
  EXPECT_THAT(helper.Traces(), testing::IsEmpty());
}

}  // namespace
}  // namespace unit
