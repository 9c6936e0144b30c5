// Where a recording client (standInRecorder) reports: to a window of this class, by WM_COPYDATA, its command
// line; the tag is its process id.
#pragma once

namespace support {
inline constexpr const char16_t* kRecorderClass = u"LumenarTestClientRecorder";
}  // namespace support
