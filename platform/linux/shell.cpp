#include "platform/shell.h"

#include <algorithm>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/environment.h"
#include "platform/linux/faults.h"
#include "platform/linux/machine.h"
#include "platform/linux/processes.h"
#include "platform/raii.h"
#include "platform/registry.h"

namespace platform {
namespace {

bool IsLetter(char16_t unit) { return (unit | 0x20) >= u'a' && (unit | 0x20) <= u'z'; }

bool IsOfScheme(char16_t unit) {
  return IsLetter(unit) || (unit >= u'0' && unit <= u'9') || unit == u'+' || unit == u'-' || unit == u'.';
}

// The scheme of a URL; empty for a path: one letter in front of a colon is a drive.
std::u16string_view SchemeOf(std::u16string_view file) {
  const std::size_t colon = file.find(u':');
  if (colon == file.npos || colon < 2 || !IsLetter(file.front())) return {};
  const std::u16string_view scheme = file.substr(0, colon);
  return std::ranges::all_of(scheme, IsOfScheme) ? scheme : std::u16string_view();
}

std::optional<std::u16string> DefaultTextOf(HKEY root, const std::u16string& path) {
  UniqueKey key;
  if (RegOpenKeyExW(root, path.c_str(), 0, KEY_QUERY_VALUE, key.put()) != ERROR_SUCCESS) return std::nullopt;
  std::u16string text;
  for (DWORD size = 512;;) {
    text.resize(size / sizeof(char16_t) + 1);
    size = static_cast<DWORD>(text.size() * sizeof(char16_t));
    const LSTATUS status = RegGetValueW(key.get(), nullptr, nullptr, RRF_RT_REG_SZ, nullptr, text.data(), &size);
    if (status == static_cast<LSTATUS>(ERROR_MORE_DATA)) continue;
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS)) return std::nullopt;
    text.resize(text.find(u'\0'));
    return text;
  }
}

// The command that opens a URL of the scheme: the user's own, else the machine's.
std::optional<std::u16string> HandlerOf(std::u16string_view scheme) {
  const std::u16string path = u"Software\\Classes\\" + std::u16string(scheme) + u"\\shell\\open\\command";
  for (const HKEY root : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE}) {
    if (auto command = DefaultTextOf(root, path); command && !command->empty()) return command;
  }
  return std::nullopt;
}

// The command with the URL where it says "%1". A command that does not say so is started without it.
std::u16string WithUrl(std::u16string_view command, std::u16string_view url) {
  std::u16string line;
  while (!command.empty()) {
    if (command.starts_with(u"%1")) {
      line += url;
      command.remove_prefix(2);
    } else {
      line += command.front();
      command.remove_prefix(1);
    }
  }
  return line;
}

bool StartAndForget(std::u16string_view line) {
  PROCESS_INFORMATION information{};
  if (!StartProcess(line, &information)) return false;
  CloseHandle(information.hThread);
  CloseHandle(information.hProcess);
  return true;
}

bool Open(std::u16string_view file) {
  const std::u16string_view scheme = SchemeOf(file);
  if (scheme.empty()) return StartAndForget(u'"' + std::u16string(file) + u'"');
  const auto command = HandlerOf(scheme);
  if (!command) {
    SetLastError(ERROR_NO_ASSOCIATION);
    return false;
  }
  return StartAndForget(WithUrl(*command, file));
}

}  // namespace

bool ShellExecuteExW(SHELLEXECUTEINFOW* information) noexcept try {
  if (FaultInjected("ShellExecuteExW")) return false;
  const bool supported = information->cbSize == sizeof *information &&
                         (information->fMask & ~(SEE_MASK_DOENVSUBST | SEE_MASK_FLAG_NO_UI)) == 0 &&
                         (information->lpVerb == nullptr || information->lpVerb == std::u16string_view(u"open")) &&
                         information->lpFile != nullptr && information->lpParameters == nullptr &&
                         information->lpDirectory == nullptr;
  if (!supported) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  const bool substitutes = (information->fMask & SEE_MASK_DOENVSUBST) != 0;
  const bool opened =
      Open(substitutes ? environment::Expand(information->lpFile) : std::u16string(information->lpFile));
  // Values above 32 mean success.
  if (opened) information->hInstApp = HINSTANCE(33);
  return opened;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

}  // namespace platform
