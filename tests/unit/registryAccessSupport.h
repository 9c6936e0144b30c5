// What the tests of the access to the registry share.
#pragma once

namespace unit {

// The key that they work on: below either hive, and that of the machine by its native path.
inline constexpr const char16_t* kPath = u"Software\\LumenarTest";
inline constexpr const char16_t* kNativePath = u"\\Registry\\Machine\\Software\\LumenarTest";

}  // namespace unit
