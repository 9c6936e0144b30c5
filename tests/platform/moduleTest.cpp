// Modules and what they export.
#include "platform/module.h"

#include <gtest/gtest.h>

#include <string_view>

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

TEST(Module, IsFoundWithoutBeingPinned) {
  HMODULE pinned;
  ASSERT_TRUE(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, u"kernel32.dll", &pinned));
  EXPECT_EQ(GetModuleHandleW(u"kernel32"), pinned);
  EXPECT_FALSE(GetModuleHandleW(u"lumenar-none"));
  EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
}

TEST(Module, TellsThatThisProcessComesInNoPackage) {
  const auto function = GetProcAddress(GetModuleHandleW(u"kernel32"), "GetPackageFamilyName");
  ASSERT_TRUE(function != nullptr);
  UINT length = 0;
  const auto familyName = reinterpret_cast<GetPackageFamilyNameFunction>(function);
  EXPECT_EQ(familyName(GetCurrentProcess(), &length, nullptr), APPMODEL_ERROR_NO_PACKAGE);
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

constexpr DWORD kOfAddress = GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS;

TEST(Module, IsFoundByTheAddressOfItsCode) {
  HMODULE module;
  ASSERT_TRUE(GetModuleHandleExA(kOfAddress, &kOfAddress, &module));
  char own[MAX_PATH] = {};
  char program[MAX_PATH] = {};
  const DWORD length = GetModuleFileNameA(module, own, MAX_PATH);
  EXPECT_GT(length, 0u);
  EXPECT_EQ(GetModuleFileNameA({}, program, MAX_PATH), length);
  EXPECT_STREQ(own, program);
  EXPECT_EQ(std::string_view(own).size(), length);
  EXPECT_NE(std::string_view(own).find("platform_tests"), std::string_view::npos);
}

TEST(Module, PathIsCutToTheBuffer) {
  char whole[MAX_PATH];
  GetModuleFileNameA({}, whole, MAX_PATH);
  char path[8];
  EXPECT_EQ(GetModuleFileNameA({}, path, sizeof path), sizeof path);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  // Windows puts a NUL last, Wine leaves one byte more of the path there.
  EXPECT_EQ(std::string_view(path, sizeof path - 1), std::string_view(whole, sizeof path - 1));
}

}  // namespace
