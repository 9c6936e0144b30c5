// Modules loaded in the process, and the functions that they export.
#pragma once

#include "platform/handles.h"
#include "platform/types.h"

namespace platform {

using HMODULE = HandleOf<struct ModuleKind>;
using ModuleFunction = void (*)();

inline constexpr DWORD GET_MODULE_HANDLE_EX_FLAG_PIN = 1;

// The module of that name. Pinned, it stays loaded until the process ends and needs no release; no other flag is
// supported. False with ERROR_MOD_NOT_FOUND when no such module is loaded.
bool GetModuleHandleExW(DWORD flags, const char16_t* name, HMODULE* module) noexcept;

// The same, but the module stays loaded only as long as somebody else needs it. Null with ERROR_MOD_NOT_FOUND.
[[nodiscard]] HMODULE GetModuleHandleW(const char16_t* name) noexcept;

inline constexpr DWORD GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT = 2;
inline constexpr DWORD GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS = 4;
// The module that holds the code at that address; `flags` are the two above. Needs no release.
bool GetModuleHandleExA(DWORD flags, const void* address, HMODULE* module) noexcept;
// The path of a module's file in the ANSI code page, cut to `size` bytes, of which the last is for the NUL; then the
// result is `size`, with ERROR_INSUFFICIENT_BUFFER. The length without the NUL; 0 on failure.
DWORD GetModuleFileNameA(HMODULE module, char* path, DWORD size) noexcept;
// Exported by Kernel32.dll: names a thread, for debuggers and for the host's tools. Negative on failure.
using SetThreadDescriptionFunction = HRESULT (*)(ThreadHandle thread, const char16_t* description);

// Exported by Kernel32.dll, if at all: the family of the process's package. ERROR_INSUFFICIENT_BUFFER when there is one
// and the room, `length` units, does not do; APPMODEL_ERROR_NO_PACKAGE when there is none.
using GetPackageFamilyNameFunction = LONG (*)(ProcessHandle process, UINT* length, char16_t* name);
inline constexpr LONG APPMODEL_ERROR_NO_PACKAGE = 15700;

// Null with ERROR_PROC_NOT_FOUND when the module exports no such name. The caller casts to the function's own type.
[[nodiscard]] ModuleFunction GetProcAddress(HMODULE module, const char* name) noexcept;

// The path of the running program's file, cut to `size` units with its NUL. The length in units, without the NUL unless
// it was cut; 0 on failure.
DWORD GetModuleFileNameW(std::nullptr_t module, char16_t* path, DWORD size) noexcept;

}  // namespace platform
