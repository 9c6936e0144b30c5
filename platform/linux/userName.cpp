#include "platform/session.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

#include "platform/error.h"
#include "platform/linux/faults.h"
#include "platform/linux/machine.h"
#include "platform/linux/userName.h"

namespace platform {
namespace {

struct CloseFile {
  void operator()(FILE* file) const { std::fclose(file); }
};

// Read by hand: the host's own look-up loads modules, which a static executable cannot.
std::string NameInTable() {
  const std::unique_ptr<FILE, CloseFile> table(std::fopen("/etc/passwd", "re"));
  if (!table) return {};
  char line[4096];
  passwd entry{};
  passwd* found = nullptr;
  while (fgetpwent_r(table.get(), &entry, line, sizeof line, &found) == 0) {
    if (found->pw_uid == geteuid()) return found->pw_name;
  }
  return {};
}

}  // namespace

std::string UserName() {
  std::string name = NameInTable();
  if (!name.empty()) return name;
  const char* variable = std::getenv("USER");
  return variable != nullptr && *variable != '\0' ? variable : "user";
}

bool GetUserNameW(char16_t* name, DWORD* size) noexcept try {
  if (FaultInjected("GetUserNameW")) return false;
  const std::u16string user = machine::FromHost(UserName());
  const DWORD room = std::exchange(*size, static_cast<DWORD>(user.size() + 1));
  if (name == nullptr || room < *size) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return false;
  }
  std::copy_n(user.c_str(), *size, name);
  return true;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

}  // namespace platform
