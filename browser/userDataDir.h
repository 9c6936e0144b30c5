// Where a Chromium-based browser keeps its user data when policy has moved it.
#pragma once

#include <string>

#include "settings/browserType.h"

namespace browser {

// The directory that the browser's policy `UserDataDir` names, as the browser understands it: the machine's policy
// first, then the user's. False, traced, for Firefox, without such a policy, and for one that is not valid: the caller
// then uses the default location.
[[nodiscard]] bool GetUserDataDirPathForChromiumBrowser(settings::BrowserType browser, std::u16string& path);

// The policy's value as it stands.
[[nodiscard]] bool GetUserDataDirPath(settings::BrowserType browser, std::u16string& path);

}  // namespace browser
