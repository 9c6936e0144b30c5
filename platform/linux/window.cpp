#include "platform/window.h"

#include <new>

#include "platform/error.h"
#include "platform/linux/faults.h"
#include "platform/linux/messageQueue.h"
#include "platform/linux/windowClasses.h"
#include "platform/linux/windowName.h"
#include "platform/linux/windowSocket.h"
#include "platform/linux/windowTable.h"

namespace platform {
namespace {

// Makes the window known to all; null, with the last error set, on failure.
std::shared_ptr<Window> NewWindow(const char16_t* className, bool topLevel) {
  const auto procedure = windowClasses::ProcedureOf(className);
  if (!procedure) {
    SetLastError(ERROR_CANNOT_FIND_WND_CLASS);
    return nullptr;
  }
  const auto& queue = MessageQueue::OfThisThread();
  const auto window = std::make_shared<Window>();
  window->place = {.folder = windowSocket::Folder(), .name = NewWindowName(topLevel, className).Text()};
  if (window->place.folder.empty()) return nullptr;
  window->procedure = *procedure;
  window->queue = queue;
  window->listener = windowSocket::Listen(window->place);
  if (!window->listener) return nullptr;
  try {
    windowTable::Add(window);
    queue->AddWindow(window);
  } catch (...) {
    windowTable::Remove(window->handle);
    windowSocket::Remove(window->place);
    throw;
  }
  return window;
}

}  // namespace

WORD RegisterClassExW(const WNDCLASSEXW* windowClass) noexcept try {
  if (FaultInjected("RegisterClassExW")) return 0;
  if (windowClass->cbSize != sizeof(WNDCLASSEXW) || windowClass->lpszClassName == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  const WORD atom = windowClasses::Add(windowClass->lpszClassName, windowClass->lpfnWndProc);
  if (atom == 0) SetLastError(ERROR_CLASS_ALREADY_EXISTS);
  return atom;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return 0;
}

HWND CreateWindowExW(DWORD, const char16_t* className, const char16_t*, DWORD, int, int, int, int, HWND parent,
                     std::nullptr_t, HINSTANCE, std::nullptr_t) noexcept try {
  if (FaultInjected("CreateWindowExW")) return {};
  if (parent && parent != HWND_MESSAGE) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return {};
  }
  const auto window = NewWindow(className, !parent);
  if (!window) return {};
  if (CallProcedure(*window, WM_CREATE, 0, 0) == -1) {
    MessageQueue::OfThisThread()->RemoveWindow(window->handle);
    return {};
  }
  return window->handle;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

bool DestroyWindow(HWND window) noexcept try {
  if (FaultInjected("DestroyWindow")) return false;
  const auto own = windowTable::OwnWindow(window);
  if (!own || !IsOfThisThread(*own)) {
    if (windowTable::PlaceOf(window)) SetLastError(ERROR_ACCESS_DENIED);
    return false;
  }
  CallProcedure(*own, WM_DESTROY, 0, 0);
  MessageQueue::OfThisThread()->RemoveWindow(window);
  return true;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return false;
}

LRESULT DefWindowProcW(HWND, UINT, WPARAM, LPARAM) noexcept { return 0; }

// There are no levels of integrity on this machine: whoever reaches the window may send to it.
bool ChangeWindowMessageFilterEx(HWND window, UINT, DWORD action, std::nullptr_t) noexcept {
  if (FaultInjected("ChangeWindowMessageFilterEx")) return false;
  if (action != MSGFLT_ALLOW) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  if (windowTable::OwnWindow(window)) return true;
  SetLastError(ERROR_INVALID_WINDOW_HANDLE);
  return false;
}

HWND FindWindowW(const char16_t* className, std::nullptr_t) noexcept try {
  if (FaultInjected("FindWindowW")) return {};
  const std::string folder = windowSocket::Folder();
  if (folder.empty()) return {};
  const std::string safeClass = SafeClassName(className);
  for (const WindowName& name : windowSocket::List(folder)) {
    if (name.safeClass != safeClass) continue;
    const windowSocket::Place place{.folder = folder, .name = name.Text()};
    if (windowSocket::IsAlive(place)) return windowTable::Intern(place);
  }
  return {};
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

}  // namespace platform
