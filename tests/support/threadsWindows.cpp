#include "tests/support/threads.h"

#include <windows.h>

#include "tests/support/machine.h"

namespace support {

std::string NameOfThisThread() {
  using GetThreadDescription = HRESULT(WINAPI*)(HANDLE, wchar_t**);
  const auto get = reinterpret_cast<GetThreadDescription>(
      reinterpret_cast<void (*)()>(::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "GetThreadDescription")));
  wchar_t* name = nullptr;
  if (get == nullptr || get(::GetCurrentThread(), &name) < 0) return "?";
  const std::string narrow = Narrow(reinterpret_cast<const char16_t*>(name));
  ::LocalFree(name);
  return narrow;
}

void EndThisThread() { ::ExitThread(0); }

}  // namespace support
