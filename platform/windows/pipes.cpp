#include "platform/pipes.h"

#include <windows.h>

namespace platform {
namespace {

::HANDLE Native(PipeHandle handle) { return reinterpret_cast<::HANDLE>(handle.value()); }

}  // namespace

bool CreatePipe(PipeHandle* readEnd, PipeHandle* writeEnd, std::nullptr_t, Only<DWORD{0}>) noexcept {
  ::HANDLE reads = nullptr;
  ::HANDLE writes = nullptr;
  if (!::CreatePipe(&reads, &writes, nullptr, 0)) return false;
  *readEnd = PipeHandle(reinterpret_cast<std::uintptr_t>(reads));
  *writeEnd = PipeHandle(reinterpret_cast<std::uintptr_t>(writes));
  return true;
}

bool ReadFile(PipeHandle readEnd, void* data, DWORD size, DWORD* count, std::nullptr_t) noexcept {
  ::DWORD got = 0;
  const bool done = ::ReadFile(Native(readEnd), data, size, &got, nullptr) != FALSE;
  *count = got;
  return done;
}

bool WriteFile(PipeHandle writeEnd, const void* data, DWORD size, DWORD* count, std::nullptr_t) noexcept {
  ::DWORD gone = 0;
  const bool done = ::WriteFile(Native(writeEnd), data, size, &gone, nullptr) != FALSE;
  *count = gone;
  return done;
}

}  // namespace platform
