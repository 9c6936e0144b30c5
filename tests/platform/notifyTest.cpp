// Notifications of changes in the registry.
#include <gtest/gtest.h>

#include <string>

#include "platform/error.h"
#include "platform/raii.h"
#include "tests/platform/registrySupport.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

using namespace platform;
using registryTests::kBound;
using registryTests::kFilter;
using support::Hive;

const std::u16string kKey = u"Software\\LumenarTest\\watched";

CHILD_BODY(ChangesTheWatchedKey) {
  for (std::string line = support::Hear(); !line.empty(); line = support::Hear()) {
    support::SetText(Hive::User, kKey, u"value", support::Wide(line));
    support::Say("changed");
  }
  return 0;
}

class RegistryNotify : public testing::Test {
 protected:
  RegistryNotify() {
    support::CreateKey(Hive::User, kKey + u"\\below\\deeper");
    support::SetText(Hive::User, kKey, u"value", u"old");
    Open();
  }

  void Open() {
    ASSERT_EQ(
        RegOpenKeyExW(HKEY_CURRENT_USER, kKey.c_str(), 0, KEY_QUERY_VALUE | KEY_NOTIFY | KEY_WOW64_64KEY, key.put()),
        0);
  }
  LSTATUS Arm(bool subtree = true) { return RegNotifyChangeKeyValue(key.get(), subtree, kFilter, event.get(), true); }
  void Change(const char16_t* text) { support::SetText(Hive::User, kKey, u"value", text); }
  [[nodiscard]] bool Signalled() const { return WaitForSingleObject(event.get(), kBound) == WAIT_OBJECT_0; }
  // Whether it is signalled now. Only told of what cannot be signalled later: nothing is waited for.
  [[nodiscard]] bool SignalledAlready() const { return WaitForSingleObject(event.get(), 0) == WAIT_OBJECT_0; }

  support::Machine machine;
  UniqueKey key;
  UniqueEvent event{CreateEventW(nullptr, false, false, nullptr)};
};

TEST_F(RegistryNotify, SignalsAChangedValue) {
  ASSERT_EQ(Arm(), 0);
  EXPECT_FALSE(SignalledAlready());
  Change(u"new");
  EXPECT_TRUE(Signalled());
}

TEST_F(RegistryNotify, SignalsANewAndADeletedValue) {
  ASSERT_EQ(Arm(), 0);
  support::SetNumber(Hive::User, kKey, u"another", 1);
  EXPECT_TRUE(Signalled());
  ASSERT_EQ(Arm(), 0);
  UniqueKey writable;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, kKey.c_str(), 0, KEY_WRITE, writable.put()), 0);
  ASSERT_EQ(RegDeleteValueW(writable.get(), u"another"), 0);
  EXPECT_TRUE(Signalled());
}

TEST_F(RegistryNotify, SignalsANewAndADeletedSubkey) {
  for (const bool subtree : {true, false}) {
    ASSERT_EQ(Arm(subtree), 0);
    support::CreateKey(Hive::User, kKey + u"\\new");
    EXPECT_TRUE(Signalled());
    ASSERT_EQ(Arm(subtree), 0);
    support::DeleteKey(Hive::User, kKey + u"\\new");
    EXPECT_TRUE(Signalled());
    Open();  // A handle keeps the depth of its first watch.
  }
}

TEST_F(RegistryNotify, SignalsAChangeFarBelowInTheSubtree) {
  ASSERT_EQ(Arm(), 0);
  support::SetNumber(Hive::User, kKey + u"\\below\\deeper", u"x", 1);
  EXPECT_TRUE(Signalled());
}

// A later change of the key itself shows that the earlier one below it has been looked at.
TEST_F(RegistryNotify, WithoutTheSubtreeAChangeBelowIsNone) {
  UniqueEvent own(CreateEventW(nullptr, false, false, nullptr));
  UniqueKey other;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, (kKey + u"\\below").c_str(), 0, KEY_NOTIFY, other.put()), 0);
  ASSERT_EQ(Arm(false), 0);
  ASSERT_EQ(RegNotifyChangeKeyValue(other.get(), true, kFilter, own.get(), true), 0);
  support::SetNumber(Hive::User, kKey + u"\\below\\deeper", u"x", 1);
  ASSERT_EQ(WaitForSingleObject(own.get(), kBound), WAIT_OBJECT_0);
  EXPECT_FALSE(SignalledAlready());
  Change(u"new");
  EXPECT_TRUE(Signalled());
}

TEST_F(RegistryNotify, IsGoodForOneSignal) {
  ASSERT_EQ(Arm(), 0);
  Change(u"new");
  EXPECT_TRUE(Signalled());
  UniqueEvent own(CreateEventW(nullptr, false, false, nullptr));
  UniqueKey other;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, kKey.c_str(), 0, KEY_NOTIFY, other.put()), 0);
  ASSERT_EQ(RegNotifyChangeKeyValue(other.get(), true, kFilter, own.get(), true), 0);
  Change(u"newer");
  ASSERT_EQ(WaitForSingleObject(own.get(), kBound), WAIT_OBJECT_0);
  EXPECT_FALSE(SignalledAlready());
}

TEST_F(RegistryNotify, AChangeAheadOfTheFirstCallIsNone) {
  Change(u"new");
  ASSERT_EQ(Arm(), 0);
  EXPECT_FALSE(SignalledAlready());
}

TEST_F(RegistryNotify, SignalsAChangeByAnotherProcess) {
  support::Process child = support::StartChild("ChangesTheWatchedKey");
  for (const char* text : {"one", "two", "three"}) {
    ASSERT_EQ(Arm(), 0);
    child.Say(text);
    EXPECT_EQ(child.Hear(), "changed");
    EXPECT_TRUE(Signalled());
  }
  EXPECT_EQ(child.Wait(), 0);
}

TEST_F(RegistryNotify, NeedsTheRightToBeNotifiedAndLiveHandles) {
  EXPECT_EQ(RegNotifyChangeKeyValue(HKEY{0x7770}, true, kFilter, event.get(), true),
            static_cast<LSTATUS>(ERROR_INVALID_HANDLE));
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, kKey.c_str(), 0, KEY_QUERY_VALUE, key.put()), 0);
  EXPECT_EQ(Arm(), static_cast<LSTATUS>(ERROR_ACCESS_DENIED));
}

}  // namespace
