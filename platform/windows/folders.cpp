// clang-format off: the system's headers want the first of them first.
#include "platform/files.h"

#include <objbase.h>
#include <pathcch.h>
#include <shlobj.h>
#include <shlwapi.h>
#include <windows.h>
// clang-format on

#include <cstring>

namespace platform {

HRESULT SHGetFolderPathW(std::nullptr_t, int folder, std::nullptr_t, DWORD flags, char16_t* path) noexcept {
  return ::SHGetFolderPathW(nullptr, folder, nullptr, flags, reinterpret_cast<wchar_t*>(path));
}

HRESULT SHGetKnownFolderPath(const KNOWNFOLDERID& folder, DWORD flags, std::nullptr_t, char16_t** path) noexcept {
  static_assert(sizeof(::KNOWNFOLDERID) == sizeof folder);
  ::KNOWNFOLDERID id;
  std::memcpy(&id, &folder, sizeof id);
  wchar_t* text = nullptr;
  const ::HRESULT result = ::SHGetKnownFolderPath(id, flags, nullptr, &text);
  *path = reinterpret_cast<char16_t*>(text);
  return result;
}

void CoTaskMemFree(void* memory) noexcept { ::CoTaskMemFree(memory); }

HRESULT PathCchAppend(char16_t* path, std::size_t size, const char16_t* more) noexcept {
  return ::PathCchAppend(reinterpret_cast<wchar_t*>(path), size, reinterpret_cast<const wchar_t*>(more));
}

DWORD ExpandEnvironmentStringsA(const char* text, char* expanded, DWORD size) noexcept {
  return ::ExpandEnvironmentStringsA(text, expanded, size);
}

bool PathSearchAndQualifyA(const char* path, char* qualified, UINT size) noexcept {
  if (size == 0) return false;
  qualified[0] = '\0';  // The system may report success and write nothing when the path does not fit.
  return ::PathSearchAndQualifyA(path, qualified, size) != FALSE && qualified[0] != '\0';
}

}  // namespace platform
