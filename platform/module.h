// Modules loaded in the process, and the functions that they export.
#pragma once

#include "platform/types.h"

namespace platform {

using HMODULE = HandleOf<struct ModuleKind>;
using ModuleFunction = void (*)();

inline constexpr DWORD GET_MODULE_HANDLE_EX_FLAG_PIN = 1;

// The module of that name. Pinned, it stays loaded until the process ends and needs no release; no other flag is
// supported. False with ERROR_MOD_NOT_FOUND when no such module is loaded.
bool GetModuleHandleExW(DWORD flags, const char16_t* name, HMODULE* module) noexcept;
// Null with ERROR_PROC_NOT_FOUND when the module exports no such name. The caller casts to the function's own type.
[[nodiscard]] ModuleFunction GetProcAddress(HMODULE module, const char* name) noexcept;

// The path of the running program's file, cut to `size` units with its NUL. The length in units, without the NUL unless
// it was cut; 0 on failure.
DWORD GetModuleFileNameW(std::nullptr_t module, char16_t* path, DWORD size) noexcept;

}  // namespace platform
