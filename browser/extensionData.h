// The data file from which a browser's extension learns the redirection rules.
#pragma once

#include <cstdint>

namespace browser {

enum class BrowserType : std::uint8_t { Chrome = 0, Edge = 1, Firefox = 2 };
// Every loop over the browsers runs in this order.
inline constexpr BrowserType kBrowsers[] = {BrowserType::Chrome, BrowserType::Edge, BrowserType::Firefox};

// Writes the rules to where that browser's extension reads them. False, logged, when that fails.
bool WriteExtensionData(BrowserType browser);

}  // namespace browser
