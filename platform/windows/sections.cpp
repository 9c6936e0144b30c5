#include "platform/sections.h"

#include <windows.h>

namespace platform {

SectionHandle CreateFileMappingW(NoFile, std::nullptr_t, Only<DWORD{PAGE_READWRITE}>, DWORD sizeHigh, DWORD sizeLow,
                                 std::nullptr_t) noexcept {
  return SectionHandle(reinterpret_cast<std::uintptr_t>(
      ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, sizeHigh, sizeLow, nullptr)));
}

void* MapViewOfFile(SectionHandle section, Only<DWORD{FILE_MAP_READ | FILE_MAP_WRITE}>, Only<DWORD{0}>, Only<DWORD{0}>,
                    Only<std::size_t{0}>) noexcept {
  return ::MapViewOfFile(reinterpret_cast<::HANDLE>(section.value()), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0);
}

bool UnmapViewOfFile(const void* view) noexcept { return ::UnmapViewOfFile(view) != 0; }

}  // namespace platform
