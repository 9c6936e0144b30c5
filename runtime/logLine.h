// How a line of the log begins:
//
//   2026-11-15T01:59:30.123Z <1A2C> [0F10] I LmIpcClient::ConnectToStream(): Connected
//
// the time, in UTC or ("2026-11-15 01:59:30.123") by the machine's clock; the thread; the process; the level's letter;
// who speaks.
#pragma once

namespace runtime {

// Both return the length of what they have written, cut to `capacity` - 1 and ended by a NUL.
int FormatTimestamp(char* buffer, int capacity, bool utc) noexcept;
// All that stands in front of the text.
int FormatLinePrefix(char* buffer, int capacity, int level, const char* functionName, bool utc) noexcept;

}  // namespace runtime
