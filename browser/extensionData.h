// The data file from which each browser's extension learns the redirection rules: where it lies, writing it, removing
// it.
//
// No failure stops the program or reaches the user; the next refresh tries again. Writing runs on the resident helper's
// main thread, removal on its settings watcher; neither takes a lock.
#pragma once

#include <string>

#include "settings/browserType.h"

namespace browser {

using settings::BrowserType;
using settings::kBrowsers;

// The folder below which the browser's data file goes: a policy on the user data directory, else the user's local
// application data. Empty when that cannot be found out.
[[nodiscard]] std::u16string GetExtensionPath(BrowserType browser);

// Writes the rules to where that browser's extension reads them. Without rules, or without the extension's folders,
// nothing is touched. True when at least one file was written.
bool WriteExtensionData(BrowserType browser);

// The same for every browser.
void WriteAllExtensionData();

// Deletes every browser's data file, and Firefox's pointer to it.
void RemoveAllExtensionData();

}  // namespace browser
