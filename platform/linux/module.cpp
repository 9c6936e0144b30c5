#include "platform/module.h"

#include <algorithm>
#include <new>
#include <string>

#include <string_view>

#include "platform/error.h"
#include "platform/linux/ansi.h"
#include "platform/linux/commandLine.h"
#include "platform/linux/faults.h"
#include "platform/linux/machine.h"
#include "platform/linux/nativeRegistry.h"
#include "platform/linux/registryName.h"
#include "platform/linux/results.h"
#include "platform/linux/threadObjects.h"

namespace platform {
namespace {

// The modules that the program looks up; they are always loaded.
constexpr HMODULE kNativeModule{0x10000};
constexpr HMODULE kKernelModule{0x20000};
constexpr HMODULE kProgramModule{0x400000};

HRESULT SetThreadDescription(ThreadHandle handle, const char16_t* description) noexcept try {
  if (FaultInjected("SetThreadDescription")) return E_OUTOFMEMORY;
  const auto thread = FindThread(handle);
  return thread && thread->SetName(machine::ToHost(description)) ? 0 : E_HANDLE;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

// No program of this machine comes in a package; a test may say otherwise, by the error that it chooses.
LONG GetPackageFamilyName(ProcessHandle, UINT*, char16_t*) noexcept {
  if (FaultInjected("GetPackageFamilyName")) return static_cast<LONG>(GetLastError());
  return APPMODEL_ERROR_NO_PACKAGE;
}

template <class Char>
DWORD CopyPath(const std::basic_string<Char>& whole, Char* path, DWORD size) noexcept {
  if (whole.empty() || size == 0) return 0;
  const std::size_t length = std::min<std::size_t>(whole.size(), size - 1);
  path[whole.copy(path, length)] = Char{};
  if (length == whole.size()) return static_cast<DWORD>(length);
  SetLastError(ERROR_INSUFFICIENT_BUFFER);
  return size;
}

struct Export {
  HMODULE module;
  std::string_view name;
  ModuleFunction function;
};

const Export kExports[] = {
    {kNativeModule, "RtlInitUnicodeString", reinterpret_cast<ModuleFunction>(&registry::RtlInitUnicodeString)},
    {kNativeModule, "NtOpenKey", reinterpret_cast<ModuleFunction>(&registry::NtOpenKey)},
    {kNativeModule, "NtQueryValueKey", reinterpret_cast<ModuleFunction>(&registry::NtQueryValueKey)},
    {kNativeModule, "RtlOpenCurrentUser", reinterpret_cast<ModuleFunction>(&registry::RtlOpenCurrentUser)},
    {kKernelModule, "SetThreadDescription", reinterpret_cast<ModuleFunction>(&SetThreadDescription)},
    {kKernelModule, "GetPackageFamilyName", reinterpret_cast<ModuleFunction>(&GetPackageFamilyName)},
};

HMODULE ModuleOfName(const char16_t* name) {
  if (registry::SameName(name, u"ntdll.dll") || registry::SameName(name, u"ntdll")) return kNativeModule;
  if (registry::SameName(name, u"kernel32.dll") || registry::SameName(name, u"kernel32")) return kKernelModule;
  return {};
}

}  // namespace

bool GetModuleHandleExW(DWORD flags, const char16_t* name, HMODULE* module) noexcept {
  *module = {};
  if (FaultInjected("GetModuleHandleExW")) return false;
  if (flags != GET_MODULE_HANDLE_EX_FLAG_PIN) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  *module = ModuleOfName(name);
  if (!*module) SetLastError(ERROR_MOD_NOT_FOUND);
  return static_cast<bool>(*module);
}

HMODULE GetModuleHandleW(const char16_t* name) noexcept {
  if (FaultInjected("GetModuleHandleW")) return {};
  const HMODULE module = ModuleOfName(name);
  if (!module) SetLastError(ERROR_MOD_NOT_FOUND);
  return module;
}

// All code is in one file.
bool GetModuleHandleExA(DWORD flags, const void* address, HMODULE* module) noexcept {
  *module = {};
  if (FaultInjected("GetModuleHandleExA")) return false;
  if (flags != (GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS) ||
      address == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  *module = kProgramModule;
  return true;
}

ModuleFunction GetProcAddress(HMODULE module, const char* name) noexcept {
  if (FaultInjected("GetProcAddress")) return nullptr;
  for (const Export& exported : kExports) {
    if (exported.module == module && exported.name == name) return exported.function;
  }
  SetLastError(ERROR_PROC_NOT_FOUND);
  return nullptr;
}

DWORD GetModuleFileNameA(HMODULE module, char* path, DWORD size) noexcept try {
  if (FaultInjected("GetModuleFileNameA")) return 0;
  if (module && module != kProgramModule) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return 0;
  }
  return CopyPath(ansi::FromWide(commandLine::PathOfThisProgram()), path, size);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return 0;
}

DWORD GetModuleFileNameW(std::nullptr_t, char16_t* path, DWORD size) noexcept try {
  if (FaultInjected("GetModuleFileNameW")) return 0;
  return CopyPath(commandLine::PathOfThisProgram(), path, size);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return 0;
}

}  // namespace platform
