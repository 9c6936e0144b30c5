#include "platform/files.h"

#include <windows.h>

#include <algorithm>

namespace platform {
namespace {

std::uintptr_t ValueOf(::HANDLE handle) {
  return handle == INVALID_HANDLE_VALUE ? 0 : reinterpret_cast<std::uintptr_t>(handle);
}

::HANDLE HandleFrom(std::uintptr_t value) { return reinterpret_cast<::HANDLE>(value); }

void CopyEntry(const ::WIN32_FIND_DATAW& entry, platform::WIN32_FIND_DATAW* data) {
  data->dwFileAttributes = entry.dwFileAttributes;
  std::copy(std::begin(entry.cFileName), std::end(entry.cFileName), data->cFileName);
}

}  // namespace

FileHandle CreateFileW(const char16_t* path, DWORD access, DWORD sharing, std::nullptr_t, DWORD disposition,
                       DWORD attributes, std::nullptr_t) noexcept {
  return FileHandle(ValueOf(::CreateFileW(reinterpret_cast<const wchar_t*>(path), access, sharing, nullptr, disposition,
                                          attributes, nullptr)));
}

bool WriteFile(FileHandle file, const void* data, DWORD size, DWORD* written, std::nullptr_t) noexcept {
  ::DWORD count = 0;
  const bool ok = ::WriteFile(HandleFrom(file.value()), data, size, &count, nullptr) != FALSE;
  *written = count;
  return ok;
}

bool DeleteFileW(const char16_t* path) noexcept {
  return ::DeleteFileW(reinterpret_cast<const wchar_t*>(path)) != FALSE;
}

FindHandle FindFirstFileW(const char16_t* pattern, WIN32_FIND_DATAW* data) noexcept {
  ::WIN32_FIND_DATAW entry{};
  const FindHandle find(ValueOf(::FindFirstFileW(reinterpret_cast<const wchar_t*>(pattern), &entry)));
  if (find) CopyEntry(entry, data);
  return find;
}

bool FindNextFileW(FindHandle find, WIN32_FIND_DATAW* data) noexcept {
  ::WIN32_FIND_DATAW entry{};
  const bool found = ::FindNextFileW(HandleFrom(find.value()), &entry) != FALSE;
  if (found) CopyEntry(entry, data);
  return found;
}

bool FindClose(FindHandle find) noexcept { return ::FindClose(HandleFrom(find.value())) != FALSE; }

}  // namespace platform
