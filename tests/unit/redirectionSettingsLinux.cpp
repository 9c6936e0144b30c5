// The handles that reading the settings leaves open.
#include <algorithm>

#include "platform/linux/testHooks.h"
#include "settings/redirectionSettings.h"
#include "tests/support/process.h"
#include "tests/unit/frontEndTest.h"

namespace unit {
namespace {

std::ptrdiff_t KeysLeftOpen() {
  const auto kinds = platform::test::LiveHandles();
  return std::ranges::count_if(kinds, [](const std::string& kind) { return kind != "CurrentUserHive"; });
}

// In a process of its own, for a key is left open, as settled.
CHILD_BODY(MovesOnToTheLegacyRoot) {
  SetLogging(false);
  const auto before = KeysLeftOpen();
  static_cast<void>(settings::IsSupportIpRules());
  return static_cast<int>(KeysLeftOpen() - before);
}

TEST(KeysLeftOpen, ByTheRulesOnAddressesAreOneWhereTheyMoveOnToTheLegacyRoot) {
  const support::Machine machine;
  EXPECT_EQ(support::StartChild("MovesOnToTheLegacyRoot").Wait(), 0);
  support::CreateKey(Hive::Machine, kRoot);
  EXPECT_EQ(support::StartChild("MovesOnToTheLegacyRoot").Wait(), 0);
  support::CreateKey(Hive::Machine, kLegacyRoot);
  EXPECT_EQ(support::StartChild("MovesOnToTheLegacyRoot").Wait(), 1);
  support::SetNumber(Hive::Machine, kRoot, u"EnabledIPRules", 0);
  EXPECT_EQ(support::StartChild("MovesOnToTheLegacyRoot").Wait(), 0);
}

TEST(KeysLeftOpen, ByAllOtherReadersAreNone) {
  const support::Machine machine;
  SetLogging(false);
  for (const char16_t* root : {kRoot, kLegacyRoot}) {
    support::SetText(Hive::Machine, root, u"Origin", u"Client");
    support::CreateKey(Hive::User, std::u16string(root) + u"\\http");
  }
  support::CreateKey(Hive::Machine, kPolicy);
  const auto before = KeysLeftOpen();
  std::u16string texts[4];
  settings::UrlOrigin origin = settings::UrlOrigin::Unknown;
  settings::IsURLRedirectionEnabled(nullptr);
  static_cast<void>(settings::CheckAppPathSettings(texts[0], texts[1], texts[2], origin));
  static_cast<void>(
      settings::GetProtocolRedirectionSettings(true, u"http", origin, texts[0], texts[1], texts[2], texts[3]));
  ForgetLogState();
  static_cast<void>(debugLog::IsDebugLogEnabled());
  EXPECT_EQ(KeysLeftOpen(), before);
}

}  // namespace
}  // namespace unit
