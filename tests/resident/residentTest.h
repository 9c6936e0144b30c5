// What the tests of the resident's work share: a machine, its daily log, a resident helper that records what is traced,
// and looks at what stands in the registry and on the disk.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/machine.h"
#include "tests/support/watch.h"
#include "tests/unit/dailyLog.h"
#include "tests/unit/fakeHelper.h"

namespace resident {

using support::Hive;

// The roots of the settings, in either hive.
inline const std::u16string kRoot = u"Software\\Corvane\\Lumenar\\URLRedirection";
inline const std::u16string kLegacyRoot = u"Software\\Tavrix, Inc.\\Tavrix GLD\\URLRedirection";
inline const std::u16string kUserKey = u"Software\\Corvane\\Lumenar";
inline const std::u16string kInstallKey = u"Software\\Corvane\\Lumenar";
inline const std::u16string kInstallKey32 = u"Software\\Wow6432Node\\Corvane\\Lumenar";
inline const std::u16string kClasses = u"Software\\Classes\\";
inline const std::u16string kCommand = u"\\shell\\open\\command";
inline const std::u16string kLaunchScheme = u"tavrix-prism-url-launch";
inline const std::u16string kFirefoxKey = u"Software\\Mozilla\\ManagedStorage\\url-rules@corvane-lumenar.x";
inline const std::u16string kChromePolicy = u"Software\\Policies\\Google\\Chrome";
inline const std::u16string kEdgePolicy = u"Software\\Policies\\Microsoft\\Edge";
inline const std::u16string kExtensionId = u"pgmkcoafbnjdeihlmkgobfajcpeidnhl";

// In milliseconds: what takes longer does not come at all.
inline constexpr int kBound = 120'000;

struct Value {
  std::uint32_t type;
  std::vector<std::uint8_t> bytes;
  friend bool operator==(const Value&, const Value&) = default;
};
// Nothing when there is no such value; an empty name is the key's own.
[[nodiscard]] std::optional<Value> Stored(Hive hive, const std::u16string& key, const std::u16string& name = {});
// The bytes of a text, with or without its NUL, as REG_SZ.
[[nodiscard]] Value Unterminated(std::u16string_view text);
[[nodiscard]] Value Terminated(std::u16string_view text);
[[nodiscard]] bool KeyExists(Hive hive, const std::u16string& key);
// The names of the key's subkeys, in the registry's order.
[[nodiscard]] std::vector<std::u16string> Subkeys(Hive hive, const std::u16string& key);
// Writes a text without a NUL behind it.
void SetUnterminated(Hive hive, const std::u16string& key, const std::u16string& name, std::u16string_view text);

// The settings of a machine that redirects.
void MakeMachine(std::u16string_view origin, std::uint32_t enabled = 1);
// "lumenar-test-" and the name: a scheme whose registrations the machine clears away.
[[nodiscard]] std::u16string Scheme(std::u16string_view name);

// The user's local application data, "C:\..." without a backslash at its end.
[[nodiscard]] std::u16string LocalFolder();
// Where the extension of that browser lies by default.
[[nodiscard]] std::u16string ChromeFolder();
[[nodiscard]] std::u16string EdgeFolder();
[[nodiscard]] std::u16string FirefoxFolder();

class ResidentTest : public testing::Test {
 protected:
  ResidentTest();
  ~ResidentTest() override;

  void MakeFolder(const std::u16string& folder) const;
  void Put(const std::u16string& file, const std::string& content) const;
  // Nothing when there is no such file.
  [[nodiscard]] std::optional<std::string> Content(const std::u16string& file) const;

  support::Machine machine;
  unit::DailyLog log{machine};
};

// With a helper that records, and tracing on.
class TracedResidentTest : public ResidentTest {
 protected:
  TracedResidentTest();

  unit::FakeHelper helper;
};

}  // namespace resident
