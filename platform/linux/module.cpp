#include "platform/module.h"

#include <string_view>

#include "platform/error.h"
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

}  // namespace platform
