// Files and the folders of the machine. Paths are the machine's own ("C:\...").
#pragma once

#include "platform/types.h"

namespace platform {

// A text stream of the runtime library. It turns "\n" into "\r\n", and wide text into one byte a unit: a unit above
// 0xFF has no byte in the runtime's "C" locale, and writing stops in front of it.
struct TextStream;

// Opens for appending (`mode` u"a+"), creating the file but no folder. Null on failure.
[[nodiscard]] TextStream* _wfopen(const char16_t* path, const char16_t* mode) noexcept;
// Not negative when all was written. What stands ahead of a unit that cannot be written is written all the same.
int fputws(const char16_t* text, TextStream* stream) noexcept;
int fclose(TextStream* stream) noexcept;

// The user's folder for temporary files, with a backslash at its end. The length in units without the NUL; the length
// with the NUL when `size` (units) is too small; 0 on failure.
DWORD GetTempPathW(DWORD size, char16_t* path) noexcept;

}  // namespace platform
