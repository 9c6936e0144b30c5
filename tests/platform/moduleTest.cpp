// Modules and what they export.
#include "platform/module.h"

#include <gtest/gtest.h>

#include "platform/error.h"

namespace {

using namespace platform;

TEST(Module, IsFoundByItsNameWithoutCaseAndWithoutItsSuffix) {
  HMODULE a;
  HMODULE b;
  EXPECT_TRUE(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, u"ntdll.dll", &a));
  EXPECT_TRUE(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, u"NTDLL", &b));
  EXPECT_TRUE(a);
  EXPECT_EQ(a, b);
}

TEST(Module, ThatIsNotLoadedIsNotFound) {
  HMODULE module{1};
  SetLastError(0);
  EXPECT_FALSE(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, u"lumenar-none.dll", &module));
  EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
  EXPECT_FALSE(module);
}

TEST(Module, ExportsItsFunctionsByTheirExactNames) {
  HMODULE module;
  ASSERT_TRUE(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, u"ntdll.dll", &module));
  for (const char* name : {"RtlInitUnicodeString", "NtOpenKey", "NtQueryValueKey", "RtlOpenCurrentUser"}) {
    EXPECT_TRUE(GetProcAddress(module, name) != nullptr) << name;
  }
  for (const char* name : {"LumenarNone", "ntopenkey", ""}) {
    SetLastError(0);
    EXPECT_TRUE(GetProcAddress(module, name) == nullptr) << name;
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND) << name;
  }
}

}  // namespace
