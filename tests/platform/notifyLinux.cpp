// What this platform promises of notifications beyond the system's word.
#include <gtest/gtest.h>

#include "platform/raii.h"
#include "tests/platform/registrySupport.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

using namespace platform;
using registryTests::kBound;
using registryTests::kFilter;
using support::Hive;

struct Watched {
  explicit Watched(const char16_t* path) {
    support::CreateKey(Hive::User, path);
    EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, path, 0, KEY_NOTIFY | KEY_QUERY_VALUE, key.put()), 0);
    EXPECT_EQ(RegNotifyChangeKeyValue(key.get(), true, kFilter, event.get(), true), 0);
  }
  UniqueKey key;
  UniqueEvent event{CreateEventW(nullptr, false, false, nullptr)};
};

// The same data again, and a change elsewhere in the hive, are no changes. A second key, watched later and so looked at
// later, tells when that has been seen.
TEST(RegistryNotifyOfThisPlatform, WhereNothingChangesThereIsNoSignal) {
  const support::Machine machine;
  support::SetText(Hive::User, u"Software\\LumenarTest\\a", u"value", u"same");
  const Watched quiet(u"Software\\LumenarTest\\a");
  const Watched loud(u"Software\\LumenarTest\\b");
  support::SetText(Hive::User, u"Software\\LumenarTest\\a", u"value", u"same");
  support::SetNumber(Hive::User, u"Software\\LumenarTest\\b", u"x", 1);
  EXPECT_EQ(WaitForSingleObject(loud.event.get(), kBound), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(quiet.event.get(), 0), WAIT_TIMEOUT);
}

// As on Windows; Wine 8 gives no signal, and lets the deleted key be watched on.
TEST(RegistryNotifyOfThisPlatform, TheDeletionOfTheKeyIsSignalledAndThenItCannotBeWatched) {
  const support::Machine machine;
  const Watched watched(u"Software\\LumenarTest\\a");
  support::DeleteKey(Hive::User, u"Software\\LumenarTest\\a");
  EXPECT_EQ(WaitForSingleObject(watched.event.get(), kBound), WAIT_OBJECT_0);
  EXPECT_NE(RegNotifyChangeKeyValue(watched.key.get(), true, kFilter, watched.event.get(), true), 0);
}

// As on Windows, which remembers for an open handle what has changed since its last signal; Wine 8 does not.
TEST(RegistryNotifyOfThisPlatform, AChangeBetweenTwoCallsIsNotLost) {
  const support::Machine machine;
  const Watched watched(u"Software\\LumenarTest\\a");
  support::SetNumber(Hive::User, u"Software\\LumenarTest\\a", u"value", 1);
  EXPECT_EQ(WaitForSingleObject(watched.event.get(), kBound), WAIT_OBJECT_0);
  support::SetNumber(Hive::User, u"Software\\LumenarTest\\a", u"value", 2);
  ASSERT_EQ(RegNotifyChangeKeyValue(watched.key.get(), true, kFilter, watched.event.get(), true), 0);
  EXPECT_EQ(WaitForSingleObject(watched.event.get(), kBound), WAIT_OBJECT_0);
}

CHILD_BODY(ChangesTheKeyAThousandTimes) {
  for (std::uint32_t i = 0; i < 1000; ++i) support::SetNumber(Hive::User, u"Software\\LumenarTest\\a", u"value", i);
  return 0;
}

TEST(RegistryNotifyOfThisPlatform, AfterABurstOfChangesTheLastOneHasBeenSignalled) {
  const support::Machine machine;
  const Watched watched(u"Software\\LumenarTest\\a");
  support::Process child = support::StartChild("ChangesTheKeyAThousandTimes");
  DWORD last = 0;
  while (last != 999) {
    ASSERT_EQ(WaitForSingleObject(watched.event.get(), kBound), WAIT_OBJECT_0);
    ASSERT_EQ(RegNotifyChangeKeyValue(watched.key.get(), true, kFilter, watched.event.get(), true), 0);
    DWORD size = sizeof last;
    ASSERT_EQ(RegGetValueW(watched.key.get(), nullptr, u"value", RRF_RT_ANY, nullptr, &last, &size), 0);
  }
  EXPECT_EQ(child.Wait(), 0);
}

}  // namespace
