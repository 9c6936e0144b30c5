#include "platform/module.h"

#include <algorithm>
#include <new>
#include <string>

#include <string_view>

#include "platform/error.h"
#include "platform/linux/commandLine.h"
#include "platform/linux/faults.h"
#include "platform/linux/nativeRegistry.h"
#include "platform/linux/registryName.h"

namespace platform {
namespace {

// The one module that the program looks up; it is always loaded.
constexpr HMODULE kNativeModule{0x10000};

struct Export {
  std::string_view name;
  ModuleFunction function;
};

const Export kExports[] = {
    {"RtlInitUnicodeString", reinterpret_cast<ModuleFunction>(&registry::RtlInitUnicodeString)},
    {"NtOpenKey", reinterpret_cast<ModuleFunction>(&registry::NtOpenKey)},
    {"NtQueryValueKey", reinterpret_cast<ModuleFunction>(&registry::NtQueryValueKey)},
    {"RtlOpenCurrentUser", reinterpret_cast<ModuleFunction>(&registry::RtlOpenCurrentUser)},
};

}  // namespace

bool GetModuleHandleExW(DWORD flags, const char16_t* name, HMODULE* module) noexcept {
  *module = {};
  if (FaultInjected("GetModuleHandleExW")) return false;
  if (flags != GET_MODULE_HANDLE_EX_FLAG_PIN) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  if (!registry::SameName(name, u"ntdll.dll") && !registry::SameName(name, u"ntdll")) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return false;
  }
  *module = kNativeModule;
  return true;
}

ModuleFunction GetProcAddress(HMODULE module, const char* name) noexcept {
  if (FaultInjected("GetProcAddress")) return nullptr;
  if (module == kNativeModule) {
    for (const Export& exported : kExports) {
      if (exported.name == name) return exported.function;
    }
  }
  SetLastError(ERROR_PROC_NOT_FOUND);
  return nullptr;
}

DWORD GetModuleFileNameW(std::nullptr_t, char16_t* path, DWORD size) noexcept try {
  if (FaultInjected("GetModuleFileNameW")) return 0;
  const std::u16string program = commandLine::PathOfThisProgram();
  if (program.empty() || size == 0) return 0;
  const std::size_t length = std::min<std::size_t>(program.size(), size - 1);
  path[program.copy(path, length)] = u'\0';
  if (length == program.size()) return static_cast<DWORD>(length);
  SetLastError(ERROR_INSUFFICIENT_BUFFER);
  return size;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return 0;
}

}  // namespace platform
