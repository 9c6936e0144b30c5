// The browsers that the program serves.
#pragma once

#include <cstdint>

namespace settings {

enum class BrowserType : std::uint8_t { Chrome = 0, Edge = 1, Firefox = 2 };
// Every loop over the browsers runs in this order.
inline constexpr BrowserType kBrowsers[] = {BrowserType::Chrome, BrowserType::Edge, BrowserType::Firefox};

// The id that the Firefox extension declares, of 27 characters.
inline constexpr const char16_t* FirefoxExtensionId = u"url-rules@corvane-lumenar.x";

}  // namespace settings
