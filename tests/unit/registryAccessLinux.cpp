// What happens when the native calls cannot be found or fail: calls that fail on demand are Linux's alone.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "platform/linux/testHooks.h"
#include "platform/raii.h"
#include "settings/registryAccess.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"
#include "tests/unit/registryAccessSupport.h"

namespace unit {
namespace {

using platform::UniqueNativeKey;
using settings::kReadAccess;
using support::Hive;
using testing::ElementsAre;

constexpr platform::DWORD kError = platform::ERROR_NOT_ENOUGH_MEMORY;

std::string CallsOf(unsigned failAt, platform::NTSTATUS* status, UniqueNativeKey& key) {
  platform::test::ArmFaults(failAt, false, kError);
  *status = settings::OpenKeyAbsolute(kNativePath, kReadAccess, key.put());
  platform::test::DisarmFaults();
  std::string calls;
  for (const std::string& call : platform::test::CountedCalls()) calls += call + " ";
  return calls;
}

// In a process where nothing has been looked up yet.
CHILD_BODY(LooksUpTheNativeCalls) {
  const char* const expected[] = {
      "!GetModuleHandleExW ",
      "GetModuleHandleExW !GetProcAddress ",
      "GetProcAddress !GetProcAddress ",  // The module is known by now.
      "GetProcAddress GetProcAddress !GetProcAddress ",
      "GetProcAddress GetProcAddress GetProcAddress !GetProcAddress ",
  };
  platform::NTSTATUS status = 0;
  UniqueNativeKey key;
  support::Say(settings::OpenKeyAbsolute(u"", kReadAccess, key.put()) == platform::STATUS_INVALID_PARAMETER ? "ok"
                                                                                                            : "bad");
  for (unsigned i = 0; i < std::size(expected); ++i) {
    const std::string calls = CallsOf(i == 0 ? 1 : std::max(2u, i), &status, key);
    support::Say(calls == expected[i] && status == platform::STATUS_INTERNAL_ERROR && !key ? "ok" : calls);
  }
  // All four are found at last, and never looked for again.
  support::Say(CallsOf(0, &status, key));
  support::Say(CallsOf(0, &status, key));
  return status == platform::STATUS_SUCCESS ? 0 : 1;
}

TEST(NativeCalls, AFailedLookUpIsAnInternalErrorAndIsRetriedAtTheNextCall) {
  const support::Machine machine;
  support::CreateKey(Hive::Machine, kPath);
  support::Process child = support::StartChild("LooksUpTheNativeCalls");
  for (int i = 0; i < 6; ++i) EXPECT_EQ(child.Hear(), "ok") << i;
  EXPECT_EQ(child.Hear(), "GetProcAddress GetProcAddress GetProcAddress GetProcAddress NtOpenKey ");
  EXPECT_EQ(child.Hear(), "NtOpenKey ");
  EXPECT_EQ(child.Wait(), 0);
}

// Every operation reports a failed look-up, and touches none of its outputs.
CHILD_BODY(FindsNoNativeCalls) {
  platform::test::ArmFaults(1, true, kError);
  UniqueNativeKey key;
  platform::DWORD size = 4;
  const bool internal =
      settings::OpenKeyCurrentUser(kPath, kReadAccess, key.put()) == platform::STATUS_INTERNAL_ERROR &&
      settings::QueryCurrentUserValue(kPath, u"value", nullptr, nullptr, &size, true) ==
          platform::STATUS_INTERNAL_ERROR &&
      settings::QueryValue(platform::NativeKeyHandle(4), u"value", nullptr, nullptr, &size) ==
          platform::STATUS_INTERNAL_ERROR &&
      !settings::ResolveNativeRegistryApi();
  return internal && size == 4 && !key ? 0 : 1;
}

TEST(NativeCalls, NothingWorksWithoutThem) {
  const support::Machine machine;
  EXPECT_EQ(support::StartChild("FindsNoNativeCalls").Wait(), 0);
}

TEST(NativeCalls, ATextOverTheLimitIsNotQueriedASecondTime) {
  const support::Machine machine;
  support::SetBytes(Hive::Machine, kPath, u"value", platform::REG_SZ, std::vector<std::uint8_t>(0x100000, 0x61));
  UniqueNativeKey key;
  ASSERT_EQ(settings::OpenKeyAbsolute(kNativePath, kReadAccess, key.put()), 0);
  std::u16string text;
  platform::test::ArmFaults(0, false, kError);
  EXPECT_NE(settings::ReadStringValue(key.get(), u"value", platform::REG_SZ, &text), 0);
  platform::test::DisarmFaults();
  EXPECT_THAT(platform::test::CountedCalls(), ElementsAre("NtQueryValueKey"));
}

TEST(NativeCalls, AFailureOfTheSecondQueryLeavesTheTextAlone) {
  const support::Machine machine;
  support::SetText(Hive::Machine, kPath, u"value", u"new");
  UniqueNativeKey key;
  ASSERT_EQ(settings::OpenKeyAbsolute(kNativePath, kReadAccess, key.put()), 0);
  std::u16string text = u"old";
  platform::test::ArmFaults(2, false, kError);
  EXPECT_NE(settings::ReadStringValue(key.get(), u"value", platform::REG_SZ, &text), 0);
  platform::test::DisarmFaults();
  EXPECT_THAT(platform::test::CountedCalls(), ElementsAre("NtQueryValueKey", "!NtQueryValueKey"));
  EXPECT_EQ(text, u"old");
}

TEST(NativeCalls, TheUsersHiveIsOpenedAheadOfTheKeyAndItsFailureIsTheAnswer) {
  const support::Machine machine;
  support::CreateKey(Hive::User, kPath);
  ASSERT_TRUE(settings::ResolveNativeRegistryApi());
  UniqueNativeKey key;
  platform::test::ArmFaults(1, false, kError);
  EXPECT_NE(settings::OpenKeyCurrentUser(kPath, kReadAccess, key.put()), 0);
  platform::test::DisarmFaults();
  EXPECT_THAT(platform::test::CountedCalls(), ElementsAre("!RtlOpenCurrentUser"));
  EXPECT_FALSE(key);
}

TEST(NativeCalls, OpeningAKeyOfTheUserLeavesOneHandleToTheHive) {
  const support::Machine machine;
  support::CreateKey(Hive::User, kPath);
  const auto hives = [] { return std::ranges::count(platform::test::LiveHandles(), "CurrentUserHive"); };
  const auto before = hives();
  UniqueNativeKey key;
  ASSERT_EQ(settings::OpenKeyCurrentUser(kPath, kReadAccess, key.put()), 0);
  key.reset();
  EXPECT_EQ(hives(), before + 1);
  platform::DWORD size = 0;
  settings::QueryCurrentUserValue(kPath, u"value", nullptr, nullptr, &size, false);
  EXPECT_EQ(hives(), before + 2);
}

}  // namespace
}  // namespace unit
