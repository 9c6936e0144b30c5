// The registry key that leads Firefox to an extension's managed storage.
#pragma once

#include <string>

namespace browser {

// Points the user's key to the file, or deletes the key. Logged on failure; a key that is missing at deletion is one.
void SetFirefoxManagedStorageKey(bool create, const std::u16string& file);

}  // namespace browser
