// The registry: the Win32 calls, and what the native calls of ntdll.dll need.
//
// Names compare without case. A path has backslashes between its names. Sizes are in bytes unless told otherwise.
// The Win32 calls return their error (0 is success) and leave GetLastError() alone; native calls return a status.
// Threading: every call may be made from any thread, and other processes may write at the same time.
#pragma once

#include "platform/error.h"
#include "platform/handles.h"
#include "platform/types.h"

namespace platform {

using HKEY = HandleOf<struct RegistryKeyKind>;
inline constexpr HKEY HKEY_CURRENT_USER{static_cast<std::uintptr_t>(static_cast<std::intptr_t>(LONG(0x80000001)))};
inline constexpr HKEY HKEY_LOCAL_MACHINE{static_cast<std::uintptr_t>(static_cast<std::intptr_t>(LONG(0x80000002)))};

inline constexpr REGSAM KEY_QUERY_VALUE = 0x0001;
inline constexpr REGSAM KEY_SET_VALUE = 0x0002;
inline constexpr REGSAM KEY_CREATE_SUB_KEY = 0x0004;
inline constexpr REGSAM KEY_ENUMERATE_SUB_KEYS = 0x0008;
inline constexpr REGSAM KEY_NOTIFY = 0x0010;
inline constexpr REGSAM KEY_WOW64_64KEY = 0x0100;
// The 32-bit view: a path that begins with "Software" leads to "Software\Wow6432Node", and to nothing else.
inline constexpr REGSAM KEY_WOW64_32KEY = 0x0200;
inline constexpr REGSAM KEY_READ = 0x20019;
inline constexpr REGSAM KEY_WRITE = 0x20006;
inline constexpr REGSAM KEY_ALL_ACCESS = 0xF003F;

inline constexpr DWORD REG_NONE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_MULTI_SZ = 7;
inline constexpr DWORD REG_QWORD = 11;
inline constexpr DWORD REG_OPTION_NON_VOLATILE = 0;

inline constexpr DWORD RRF_RT_REG_SZ = 0x0002;
inline constexpr DWORD RRF_RT_ANY = 0xFFFF;

// `subKey` may be null or empty for the key itself. On failure `*result` is null or untouched.
LSTATUS RegOpenKeyExW(HKEY key, const char16_t* subKey, DWORD options, REGSAM access, HKEY* result) noexcept;
// Opens the key, or creates it with all the keys on the way to it.
LSTATUS RegCreateKeyExW(HKEY key, const char16_t* subKey, DWORD reserved, std::nullptr_t keyClass, DWORD options,
                        REGSAM access, std::nullptr_t security, HKEY* result, DWORD* disposition) noexcept;
LSTATUS RegCloseKey(HKEY key) noexcept;

// `index` counts the subkeys in the case-insensitive order of their names. `nameLength` is in units: with the NUL on
// entry, without it on return. ERROR_NO_MORE_ITEMS behind the last, ERROR_MORE_DATA when the name does not fit.
LSTATUS RegEnumKeyExW(HKEY key, DWORD index, char16_t* name, DWORD* nameLength, std::nullptr_t reserved,
                      std::nullptr_t keyClass, std::nullptr_t classLength, std::nullptr_t lastWrite) noexcept;
// As above, into a buffer of `nameLength` units, NUL included. A native key handle is accepted too.
LSTATUS RegEnumKeyW(HKEY key, DWORD index, char16_t* name, DWORD nameLength) noexcept;
LSTATUS RegEnumKeyW(NativeKeyHandle key, DWORD index, char16_t* name, DWORD nameLength) noexcept;
LSTATUS RegQueryInfoKeyW(HKEY key, std::nullptr_t keyClass, std::nullptr_t classLength, std::nullptr_t reserved,
                         DWORD* subKeyCount, std::nullptr_t maxSubKeyLength, std::nullptr_t maxClassLength,
                         std::nullptr_t valueCount, std::nullptr_t maxValueNameLength, std::nullptr_t maxValueLength,
                         std::nullptr_t securityLength, std::nullptr_t lastWrite) noexcept;

// `valueName` null or empty is the default value. `data` null asks for the size; ERROR_MORE_DATA with the size when the
// data do not fit. Any out-parameter may be null.
LSTATUS RegQueryValueExW(HKEY key, const char16_t* valueName, DWORD* reserved, DWORD* type, void* data,
                         DWORD* size) noexcept;
// As above for `subKey` (null for the key itself), with these differences: a text is given a terminating NUL when the
// stored one has none; a REG_EXPAND_SZ comes as a REG_SZ with its variables put in; and a type that `flags` does not
// allow is ERROR_UNSUPPORTED_TYPE.
LSTATUS RegGetValueW(HKEY key, const char16_t* subKey, const char16_t* valueName, DWORD flags, DWORD* type, void* data,
                     DWORD* size) noexcept;
LSTATUS RegSetValueExW(HKEY key, const char16_t* valueName, DWORD reserved, DWORD type, const void* data,
                       DWORD size) noexcept;
LSTATUS RegDeleteValueW(HKEY key, const char16_t* valueName) noexcept;
// Deletes the key with everything under it. Without a `subKey` the key itself is emptied and stays.
LSTATUS RegDeleteTreeW(HKEY key, const char16_t* subKey) noexcept;

inline constexpr DWORD REG_NOTIFY_CHANGE_NAME = 1;
inline constexpr DWORD REG_NOTIFY_CHANGE_LAST_SET = 4;

// Signals `event` at the first change from now on of a subkey's existence or of a value, in the key or, with
// `watchSubtree`, anywhere below it; also when the key itself is deleted. Each call is good for one signal.
// `filter` is both of the constants above, and the call always returns at once.
LSTATUS RegNotifyChangeKeyValue(HKEY key, bool watchSubtree, DWORD filter, EventHandle event,
                                OnlyTrue asynchronous) noexcept;

// ---- The native calls. They are not declared here: the program looks them up by name in ntdll.dll (module.h). ----

inline constexpr NTSTATUS STATUS_SUCCESS = 0;
inline constexpr NTSTATUS STATUS_BUFFER_OVERFLOW = static_cast<NTSTATUS>(0x80000005);
inline constexpr NTSTATUS STATUS_INVALID_HANDLE = static_cast<NTSTATUS>(0xC0000008);
inline constexpr NTSTATUS STATUS_INVALID_PARAMETER = static_cast<NTSTATUS>(0xC000000D);
inline constexpr NTSTATUS STATUS_NO_MEMORY = static_cast<NTSTATUS>(0xC0000017);
inline constexpr NTSTATUS STATUS_ACCESS_DENIED = static_cast<NTSTATUS>(0xC0000022);
inline constexpr NTSTATUS STATUS_BUFFER_TOO_SMALL = static_cast<NTSTATUS>(0xC0000023);
inline constexpr NTSTATUS STATUS_OBJECT_NAME_NOT_FOUND = static_cast<NTSTATUS>(0xC0000034);
inline constexpr NTSTATUS STATUS_OBJECT_PATH_SYNTAX_BAD = static_cast<NTSTATUS>(0xC000003B);
inline constexpr NTSTATUS STATUS_INSUFFICIENT_RESOURCES = static_cast<NTSTATUS>(0xC000009A);
inline constexpr NTSTATUS STATUS_INTERNAL_ERROR = static_cast<NTSTATUS>(0xC00000E5);
inline constexpr NTSTATUS STATUS_KEY_DELETED = static_cast<NTSTATUS>(0xC000017C);

inline constexpr DWORD OBJ_CASE_INSENSITIVE = 0x40;
inline constexpr DWORD KeyValuePartialInformation = 2;

// A counted text: lengths in bytes, `Buffer` not owned.
struct UNICODE_STRING {
  WORD Length;
  WORD MaximumLength;
  const char16_t* Buffer;
};
static_assert(sizeof(UNICODE_STRING) == 16);

struct OBJECT_ATTRIBUTES {
  DWORD Length;
  NativeKeyHandle RootDirectory;
  const UNICODE_STRING* ObjectName;
  DWORD Attributes;
  void* SecurityDescriptor;
  void* SecurityQualityOfService;
};
static_assert(sizeof(OBJECT_ATTRIBUTES) == 48);

// What NtQueryValueKey writes for KeyValuePartialInformation; the data follow the header.
struct KEY_VALUE_PARTIAL_INFORMATION_HEADER {
  DWORD TitleIndex;
  DWORD Type;
  DWORD DataLength;
};
static_assert(sizeof(KEY_VALUE_PARTIAL_INFORMATION_HEADER) == 12);

// Builds a counted string from a NUL-terminated one; a text longer than the counted string can hold is cut.
using RtlInitUnicodeStringFunction = void (*)(UNICODE_STRING* destination, const char16_t* source);
// Opens a key by its absolute path ("\Registry\Machine\...") or relative to `RootDirectory`.
using NtOpenKeyFunction = NTSTATUS (*)(NativeKeyHandle* key, REGSAM access, const OBJECT_ATTRIBUTES* attributes);
// Reads a value. STATUS_BUFFER_OVERFLOW when the header and part of the data fit, STATUS_BUFFER_TOO_SMALL when not even
// the header does; `*resultLength` is the length that all would take.
using NtQueryValueKeyFunction = NTSTATUS (*)(NativeKeyHandle key, const UNICODE_STRING* valueName,
                                             DWORD informationClass, void* information, DWORD length,
                                             DWORD* resultLength);
// Opens the root of the caller's own hive.
using RtlOpenCurrentUserFunction = NTSTATUS (*)(REGSAM access, NativeKeyHandle* key);

}  // namespace platform
