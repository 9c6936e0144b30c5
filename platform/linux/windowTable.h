// The window handles of this process: which socket each one stands for, and the windows that the process made itself.
//
// A window has one handle value in a process from the first time that the process meets it; another process may know it
// by another value. No value is used a second time. Any thread may call.
#pragma once

#include <memory>
#include <optional>

#include "platform/linux/descriptor.h"
#include "platform/linux/windowSocket.h"
#include "platform/window.h"

namespace platform {

class MessageQueue;

// A window that a thread of this process made. The thread's queue owns it.
struct Window {
  HWND handle;
  windowSocket::Place place;
  WNDPROC procedure = nullptr;
  Descriptor listener;
  std::weak_ptr<MessageQueue> queue;
};

namespace windowTable {

// The handle of the window at that place, which may be of any process.
[[nodiscard]] HWND Intern(const windowSocket::Place& place);
// Enters a window of this process and gives it its handle.
void Add(const std::shared_ptr<Window>& window);
void Remove(HWND window) noexcept;

// Where the window is met; nothing, with ERROR_INVALID_WINDOW_HANDLE, for a value that is no window's.
[[nodiscard]] std::optional<windowSocket::Place> PlaceOf(HWND window);
// The window, when a thread of this process made it; else null.
[[nodiscard]] std::shared_ptr<Window> OwnWindow(HWND window) noexcept;

// Forgets the windows of other processes that are gone.
void ForgetGone();

}  // namespace windowTable
}  // namespace platform
