// What the tests of the registry share.
#pragma once

#include "platform/registry.h"

namespace registryTests {

// The key below which they write, in either hive.
inline constexpr const char16_t* kBase = u"Software\\LumenarTest";

// The changes that those of notifications wait for, and how long at most.
inline constexpr platform::DWORD kFilter = platform::REG_NOTIFY_CHANGE_NAME | platform::REG_NOTIFY_CHANGE_LAST_SET;
inline constexpr platform::DWORD kBound = 120000;

}  // namespace registryTests
