#include <string>

#include "settings/redirectionSettings.h"
#include "tests/support/targets.h"
#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

using settings::UrlOrigin;
using support::SetNumber;
using support::SetText;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kOriginUnknown = "CheckAppPathSettings: Url Redirection origin is unknown.\n";
constexpr const char* kNoLegacyRoot = "CheckAppPathSettings: Failed to open legacy Url Redirection root key.\n";
constexpr const char* kLegacyEnabled = "CheckAppPathSettings: Legacy Url Redirection is enabled.\n";
constexpr const char* kNoPolicy = "Failed to get app path settings.\n";

class AppPathSettings : public TracedTest {
 protected:
  bool Check() { return settings::CheckAppPathSettings(allowlist, brokerHostname, remoteItem, origin); }
  static void StorePolicy(const char16_t* key) {
    SetText(Hive::Machine, key, u"allowlist", u"a;b");
    SetText(Hive::Machine, key, u"brokerHostname", u"host1");
    SetText(Hive::Machine, key, u"remoteItem", u"Calc");
  }

  std::u16string allowlist;
  std::u16string brokerHostname;
  std::u16string remoteItem;
  UrlOrigin origin = UrlOrigin::Unknown;
};

TEST_F(AppPathSettings, FailWithoutARoot) {
  origin = UrlOrigin::Agent;
  EXPECT_FALSE(Check());
  EXPECT_EQ(origin, UrlOrigin::Unknown);
  EXPECT_THAT(helper.Traces(), ElementsAre(kOriginUnknown));
}

TEST_F(AppPathSettings, FailWithALegacyRootAloneThoughTheEntryFindsItEnabled) {
  SetText(Hive::Machine, kLegacyRoot, u"Origin", u"Client");
  SetNumber(Hive::Machine, kLegacyRoot, u"Enabled", 1);
  StorePolicy(kPolicy);
  EXPECT_TRUE(settings::IsURLRedirectionEnabled(nullptr));
  EXPECT_FALSE(Check());
  EXPECT_THAT(helper.Traces(), ElementsAre(kOriginUnknown));
}

TEST_F(AppPathSettings, AreReadForAClientAndForAnAgent) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  StorePolicy(kPolicy);
  for (const auto& [text, expected] :
       {std::pair{u"Client", UrlOrigin::Client}, std::pair{u"Agent", UrlOrigin::Agent}}) {
    helper.Forget();
    SetText(Hive::Machine, kRoot, u"Origin", text);
    EXPECT_TRUE(Check());
    EXPECT_EQ(origin, expected);
    EXPECT_EQ(allowlist, u"a;b");
    EXPECT_EQ(brokerHostname, u"host1");
    EXPECT_EQ(remoteItem, u"Calc");
    EXPECT_THAT(helper.Traces(), ElementsAre(kEnabled));
  }
}

TEST_F(AppPathSettings, FailSilentlyWhenRedirectionIsOff) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Client");
  SetNumber(Hive::Machine, kRoot, u"Enabled", 0);
  StorePolicy(kPolicy);
  EXPECT_FALSE(Check());
  EXPECT_EQ(origin, UrlOrigin::Client);
  EXPECT_THAT(helper.Traces(), IsEmpty());
}

TEST_F(AppPathSettings, OfACurrentRootThatSaysOffDoNotLookAtTheLegacyRoot) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Client");
  SetNumber(Hive::Machine, kRoot, u"Enabled", 0);
  SetNumber(Hive::Machine, kLegacyRoot, u"Enabled", 1);
  StorePolicy(kPolicy);
  EXPECT_FALSE(Check());
  EXPECT_THAT(helper.Traces(), IsEmpty());
}

TEST_F(AppPathSettings, AreTurnedOffByTheUsersThirtyTwoBitView) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Client");
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  SetNumber(Hive::User, kRoot32, u"Enabled", 0);
  StorePolicy(kPolicy);
  EXPECT_EQ(Check(), !support::kUserHas32BitView);
  EXPECT_EQ(helper.Traces().empty(), support::kUserHas32BitView);
}

TEST_F(AppPathSettings, AreNotTurnedOnByTheUsersThirtyTwoBitView) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Client");
  SetNumber(Hive::Machine, kRoot, u"Enabled", 0);
  SetNumber(Hive::User, kRoot32, u"Enabled", 1);
  StorePolicy(kPolicy);
  EXPECT_FALSE(Check());
}

TEST_F(AppPathSettings, OfAUsersRootAreNotReadAgainInTheThirtyTwoBitView) {
  SetText(Hive::User, kRoot, u"Origin", u"Client");
  SetNumber(Hive::User, kRoot, u"Enabled", 1);
  SetNumber(Hive::User, kRoot32, u"Enabled", 0);
  StorePolicy(kPolicy);
  EXPECT_TRUE(Check());
}

TEST_F(AppPathSettings, WithoutAnEnabledValueNeedALegacyRoot) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Client");
  StorePolicy(kPolicy);
  EXPECT_FALSE(Check());
  EXPECT_THAT(helper.Traces(), ElementsAre(kNoLegacyRoot));
}

TEST_F(AppPathSettings, WithoutAnEnabledValueAreEnabledByTheLegacyRoot) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Client");
  SetNumber(Hive::Machine, kLegacyRoot, u"Enabled", 1);
  StorePolicy(kPolicy);
  EXPECT_TRUE(Check());
  EXPECT_THAT(helper.Traces(), ElementsAre(kLegacyEnabled));
}

TEST_F(AppPathSettings, FailSilentlyWhenTheLegacyRootIsOffOrSaysNothing) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Client");
  StorePolicy(kPolicy);
  support::CreateKey(Hive::Machine, kLegacyRoot);
  EXPECT_FALSE(Check());
  SetNumber(Hive::Machine, kLegacyRoot, u"Enabled", 0);
  EXPECT_FALSE(Check());
  EXPECT_THAT(helper.Traces(), IsEmpty());
}

TEST_F(AppPathSettings, OfTheLegacyRootAreTurnedOffByTheUsersThirtyTwoBitView) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Client");
  StorePolicy(kPolicy);
  SetNumber(Hive::Machine, kLegacyRoot, u"Enabled", 1);
  SetNumber(Hive::User, kLegacyRoot32, u"Enabled", 0);
  EXPECT_EQ(Check(), !support::kUserHas32BitView);
  EXPECT_EQ(helper.Traces().empty(), support::kUserHas32BitView);
}

TEST_F(AppPathSettings, OfAnEmptyUsersRootWithAnOriginMoveOnToTheLegacyRootThoughTheMachineIsEnabled) {
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  SetText(Hive::User, kRoot, u"Origin", u"Client");
  StorePolicy(kPolicy);
  EXPECT_FALSE(settings::IsURLRedirectionEnabled(nullptr));
  EXPECT_FALSE(Check());
  EXPECT_THAT(helper.Traces(), ElementsAre(kNoLegacyRoot));
  helper.Forget();
  SetNumber(Hive::User, kLegacyRoot, u"Enabled", 1);
  EXPECT_TRUE(Check());
  EXPECT_THAT(helper.Traces(), ElementsAre(kLegacyEnabled));
}

TEST_F(AppPathSettings, WithoutAPolicyFailAfterTheyWereFoundEnabled) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Client");
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  EXPECT_FALSE(Check());
  EXPECT_THAT(helper.Traces(), ElementsAre(kEnabled, kNoPolicy));
}

TEST_F(AppPathSettings, OfTheLegacyPolicyCountOnlyWithoutTheCurrentOne) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Client");
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  StorePolicy(kLegacyPolicy);
  EXPECT_TRUE(Check());
  EXPECT_EQ(allowlist, u"a;b");

  allowlist = u"old";
  support::CreateKey(Hive::Machine, kPolicy);
  EXPECT_TRUE(Check());
  EXPECT_EQ(allowlist, u"old");
}

TEST_F(AppPathSettings, OfTheUsersHiveAreNoPolicy) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Client");
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  SetText(Hive::User, kPolicy, u"allowlist", u".*");
  EXPECT_FALSE(Check());
}

TEST_F(AppPathSettings, ThatAreNotSetKeepWhatTheyHeldEachByItself) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Client");
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  SetText(Hive::Machine, kPolicy, u"brokerHostname", u"host1");
  allowlist = u"old list";
  remoteItem = u"old item";
  EXPECT_TRUE(Check());
  EXPECT_EQ(allowlist, u"old list");
  EXPECT_EQ(brokerHostname, u"host1");
  EXPECT_EQ(remoteItem, u"old item");
}

TEST_F(AppPathSettings, SeeOnlyTheFirstElementOfAMultiString) {
  SetText(Hive::Machine, kRoot, u"Origin", u"Client");
  SetNumber(Hive::Machine, kRoot, u"Enabled", 1);
  support::SetBytes(Hive::Machine, kPolicy, u"allowlist", platform::REG_MULTI_SZ,
                    {'a', 0, ';', 0, 'b', 0, 0, 0, 'c', 0, 0, 0, 0, 0});
  EXPECT_TRUE(Check());
  EXPECT_EQ(allowlist, u"a;b");
}

TEST_F(AppPathSettings, TraceNothingWithLoggingOff) {
  SetLogging(false);
  EXPECT_FALSE(Check());
  EXPECT_THAT(helper.HandOffs(), IsEmpty());
}

}  // namespace
}  // namespace unit
