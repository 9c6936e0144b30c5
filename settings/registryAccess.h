// A thin layer over the native registry interface of ntdll.dll, whose functions are looked up by name at first use.
//
// Every operation returns a native status: 0 is success, every other number is failure. Values are taken by their
// bytes; a type that is named for a read is reported or passed along, never compared. Ownership: whoever opened a key
// closes it with CloseHandle; UniqueNativeKey does. Threading: may be used from any thread.
#pragma once

#include <string>

#include "platform/registry.h"

namespace settings {

// KEY_READ in the 64-bit view: what all reads of settings open with.
inline constexpr platform::REGSAM kReadAccess = platform::KEY_READ | platform::KEY_WOW64_64KEY;

// Looks up the native functions. True once all four are there; a failure is retried at the next call.
[[nodiscard]] bool ResolveNativeRegistryApi() noexcept;

// Open a key by its absolute native path, or by its path in the current user's hive. STATUS_INVALID_PARAMETER for a
// null or empty path or a null output, STATUS_INTERNAL_ERROR when the native functions cannot be found.
// OpenKeyCurrentUser leaves one handle to the user's hive open for the life of the process, by design.
[[nodiscard]] platform::NTSTATUS OpenKeyAbsolute(const char16_t* path, platform::REGSAM access,
                                                 platform::NativeKeyHandle* key) noexcept;
[[nodiscard]] platform::NTSTATUS OpenKeyCurrentUser(const char16_t* path, platform::REGSAM access,
                                                    platform::NativeKeyHandle* key) noexcept;

// Reads a value. `size` is in bytes: the room in `data` on entry, the stored length on return. When the value is longer
// than `size`: STATUS_BUFFER_OVERFLOW, the true length in `size`, and nothing in `data`. With `data` null only type and
// length are reported, by status 0 or STATUS_BUFFER_OVERFLOW. On any other status neither output is touched.
platform::NTSTATUS QueryValue(platform::NativeKeyHandle key, const char16_t* name, platform::DWORD* type, void* data,
                              platform::DWORD* size) noexcept;
// The same in one step for a key of the current user, in the 32-bit view if asked for.
platform::NTSTATUS QueryCurrentUserValue(const char16_t* path, const char16_t* name, platform::DWORD* type, void* data,
                                         platform::DWORD* size, bool view32) noexcept;

// Reads a text, up to its first NUL, of 1 to 0xFFFFF bytes. STATUS_INSUFFICIENT_RESOURCES for a value that is missing,
// empty or longer. On failure `text` keeps what it held.
platform::NTSTATUS ReadStringValue(platform::NativeKeyHandle key, const char16_t* name, platform::DWORD expectedType,
                                   std::u16string* text);

// A number of 4 bytes, of whatever type; a shorter value fills the low bytes. False when it cannot be read.
[[nodiscard]] bool ReadNumber(platform::NativeKeyHandle key, const char16_t* name, platform::DWORD* number) noexcept;

}  // namespace settings
