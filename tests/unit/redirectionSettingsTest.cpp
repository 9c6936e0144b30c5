#include "settings/redirectionSettings.h"

#include <string>
#include <tuple>
#include <vector>

#include "platform/raii.h"
#include "settings/registryAccess.h"
#include "tests/support/process.h"
#include "tests/support/targets.h"
#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

using platform::UniqueNativeKey;
using settings::EnabledState;
using settings::UrlOrigin;
using support::SetNumber;
using support::SetText;
using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<std::uint8_t>;

class RedirectionSettings : public TracedTest {};

// ---- The origin. ----

TEST_F(RedirectionSettings, TheOriginIsUnknownWithoutARoot) {
  EXPECT_EQ(settings::GetUrlRedirectionOrigin(), UrlOrigin::Unknown);
}

TEST_F(RedirectionSettings, TheOriginIsTheWholeTextInItsExactCase) {
  const std::tuple<const char16_t*, UrlOrigin> cases[] = {
      {u"Agent", UrlOrigin::Agent},    {u"Client", UrlOrigin::Client},   {u"agent", UrlOrigin::Unknown},
      {u"CLIENT", UrlOrigin::Unknown}, {u"Agents", UrlOrigin::Unknown},  {u"MyAgent", UrlOrigin::Unknown},
      {u" Agent", UrlOrigin::Unknown}, {u"Client ", UrlOrigin::Unknown}, {u"", UrlOrigin::Unknown},
  };
  for (const auto& [text, origin] : cases) {
    SetText(Hive::Machine, kRoot, u"Origin", text);
    EXPECT_EQ(settings::GetUrlRedirectionOrigin(), origin) << support::Narrow(text);
  }
}

TEST_F(RedirectionSettings, TheOriginEndsAtItsFirstNul) {
  support::SetBytes(Hive::Machine, kRoot, u"Origin", platform::REG_MULTI_SZ,
                    Bytes{'A', 0, 'g', 0, 'e', 0, 'n', 0, 't', 0, 0, 0, 'x', 0, 0, 0, 0, 0});
  EXPECT_EQ(settings::GetUrlRedirectionOrigin(), UrlOrigin::Agent);
}

TEST_F(RedirectionSettings, TheOriginNeedsNoTerminator) {
  support::SetBytes(Hive::Machine, kRoot, u"Origin", platform::REG_BINARY,
                    Bytes{'C', 0, 'l', 0, 'i', 0, 'e', 0, 'n', 0, 't', 0});
  EXPECT_EQ(settings::GetUrlRedirectionOrigin(), UrlOrigin::Client);
}

TEST_F(RedirectionSettings, TheUsersRootHidesTheMachinesOriginEvenWhenItHasNone) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Agent");
  support::CreateKey(Hive::User, kRoot);
  EXPECT_EQ(settings::GetUrlRedirectionOrigin(), UrlOrigin::Unknown);
  SetText(Hive::User, kRoot, u"Origin", u"Client");
  EXPECT_EQ(settings::GetUrlRedirectionOrigin(), UrlOrigin::Client);
}

TEST_F(RedirectionSettings, TheOriginIsNeverThatOfALegacyRoot) {
  SetText(Hive::User, kLegacyRoot, u"Origin", u"Agent");
  SetText(Hive::Machine, kLegacyRoot, u"Origin", u"Agent");
  EXPECT_EQ(settings::GetUrlRedirectionOrigin(), UrlOrigin::Unknown);
}

// ---- Whether redirection is enabled, for the entry and the handlers. ----

TEST_F(RedirectionSettings, WithoutARootRedirectionIsDisabledAndTheLogSaysSo) {
  bool isAgent = true;
  EXPECT_FALSE(settings::IsURLRedirectionEnabled(&isAgent));
  EXPECT_TRUE(isAgent);
  EXPECT_FALSE(settings::IsURLRedirectionEnabled(nullptr));
  const std::string line = "IsURLRedirectionEnabled: Failed to open url redirection root key.\n";
  EXPECT_THAT(log.Texts(), ElementsAre(line, line));
}

TEST_F(RedirectionSettings, AnEmptyUsersRootMeansDisabledWhateverTheMachineSays) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  SetText(Hive::Machine, kRoot, u"Origin", u"Agent");
  support::CreateKey(Hive::User, kRoot);
  bool isAgent = false;
  EXPECT_FALSE(settings::IsURLRedirectionEnabled(&isAgent));
  EXPECT_FALSE(isAgent);
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(RedirectionSettings, TheAgentIsFoundAnywhereInTheOriginInItsExactCase) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  const std::tuple<const char16_t*, bool> cases[] = {
      {u"Agent", true}, {u"MyAgents", true}, {u"Client", false}, {u"agent", false}, {u"AGENT", false}, {u"", false},
  };
  for (const auto& [text, expected] : cases) {
    SetText(Hive::Machine, kRoot, u"Origin", text);
    for (const bool before : {false, true}) {
      bool isAgent = before;
      EXPECT_TRUE(settings::IsURLRedirectionEnabled(&isAgent));
      EXPECT_EQ(isAgent, expected) << support::Narrow(text);
    }
  }
}

TEST_F(RedirectionSettings, AnOriginThatIsNotThereLeavesTheAgentAlone) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  bool isAgent = true;
  EXPECT_TRUE(settings::IsURLRedirectionEnabled(&isAgent));
  EXPECT_TRUE(isAgent);
}

TEST_F(RedirectionSettings, AnOriginOfMoreThan64BytesLeavesTheAgentAlone) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  bool isAgent = false;
  SetText(Hive::Machine, kRoot, u"Origin", std::u16string(27, u'x') + u"Agent");  // 66 bytes with its NUL.
  EXPECT_TRUE(settings::IsURLRedirectionEnabled(&isAgent));
  EXPECT_FALSE(isAgent);
  SetText(Hive::Machine, kRoot, u"Origin", std::u16string(26, u'x') + u"Agent");
  EXPECT_TRUE(settings::IsURLRedirectionEnabled(&isAgent));
  EXPECT_TRUE(isAgent);
}

TEST_F(RedirectionSettings, AnOriginThatIsNoTextIsLookedAtAllTheSame) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  std::vector<std::uint8_t> bytes(64, 0x41);  // Without a NUL, and as long as the buffer.
  support::SetBytes(Hive::Machine, kRoot, u"Origin", platform::REG_BINARY, bytes);
  bool isAgent = true;
  EXPECT_TRUE(settings::IsURLRedirectionEnabled(&isAgent));
  EXPECT_FALSE(isAgent);
}

TEST_F(RedirectionSettings, AnyNumberButZeroEnables) {
  for (const std::uint32_t number : {1u, 2u, 0x80000000u, 0xFFFFFFFFu}) {
    SetNumber(Hive::Machine, kRoot, u"Enabled", number);
    EXPECT_TRUE(settings::IsURLRedirectionEnabled(nullptr));
  }
  SetNumber(Hive::Machine, kRoot, u"Enabled", 0);
  EXPECT_FALSE(settings::IsURLRedirectionEnabled(nullptr));
}

TEST_F(RedirectionSettings, ANumberOfEightBytesDisables) {
  support::SetBytes(Hive::Machine, kRoot, u"Enabled", platform::REG_QWORD, Bytes{1, 0, 0, 0, 0, 0, 0, 0});
  EXPECT_FALSE(settings::IsURLRedirectionEnabled(nullptr));
}

// ---- The roots. ----

TEST_F(RedirectionSettings, TheRootIsTheUsersElseTheMachines) {
  for (const auto& [open, root] :
       {std::tuple{&settings::OpenRootKey, kRoot}, std::tuple{&settings::OpenLegacyRootKey, kLegacyRoot}}) {
    UniqueNativeKey key;
    bool fromCurrentUser = true;
    EXPECT_NE(open(key.put(), &fromCurrentUser), 0);
    EXPECT_FALSE(fromCurrentUser);

    SetNumber(Hive::Machine, root, u"mark", 1);
    platform::DWORD mark = 0;
    fromCurrentUser = true;
    EXPECT_EQ(open(key.put(), &fromCurrentUser), 0);
    EXPECT_FALSE(fromCurrentUser);
    EXPECT_TRUE(settings::ReadNumber(key.get(), u"mark", &mark));
    EXPECT_EQ(mark, 1u);

    SetNumber(Hive::User, root, u"mark", 2);
    EXPECT_EQ(open(key.put(), &fromCurrentUser), 0);
    EXPECT_TRUE(fromCurrentUser);
    EXPECT_TRUE(settings::ReadNumber(key.get(), u"mark", &mark));
    EXPECT_EQ(mark, 2u);
    EXPECT_EQ(open(key.put(), nullptr), 0);
  }
}

// ---- The state of one root. ----

class QueriedState : public RedirectionSettings {
 protected:
  EnabledState OfMachine(bool fromCurrentUser = false) {
    support::CreateKey(Hive::Machine, kRoot);
    UniqueNativeKey key;
    EXPECT_EQ(settings::OpenRootKey(key.put(), nullptr), 0);
    return settings::QueryEnabledState(fromCurrentUser, key.get(), kRoot);
  }
};

TEST_F(QueriedState, HasThreeNumbers) {
  EXPECT_EQ(static_cast<int>(EnabledState::Unreadable), 0);
  EXPECT_EQ(static_cast<int>(EnabledState::Disabled), 1);
  EXPECT_EQ(static_cast<int>(EnabledState::Enabled), 5);
}

TEST_F(QueriedState, IsUnreadableWithoutTheValueOrWithALongOne) {
  EXPECT_EQ(OfMachine(), EnabledState::Unreadable);
  for (const std::size_t length : {5u, 6u, 7u, 8u}) {
    support::SetBytes(Hive::Machine, kRoot, u"Enabled", platform::REG_BINARY, Bytes(length, 1));
    EXPECT_EQ(OfMachine(), EnabledState::Unreadable) << length;
  }
}

TEST_F(QueriedState, TakesAValueOfAnyTypeAndOfFewerBytes) {
  support::SetBytes(Hive::Machine, kRoot, u"Enabled", platform::REG_SZ, Bytes{0, 1});
  EXPECT_EQ(OfMachine(), EnabledState::Enabled);
  support::SetBytes(Hive::Machine, kRoot, u"Enabled", platform::REG_BINARY, Bytes{});
  EXPECT_EQ(OfMachine(), EnabledState::Disabled);
}

TEST_F(QueriedState, OfAnEnabledMachineStandsWithoutAUsersThirtyTwoBitView) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  EXPECT_EQ(OfMachine(), EnabledState::Enabled);
}

TEST_F(QueriedState, OfAnEnabledMachineIsTurnedOffByTheUsersThirtyTwoBitView) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  SetNumber(Hive::User, kRoot32, u"Enabled", 0);
  EXPECT_EQ(OfMachine(), support::kUserHas32BitView ? EnabledState::Disabled : EnabledState::Enabled);
  SetNumber(Hive::User, kRoot32, u"Enabled", 7);
  EXPECT_EQ(OfMachine(), EnabledState::Enabled);
}

TEST_F(QueriedState, OfADisabledMachineIsNotTurnedOnByTheUsersThirtyTwoBitView) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 0);
  SetNumber(Hive::User, kRoot32, u"Enabled", 1);
  EXPECT_EQ(OfMachine(), EnabledState::Disabled);
}

TEST_F(QueriedState, OfAUsersRootIsNotReadAgain) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  SetNumber(Hive::User, kRoot32, u"Enabled", 0);
  EXPECT_EQ(OfMachine(true), EnabledState::Enabled);
}

TEST_F(QueriedState, StandsWhenTheValueOfTheThirtyTwoBitViewIsMissingOrTooLong) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  support::CreateKey(Hive::User, kRoot32);
  EXPECT_EQ(OfMachine(), EnabledState::Enabled);
  support::SetBytes(Hive::User, kRoot32, u"Enabled", platform::REG_QWORD, Bytes(8, 0));
  EXPECT_EQ(OfMachine(), EnabledState::Enabled);
}

TEST_F(QueriedState, LooksForTheThirtyTwoBitViewOfItsOwnRoot) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  SetNumber(Hive::User, kLegacyRoot32, u"Enabled", 0);
  EXPECT_EQ(OfMachine(), EnabledState::Enabled);
}

// ---- Rules on addresses. ----

class IpRules : public RedirectionSettings {
 protected:
  static constexpr const char* kYes = "IsSupportIpRules: Support IP rules - yes.\n";
  static constexpr const char* kNo = "IsSupportIpRules: Support IP rules - no.\n";
};

TEST_F(IpRules, AreOffWithoutACurrentRootWhateverTheLegacyRootSays) {
  SetNumber(Hive::User, kLegacyRoot, u"EnabledIPRules", 1);
  SetNumber(Hive::Machine, kLegacyRoot, u"EnabledIPRules", 1);
  EXPECT_FALSE(settings::IsSupportIpRules());
  EXPECT_THAT(helper.Traces(), ElementsAre(kNo));
}

TEST_F(IpRules, AreWhatTheCurrentRootSays) {
  SetNumber(Hive::Machine, kRoot, u"EnabledIPRules", 1);
  SetNumber(Hive::Machine, kLegacyRoot, u"EnabledIPRules", 0);
  EXPECT_TRUE(settings::IsSupportIpRules());
  SetNumber(Hive::Machine, kRoot, u"EnabledIPRules", 0);
  SetNumber(Hive::Machine, kLegacyRoot, u"EnabledIPRules", 1);
  EXPECT_FALSE(settings::IsSupportIpRules());
  EXPECT_THAT(helper.Traces(), ElementsAre(kYes, kNo));
}

// In a process of its own, for the key of the current root stays open.
CHILD_BODY(ReadsIpRulesOfTheLegacyRoot) {
  SetLogging(false);
  const bool withoutTheValue = settings::IsSupportIpRules();
  SetNumber(Hive::Machine, kLegacyRoot, u"EnabledIPRules", 1);
  const bool ofMachine = settings::IsSupportIpRules();
  support::CreateKey(Hive::User, kLegacyRoot);
  const bool ofUser = settings::IsSupportIpRules();
  return !withoutTheValue && ofMachine && !ofUser ? 0 : 1;
}

TEST_F(IpRules, AreWhatTheLegacyRootSaysWhenTheCurrentOneHasNoValue) {
  support::CreateKey(Hive::Machine, kRoot);
  support::CreateKey(Hive::Machine, kLegacyRoot);
  EXPECT_EQ(support::StartChild("ReadsIpRulesOfTheLegacyRoot").Wait(), 0);
}

TEST_F(IpRules, AreOffWhenNeitherGenerationSaysAnything) {
  support::CreateKey(Hive::Machine, kRoot);
  EXPECT_FALSE(settings::IsSupportIpRules());
  EXPECT_THAT(helper.Traces(), ElementsAre(kNo));
}

}  // namespace
}  // namespace unit
