// What the tests of the front end share: a machine, its daily log, and this process's part of the log as a new process
// would find it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "launcher/debugLog.h"
#include "tests/support/machine.h"
#include "tests/unit/dailyLog.h"
#include "tests/unit/fakeHelper.h"

namespace unit {

using support::Hive;

// The roots of the settings, in either hive.
inline constexpr const char16_t* kRoot = u"Software\\Corvane\\Lumenar\\URLRedirection";
inline constexpr const char16_t* kLegacyRoot = u"Software\\Tavrix, Inc.\\Tavrix GLD\\URLRedirection";
// The user's 32-bit view of them.
inline constexpr const char16_t* kRoot32 = u"Software\\Wow6432Node\\Corvane\\Lumenar\\URLRedirection";
inline constexpr const char16_t* kLegacyRoot32 = u"Software\\Wow6432Node\\Tavrix, Inc.\\Tavrix GLD\\URLRedirection";
inline constexpr const char16_t* kPolicy = u"Software\\Policies\\Corvane\\Lumenar\\URLRedirection\\apppath";
inline constexpr const char16_t* kLegacyPolicy =
    u"Software\\Policies\\Tavrix, Inc.\\Tavrix GLD\\URLRedirection\\apppath";
inline constexpr const char16_t* kInstallKey = u"Software\\Corvane\\Lumenar";
inline constexpr const char16_t* kInstallKey32 = u"Software\\Wow6432Node\\Corvane\\Lumenar";

// What the log says of a machine whose settings allow app paths.
inline constexpr const char* kEnabled = "CheckAppPathSettings: Url Redirection is enabled.\n";

// The setting has not been read, and no file has been named.
inline void ForgetLogState() {
  for (auto& unit : debugLog::state.path) unit = u'\0';
  debugLog::state.day = -1;
  debugLog::state.enabled = false;
  debugLog::state.enabledUnread = true;
}

// As if the setting had been read, so that no test needs a root key for it.
inline void SetLogging(bool on) {
  debugLog::state.enabled = on;
  debugLog::state.enabledUnread = false;
}

class FrontEndTest : public testing::Test {
 protected:
  FrontEndTest() { ForgetLogState(); }
  ~FrontEndTest() override { ForgetLogState(); }

  support::Machine machine;
  DailyLog log{machine};
};

// With a helper that records, and logging on.
class TracedTest : public FrontEndTest {
 protected:
  TracedTest() { SetLogging(true); }

  FakeHelper helper;
};

}  // namespace unit
