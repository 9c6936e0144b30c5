#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <cstddef>

#include "tests/ipc/eventSecurity.h"

bool ipcTests::IsForEverybody(std::uintptr_t event) {
  alignas(8) std::array<std::byte, 1024> descriptor{};
  ::DWORD size = 0;
  ::BOOL present = FALSE;
  ::BOOL byDefault = FALSE;
  ::ACL* list = nullptr;
  EXPECT_NE(::GetKernelObjectSecurity(reinterpret_cast<::HANDLE>(event), DACL_SECURITY_INFORMATION, descriptor.data(),
                                      static_cast<::DWORD>(descriptor.size()), &size),
            FALSE);
  EXPECT_NE(::GetSecurityDescriptorDacl(descriptor.data(), &present, &list, &byDefault), FALSE);
  return present != FALSE && list == nullptr;
}
