// Where a Chromium-based browser keeps its user data when policy has moved it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "settings/browserType.h"

namespace browser {

// The directory that the browser's policy `UserDataDir` names, as the browser understands it: the machine's policy
// first, then the user's. False, traced, for Firefox, without such a policy, and for one that is not valid: the caller
// then uses the default location.
[[nodiscard]] bool GetUserDataDirPathForChromiumBrowser(settings::BrowserType browser, std::u16string& path);

// Where that policy may stand, in the order in which it is looked for. Empty, traced, for Firefox.
enum class PolicyKey : std::uint32_t { Machine = 0, User = 1 };
struct UserDataDirKey {
  PolicyKey kind;
  const char16_t* path;  // Absolute for the machine, relative to the user's hive for the user.
};
using UserDataDirKeyList = std::vector<UserDataDirKey>;
[[nodiscard]] UserDataDirKeyList GetRegistryUserDataDirList(settings::BrowserType browser);

// The policy's value as it stands.
[[nodiscard]] bool GetUserDataDirPath(settings::BrowserType browser, std::u16string& path);

}  // namespace browser
