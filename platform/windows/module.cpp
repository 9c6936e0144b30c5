#include "platform/module.h"

#include <windows.h>

namespace platform {

bool GetModuleHandleExW(DWORD flags, const char16_t* name, HMODULE* module) noexcept {
  ::HMODULE found = nullptr;
  const bool ok = ::GetModuleHandleExW(flags, reinterpret_cast<const wchar_t*>(name), &found) != FALSE;
  *module = HMODULE(reinterpret_cast<std::uintptr_t>(found));
  return ok;
}

HMODULE GetModuleHandleW(const char16_t* name) noexcept {
  return HMODULE(reinterpret_cast<std::uintptr_t>(::GetModuleHandleW(reinterpret_cast<const wchar_t*>(name))));
}

bool GetModuleHandleExA(DWORD flags, const void* address, HMODULE* module) noexcept {
  ::HMODULE found = nullptr;
  const bool ok = ::GetModuleHandleExA(flags, static_cast<const char*>(address), &found) != FALSE;
  *module = HMODULE(reinterpret_cast<std::uintptr_t>(found));
  return ok;
}

DWORD GetModuleFileNameA(HMODULE module, char* path, DWORD size) noexcept {
  return ::GetModuleFileNameA(reinterpret_cast<::HMODULE>(module.value()), path, size);
}

ModuleFunction GetProcAddress(HMODULE module, const char* name) noexcept {
  return reinterpret_cast<ModuleFunction>(::GetProcAddress(reinterpret_cast<::HMODULE>(module.value()), name));
}

DWORD GetModuleFileNameW(std::nullptr_t, char16_t* path, DWORD size) noexcept {
  return ::GetModuleFileNameW(nullptr, reinterpret_cast<wchar_t*>(path), size);
}

}  // namespace platform
