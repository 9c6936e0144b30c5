#include "platform/session.h"

#include <windows.h>

namespace platform {

bool GetUserNameW(char16_t* name, DWORD* size) noexcept {
  ::DWORD nativeSize = *size;
  const bool done = ::GetUserNameW(reinterpret_cast<wchar_t*>(name), &nativeSize) != 0;
  *size = nativeSize;
  return done;
}

}  // namespace platform
