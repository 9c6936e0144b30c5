#include "launcher/clientProcess.h"

#include "platform/raii.h"

namespace launcher {
namespace {
constexpr platform::DWORD kIdleWaitMilliseconds = 3000;
}

void StartClientProcess(std::u16string commandLine) {
  platform::STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  platform::PROCESS_INFORMATION information{};
  if (!platform::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, false, platform::NORMAL_PRIORITY_CLASS,
                                nullptr, nullptr, &startup, &information)) {
    return;
  }
  const platform::UniqueProcess process(information.hProcess);
  const platform::UniqueThread thread(information.hThread);  // Closed first.
  platform::WaitForInputIdle(process.get(), kIdleWaitMilliseconds);
  platform::EnumWindows(&ActivateLaunchedWindowCB, static_cast<platform::LPARAM>(information.dwProcessId));
}

bool ActivateLaunchedWindowCB(platform::HWND window, platform::LPARAM processId) {
  platform::DWORD owner = 0;
  platform::GetWindowThreadProcessId(window, &owner);
  if (static_cast<platform::LPARAM>(owner) != processId) return true;
  // With the Alt key held down the system lets a background process choose the foreground window.
  platform::INPUT altKey{};
  altKey.type = platform::INPUT_KEYBOARD;
  altKey.ki.wVk = platform::VK_MENU;
  platform::SendInput(1, &altKey, sizeof altKey);
  platform::SetForegroundWindow(window);
  altKey.ki.dwFlags = platform::KEYEVENTF_KEYUP;
  platform::SendInput(1, &altKey, sizeof altKey);
  return false;
}

}  // namespace launcher
