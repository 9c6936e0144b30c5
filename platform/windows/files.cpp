#include "platform/files.h"

#include <windows.h>

#include <cstdio>
#include <cwchar>

namespace platform {

TextStream* _wfopen(const char16_t* path, const char16_t* mode) noexcept {
  return reinterpret_cast<TextStream*>(
      ::_wfopen(reinterpret_cast<const wchar_t*>(path), reinterpret_cast<const wchar_t*>(mode)));
}

int fputws(const char16_t* text, TextStream* stream) noexcept {
  // The runtime's mark for failure is the 16-bit WEOF, which is positive in its int result.
  const int written = ::fputws(reinterpret_cast<const wchar_t*>(text), reinterpret_cast<FILE*>(stream));
  return written == WEOF ? -1 : written;
}

int fclose(TextStream* stream) noexcept { return ::fclose(reinterpret_cast<FILE*>(stream)); }

DWORD GetTempPathW(DWORD size, char16_t* path) noexcept {
  return ::GetTempPathW(size, reinterpret_cast<wchar_t*>(path));
}

}  // namespace platform
