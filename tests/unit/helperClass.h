// Windows of the resident helper's class, which the front end finds by that class and sends to. One at a time.
#pragma once

#include <thread>

#include "platform/window.h"
#include "tests/support/meeting.h"

namespace unit {

// A window on the calling thread. What that thread sends to it arrives within the call, so no time limit matters.
class HelperClassWindow {
 public:
  explicit HelperClassWindow(platform::WNDPROC procedure);
  HelperClassWindow(const HelperClassWindow&) = delete;
  HelperClassWindow& operator=(const HelperClassWindow&) = delete;
  ~HelperClassWindow();

  [[nodiscard]] platform::HWND get() const noexcept { return window_; }

 private:
  platform::HWND window_;
};

// The same on a thread of its own, which serves it until this object goes. The procedure runs there.
class HelperClassThread {
 public:
  explicit HelperClassThread(platform::WNDPROC procedure);
  HelperClassThread(const HelperClassThread&) = delete;
  HelperClassThread& operator=(const HelperClassThread&) = delete;
  ~HelperClassThread();

 private:
  support::Signal ready_;
  platform::HWND window_;
  std::thread thread_;
};

// For a window that answers what it is handed only once it may.
extern support::Signal mayAnswer;
platform::LRESULT AnswerLate(platform::HWND window, platform::UINT message, platform::WPARAM wParam,
                             platform::LPARAM lParam);

}  // namespace unit
