#include "launcher/resident.h"

#include "browser/extensionData.h"
#include "launcher/debugLog.h"
#include "launcher/handOff.h"
#include "launcher/helperWindow.h"
#include "launcher/residentState.h"
#include "launcher/settingsWatcher.h"
#include "platform/raii.h"
#include "platform/window.h"
#include "settings/defaultHandlers.h"
#include "settings/redirectionSettings.h"

namespace launcher {

constinit platform::EventHandle ShutdownEvent;
constinit bool IsAgent = false;

namespace {

using debugLog::LogDirect;
using platform::DWORD;
using platform::HWND;

constexpr const char16_t* kMutexName = u"Corvane Lumenar URL Helper Mutex";

HWND CreateHelperWindow() {
  platform::WNDCLASSEXW windowClass{};
  windowClass.cbSize = sizeof windowClass;
  windowClass.lpfnWndProc = &HelperWindowProc;
  windowClass.lpszClassName = handOff::kHelperWindowClass;
  platform::RegisterClassExW(&windowClass);  // Its failure shows in the next call.
  const HWND window = platform::CreateWindowExW(0, handOff::kHelperWindowClass, nullptr, 0, 0, 0, 0, 0,
                                                platform::HWND_MESSAGE, nullptr, nullptr, nullptr);
  const DWORD error = platform::GetLastError();
  if (!window) LogDirect("Failed to create helper window, err=0x%08x\n", error);
  return window;
}

platform::UniqueEvent CreateShutdownEvent() {
  platform::UniqueEvent event(platform::CreateEventW(nullptr, false, false, nullptr));
  const DWORD error = platform::GetLastError();
  if (!event) LogDirect("Failed to create shutdown event, err=0x%08x\n", error);
  return event;
}

// Without its watcher the helper still serves launchers.
platform::UniqueThread StartWatcher(HWND window) {
  platform::UniqueThread thread(
      platform::CreateThread(nullptr, 0, &SettingsWatcherThread, reinterpret_cast<void*>(window.value()), 0, nullptr));
  const DWORD error = platform::GetLastError();
  if (!thread) LogDirect("Failed to create helper thread, err=0x%08x\n", error);
  return thread;
}

void RunMessageLoop() {
  platform::MSG message{};
  // A failed GetMessageW answers -1 and counts as a message, by design of this loop.
  while (platform::GetMessageW(&message, nullptr, 0, 0) != 0) {
    platform::TranslateMessage(&message);
    platform::DispatchMessageW(&message);
  }
}

void BringUpToDate(bool enabled) {
  if (enabled) {
    settings::SyncDefaultHandlers();
    browser::WriteAllExtensionData();
  }
  settings::SetCustomProtocolKey(true);  // The launch scheme is ours whether redirection is on or not.
}

// From the window's creation to the watcher's end. The order at the end is settled: handlers, then the watcher.
void Serve(bool enabled) {
  const HWND window = CreateHelperWindow();
  if (!window) return;
  platform::UniqueEvent shutdownEvent = CreateShutdownEvent();
  if (!shutdownEvent) return;
  ShutdownEvent = shutdownEvent.get();
  const platform::UniqueThread watcher = StartWatcher(window);

  RunMessageLoop();

  if (enabled && IsAgent) settings::RemoveAllDefaultHandlers();
  if (platform::SetEvent(ShutdownEvent)) {
    if (watcher) platform::WaitForSingleObject(watcher.get(), platform::INFINITE);
  } else {
    static_cast<void>(shutdownEvent.release());  // A watcher that cannot be told goes on using it, and ends with us.
  }
}

}  // namespace

int RunResident() {
  platform::UniqueMutex mutex(platform::CreateMutexW(nullptr, true, kMutexName));
  if (platform::GetLastError() == platform::ERROR_ALREADY_EXISTS) {
    LogDirect("%s: URL redirection helper is already running. Exiting now.", "WinMain");
    static_cast<void>(mutex.release());  // Left to the end of the process.
    return 0;
  }
  const bool enabled = settings::IsURLRedirectionEnabled(&IsAgent);
  BringUpToDate(enabled);
  Serve(enabled);
  if (mutex) platform::ReleaseMutex(mutex.get());
  return 0;
}

}  // namespace launcher
