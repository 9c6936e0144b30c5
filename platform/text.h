// Text: code pages, and the runtime library's text functions.
#pragma once

#include "platform/types.h"

namespace platform {

// CP_THREAD_ACP is the ANSI code page of the calling thread.
enum class CodePage : UINT { CP_THREAD_ACP = 3, CP_UTF8 = 65001 };
using enum CodePage;

// Convert between wide text and a code page. Lengths are in units of the text that they stand beside; no NUL is added
// or counted. With an output size of 0 the size needed is returned. 0 on failure: ERROR_INSUFFICIENT_BUFFER, or
// ERROR_INVALID_PARAMETER for an empty input. What has no counterpart (a lone surrogate, malformed UTF-8) becomes
// U+FFFD.
int MultiByteToWideChar(CodePage codePage, DWORD flags, const char* text, int length, char16_t* wide,
                        int wideSize) noexcept;
int WideCharToMultiByte(CodePage codePage, DWORD flags, const char16_t* wide, int wideLength, char* text, int size,
                        std::nullptr_t defaultChar, std::nullptr_t usedDefaultChar) noexcept;

// The next token of `text`, or of where the last call left off when `text` is null; null when there is no more. Writes
// a NUL behind the token. Delimiters ahead of a token are skipped, so that no token is empty.
[[nodiscard]] char16_t* wcstok_s(char16_t* text, const char16_t* delimiters, char16_t** context) noexcept;

}  // namespace platform
