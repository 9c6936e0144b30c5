// Sections: blocks of memory that several processes can have in their address space at the same time.
//
// Threading: every call may be made from any thread. A call that fails leaves its reason in GetLastError().
#pragma once

#include "platform/handles.h"
#include "platform/types.h"

namespace platform {

// In the place of a file: the section has no file of its own, and is gone with its last handle and its last view.
struct NoFile {};
inline constexpr NoFile INVALID_HANDLE_VALUE;

inline constexpr DWORD PAGE_READWRITE = 4;
inline constexpr DWORD FILE_MAP_WRITE = 2;
inline constexpr DWORD FILE_MAP_READ = 4;

// A section of that many bytes, all zero. It can neither grow nor shrink. Null on failure; ERROR_INVALID_PARAMETER for
// a size of 0.
[[nodiscard]] SectionHandle CreateFileMappingW(NoFile file, std::nullptr_t security, Only<PAGE_READWRITE> protection,
                                               DWORD sizeHigh, DWORD sizeLow, std::nullptr_t name) noexcept;

// Maps the whole section. Every view of a section shows the same bytes; what one thread writes, another sees once the
// two have met through something that orders them, such as an event. A view outlives the section's handle, until
// UnmapViewOfFile takes it back. Null on failure; ERROR_INVALID_HANDLE for a handle of another kind.
[[nodiscard]] void* MapViewOfFile(SectionHandle section, Only<FILE_MAP_READ | FILE_MAP_WRITE> access,
                                  Only<DWORD{0}> offsetHigh, Only<DWORD{0}> offsetLow,
                                  Only<std::size_t{0}> bytes) noexcept;
// Takes what MapViewOfFile returned. False with ERROR_INVALID_ADDRESS when there is no such view.
bool UnmapViewOfFile(const void* view) noexcept;

}  // namespace platform
