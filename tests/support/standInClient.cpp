// A stand-in of the remote client. It leaves beside its own program file
//
//   command-line.txt    the command line that it was started with, in UTF-8, nothing added
//   activated.txt       "yes" once its window has come to the foreground, "no" when that has not happened for a while
//
// and then ends by itself.
#include <filesystem>
#include <fstream>

#include "platform/entry.h"
#include "platform/format.h"
#include "platform/handles.h"
#include "platform/raii.h"
#include "platform/shell.h"
#include "platform/window.h"
#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace {

constexpr platform::DWORD kLongestLife = 5000;
constexpr platform::DWORD kStep = 20;

// The file appears with all of its content, or not at all.
void Leave(const std::string& name, const std::string& content) {
  const auto path = [](const std::string& file) {
    const std::string text = support::Beside(file);
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
  };
  const std::filesystem::path temporary = path(name + ".new");
  std::ofstream(temporary, std::ios::binary) << content;
  std::error_code ignored;  // The folder may be gone: the machine was only there for a while.
  std::filesystem::rename(temporary, path(name), ignored);
}

platform::LRESULT WindowProcedure(platform::HWND window, platform::UINT message, platform::WPARAM wParam,
                                  platform::LPARAM lParam) {
  if (message != platform::WM_DESTROY) return platform::DefWindowProcW(window, message, wParam, lParam);
  platform::PostQuitMessage(0);
  return 0;
}

platform::DWORD WaitForActivation(void* parameter) {
  const platform::HWND window = *static_cast<const platform::HWND*>(parameter);
  const platform::UniqueEvent never(platform::CreateEventW(nullptr, true, false, nullptr));
  bool activated = false;
  for (platform::DWORD waited = 0; !activated && waited < kLongestLife; waited += kStep) {
    platform::WaitForSingleObject(never.get(), kStep);
    activated = platform::GetForegroundWindow() == window;
  }
  Leave("activated.txt", activated ? "yes" : "no");
  platform::PostMessageW(window, platform::WM_DESTROY, 0, 0);
  return 0;
}

}  // namespace

int platform::ProgramMain() {
  Leave("command-line.txt", support::Narrow(GetCommandLineW()));

  // Two clients may be up at once, and each has a window of its own.
  const auto className = Format(u"LumenarClientStandIn%u", GetCurrentProcessId());
  WNDCLASSEXW windowClass{};
  windowClass.cbSize = sizeof windowClass;
  windowClass.lpfnWndProc = &WindowProcedure;
  windowClass.lpszClassName = className.c_str();
  RegisterClassExW(&windowClass);
  HWND window = CreateWindowExW(0, className.c_str(), nullptr, 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
  if (!window) return 1;
  const UniqueThread watcher(CreateThread(nullptr, 0, &WaitForActivation, &window, 0, nullptr));
  if (!watcher) return 1;

  MSG message{};
  while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
  WaitForSingleObject(watcher.get(), INFINITE);
  return 0;
}
