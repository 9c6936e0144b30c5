#include "tests/unit/helperClass.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "launcher/handOff.h"

namespace unit {
namespace {

constexpr platform::UINT kEndOfLoop = platform::WM_USER + 77;

// A class is registered once in a process's life; the procedure behind it changes from test to test.
std::atomic<platform::WNDPROC> currentProcedure{nullptr};

platform::LRESULT Dispatch(platform::HWND window, platform::UINT message, platform::WPARAM wParam,
                           platform::LPARAM lParam) {
  if (message == kEndOfLoop) {
    platform::PostQuitMessage(0);
    return 0;
  }
  if (const platform::WNDPROC procedure = currentProcedure) return procedure(window, message, wParam, lParam);
  return platform::DefWindowProcW(window, message, wParam, lParam);
}

void RegisterClassOnce() {
  static const platform::WORD atom = [] {
    platform::WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.lpfnWndProc = &Dispatch;
    windowClass.lpszClassName = handOff::kHelperWindowClass;
    return platform::RegisterClassExW(&windowClass);
  }();
  if (atom != 0) return;
  std::fputs("the helper's class cannot be registered\n", stderr);
  std::abort();
}

platform::HWND CreateHelperClassWindow() {
  const platform::HWND window = platform::CreateWindowExW(0, handOff::kHelperWindowClass, nullptr, 0, 0, 0, 0, 0,
                                                          platform::HWND_MESSAGE, nullptr, nullptr, nullptr);
  if (window) return window;
  std::fputs("a window of the helper's class cannot be made\n", stderr);
  std::abort();
}

}  // namespace

HelperClassWindow::HelperClassWindow(platform::WNDPROC procedure) {
  RegisterClassOnce();
  currentProcedure = procedure;
  window_ = CreateHelperClassWindow();
}

HelperClassWindow::~HelperClassWindow() {
  currentProcedure = nullptr;  // The end of the window is no message of a test.
  platform::DestroyWindow(window_);
}

HelperClassThread::HelperClassThread(platform::WNDPROC procedure) {
  thread_ = std::thread([this, procedure] {
    const HelperClassWindow window(procedure);
    window_ = window.get();
    ready_.Give();
    platform::MSG message{};
    while (platform::GetMessageW(&message, nullptr, 0, 0) > 0) platform::DispatchMessageW(&message);
  });
  ready_.Await();
}

HelperClassThread::~HelperClassThread() {
  platform::PostMessageW(window_, kEndOfLoop, 0, 0);
  thread_.join();
}

support::Signal mayAnswer;

platform::LRESULT AnswerLate(platform::HWND window, platform::UINT message, platform::WPARAM wParam,
                             platform::LPARAM lParam) {
  if (message != platform::WM_COPYDATA) return platform::DefWindowProcW(window, message, wParam, lParam);
  mayAnswer.Await();
  return 0;
}

}  // namespace unit
