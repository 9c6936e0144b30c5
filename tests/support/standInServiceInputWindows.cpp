#include <windows.h>

#include "tests/support/standInServiceInput.h"

namespace standIn {

bool InputLines::ReadMore() {
  char chunk[4096];
  DWORD got = 0;
  if (!ReadFile(GetStdHandle(STD_INPUT_HANDLE), chunk, sizeof chunk, &got, nullptr) || got == 0) return false;
  buffered_.append(chunk, got);
  return true;
}

}  // namespace standIn
