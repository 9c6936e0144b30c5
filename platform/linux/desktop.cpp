#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <new>
#include <optional>
#include <string>

#include "platform/error.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/faults.h"
#include "platform/linux/machine.h"
#include "platform/linux/windowName.h"
#include "platform/linux/windowSocket.h"
#include "platform/linux/windowTable.h"
#include "platform/window.h"

namespace platform {
namespace {

constexpr UINT WM_KEYDOWN = 0x100;
constexpr UINT WM_KEYUP = 0x101;
constexpr UINT WM_SYSKEYDOWN = 0x104;
constexpr UINT WM_SYSKEYUP = 0x105;
constexpr int IDOK = 1;

// A symbolic link among the windows' sockets whose target is the name of the foreground window.
constexpr const char* kForeground = "foreground";

Descriptor OpenFolder(const std::string& folder) {
  return Descriptor(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// The place of a window that is there; nothing, with ERROR_INVALID_WINDOW_HANDLE, when it is gone.
std::optional<windowSocket::Place> PlaceOfLiving(HWND window) {
  auto place = windowTable::PlaceOf(window);
  if (place && windowSocket::IsAlive(*place)) return place;
  SetLastError(ERROR_INVALID_WINDOW_HANDLE);
  return std::nullopt;
}

bool PutForeground(const windowSocket::Place& place) {
  const Descriptor folder = OpenFolder(place.folder);
  const std::string passing = ".foreground." + std::to_string(getpid()) + "." + std::to_string(gettid());
  if (folder && symlinkat(place.name.c_str(), folder.get(), passing.c_str()) == 0 &&
      renameat(folder.get(), passing.c_str(), folder.get(), kForeground) == 0) {
    return true;
  }
  SetLastError(windowSocket::ErrorOf(errno));
  return false;
}

HWND ForegroundWindow() {
  const std::string path = windowSocket::Folder();
  if (path.empty()) return {};
  const Descriptor folder = OpenFolder(path);
  char name[NAME_MAX];
  const ssize_t length = folder ? readlinkat(folder.get(), kForeground, name, sizeof name) : -1;
  if (length <= 0) return {};
  const windowSocket::Place place{.folder = path, .name = std::string(name, static_cast<std::size_t>(length))};
  if (!WindowName::Parse(place.name) || !windowSocket::IsAlive(place)) return {};
  return windowTable::Intern(place);
}

// A key goes to the window in the foreground; without one nobody hears it.
void Press(const KEYBDINPUT& key) {
  const bool up = (key.dwFlags & KEYEVENTF_KEYUP) != 0;
  const UINT message = key.wVk == VK_MENU ? (up ? WM_SYSKEYUP : WM_SYSKEYDOWN) : (up ? WM_KEYUP : WM_KEYDOWN);
  // One repetition; for a key that goes up, also that it was down before.
  const LPARAM details = up ? 0xC0000001 : 1;
  if (const HWND window = ForegroundWindow()) PostMessageW(window, message, key.wVk, details);
}

}  // namespace

bool EnumWindows(WNDENUMPROC callback, LPARAM parameter) noexcept try {
  if (FaultInjected("EnumWindows")) return false;
  const std::string folder = windowSocket::Folder();
  if (folder.empty()) return false;
  windowTable::ForgetGone();
  for (const WindowName& name : windowSocket::List(folder)) {
    const windowSocket::Place place{.folder = folder, .name = name.Text()};
    if (!name.topLevel || !windowSocket::IsAlive(place)) continue;
    if (!callback(windowTable::Intern(place), parameter)) return false;
  }
  return true;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

DWORD GetWindowThreadProcessId(HWND window, DWORD* processId) noexcept try {
  if (FaultInjected("GetWindowThreadProcessId")) return 0;
  const auto place = PlaceOfLiving(window);
  const auto name = place ? WindowName::Parse(place->name) : std::nullopt;
  if (!name) return 0;
  if (processId != nullptr) *processId = static_cast<DWORD>(name->process);
  return static_cast<DWORD>(name->thread);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return 0;
}

UINT SendInput(UINT count, const INPUT* inputs, int size) noexcept try {
  if (FaultInjected("SendInput")) return 0;
  if (size != static_cast<int>(sizeof(INPUT))) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  for (UINT i = 0; i < count; ++i) {
    if (inputs[i].type == INPUT_KEYBOARD) Press(inputs[i].ki);
  }
  return count;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return 0;
}

bool SetForegroundWindow(HWND window) noexcept try {
  if (FaultInjected("SetForegroundWindow")) return false;
  const auto place = PlaceOfLiving(window);
  return place && PutForeground(*place);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

HWND GetForegroundWindow() noexcept try {
  if (FaultInjected("GetForegroundWindow")) return {};
  return ForegroundWindow();
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

int MessageBoxW(HWND, const char16_t* text, const char16_t* caption, UINT) noexcept try {
  if (FaultInjected("MessageBoxW")) return 0;
  const std::string line = machine::ToHost(caption) + ": " + machine::ToHost(text) + "\n";
  std::fputs(line.c_str(), stderr);
  return IDOK;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return 0;
}

}  // namespace platform
