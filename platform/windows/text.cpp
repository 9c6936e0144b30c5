#include "platform/text.h"

#include <windows.h>

#include <cwchar>

namespace platform {

int MultiByteToWideChar(CodePage codePage, DWORD flags, const char* text, int length, char16_t* wide,
                        int wideSize) noexcept {
  return ::MultiByteToWideChar(static_cast<UINT>(codePage), flags, text, length, reinterpret_cast<wchar_t*>(wide),
                               wideSize);
}

int WideCharToMultiByte(CodePage codePage, DWORD flags, const char16_t* wide, int wideLength, char* text, int size,
                        std::nullptr_t, std::nullptr_t) noexcept {
  return ::WideCharToMultiByte(static_cast<UINT>(codePage), flags, reinterpret_cast<const wchar_t*>(wide), wideLength,
                               text, size, nullptr, nullptr);
}

char16_t* wcstok_s(char16_t* text, const char16_t* delimiters, char16_t** context) noexcept {
  return reinterpret_cast<char16_t*>(::wcstok_s(reinterpret_cast<wchar_t*>(text),
                                                reinterpret_cast<const wchar_t*>(delimiters),
                                                reinterpret_cast<wchar_t**>(context)));
}

}  // namespace platform
