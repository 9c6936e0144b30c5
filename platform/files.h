// Files and the folders of the machine. Paths are the machine's own ("C:\...").
#pragma once

#include "platform/handles.h"
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

inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;

// Creates the file, or empties the one that is there. Supported: GENERIC_WRITE, no sharing, CREATE_ALWAYS,
// FILE_ATTRIBUTE_NORMAL. While the handle is open, nobody else opens the file through this call. Null, and not the
// system's -1, on failure.
[[nodiscard]] FileHandle CreateFileW(const char16_t* path, DWORD access, DWORD sharing, std::nullptr_t security,
                                     DWORD disposition, DWORD attributes, std::nullptr_t templateFile) noexcept;
// Writes at the end of what was written. False on failure; `*written` tells how much went out.
bool WriteFile(FileHandle file, const void* data, DWORD size, DWORD* written, std::nullptr_t overlapped) noexcept;
bool DeleteFileW(const char16_t* path) noexcept;

using FindHandle = HandleOf<struct FindKind>;

struct WIN32_FIND_DATAW {
  DWORD dwFileAttributes;
  std::uint32_t timesAndSizes[10];
  char16_t cFileName[260];
  char16_t cAlternateFileName[14];
};
static_assert(sizeof(WIN32_FIND_DATAW) == 592);

// Lists a folder: `pattern` is its path with "\*" behind it. The entries come in the order of the folder, "." and ".."
// among them. Null, and not the system's -1, when it cannot be listed. Only attributes and name of `data` are filled
// in.
[[nodiscard]] FindHandle FindFirstFileW(const char16_t* pattern, WIN32_FIND_DATAW* data) noexcept;
// False behind the last entry.
bool FindNextFileW(FindHandle find, WIN32_FIND_DATAW* data) noexcept;
bool FindClose(FindHandle find) noexcept;

inline constexpr int CSIDL_LOCAL_APPDATA = 28;

// The user's folder of that kind, into MAX_PATH units, without a backslash at its end. Negative on failure.
HRESULT SHGetFolderPathW(std::nullptr_t owner, int folder, std::nullptr_t token, DWORD flags, char16_t* path) noexcept;

// The ids of known folders.
struct KNOWNFOLDERID {
  std::uint32_t data1;
  std::uint16_t data2;
  std::uint16_t data3;
  std::uint8_t data4[8];
  friend constexpr bool operator==(const KNOWNFOLDERID&, const KNOWNFOLDERID&) = default;
};
inline constexpr KNOWNFOLDERID FOLDERID_Documents{
    0xFDD39AD0, 0x238F, 0x46AF, {0xAD, 0xB4, 0x6C, 0x85, 0x48, 0x03, 0x69, 0xC7}};
inline constexpr KNOWNFOLDERID FOLDERID_ProgramFiles{
    0x905E63B6, 0xC1BF, 0x494E, {0xB2, 0x9C, 0x65, 0xB7, 0x32, 0xD3, 0xD2, 0x1A}};
// The path of a known folder, allocated for CoTaskMemFree. Negative, and null, on failure.
HRESULT SHGetKnownFolderPath(const KNOWNFOLDERID& folder, DWORD flags, std::nullptr_t token, char16_t** path) noexcept;
void CoTaskMemFree(void* memory) noexcept;

// Appends a relative path with one separator between, into a buffer of `size` units. Negative, and the path as it was,
// when it does not fit.
HRESULT PathCchAppend(char16_t* path, std::size_t size, const char16_t* more) noexcept;

// Both work on text of the system's ANSI code page, into buffers of `size` bytes.
// Replaces %NAME% by the variable's value; what is not set stays. The size of the result with its NUL, also when it
// does not fit (and then nothing usable is in the buffer); 0 on failure.
DWORD ExpandEnvironmentStringsA(const char* text, char* expanded, DWORD size) noexcept;
// The absolute path, without "." and "..", with backslashes. False when it does not fit.
bool PathSearchAndQualifyA(const char* path, char* qualified, UINT size) noexcept;

// The user's folder for temporary files, with a backslash at its end. The length in units without the NUL; the length
// with the NUL when `size` (units) is too small; 0 on failure.
DWORD GetTempPathW(DWORD size, char16_t* path) noexcept;

}  // namespace platform
