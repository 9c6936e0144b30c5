#include "tests/roads/clientRecorder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>

#include "tests/support/recorder.h"

namespace roads {
namespace {

constexpr std::chrono::seconds kLongestStart(60);

ClientRecorder* current = nullptr;

}  // namespace

ClientRecorder::ClientRecorder() {
  current = this;
  thread_ = std::thread([this] { Serve(); });
  std::unique_lock guard(lock_);
  changed_.wait(guard, [this] { return serving_; });
}

ClientRecorder::~ClientRecorder() {
  Release();
  platform::PostMessageW(window_, platform::WM_DESTROY, 0, 0);
  thread_.join();
  current = nullptr;
}

std::u16string ClientRecorder::Next() {
  std::unique_lock guard(lock_);
  if (!changed_.wait_for(guard, kLongestStart, [this] { return !lines_.empty(); })) {
    ADD_FAILURE() << "no client was started";
    return {};
  }
  std::u16string line = std::move(lines_.front());
  lines_.pop_front();
  return line;
}

void ClientRecorder::Hold() {
  const std::lock_guard guard(lock_);
  held_ = true;
}

void ClientRecorder::Release() {
  const std::lock_guard guard(lock_);
  held_ = false;
  changed_.notify_all();
}

platform::LRESULT ClientRecorder::WindowProcedure(platform::HWND window, platform::UINT message,
                                                  platform::WPARAM wParam, platform::LPARAM lParam) {
  switch (message) {
    case platform::WM_COPYDATA: current->Take(*reinterpret_cast<const platform::COPYDATASTRUCT*>(lParam)); return 0;
    case platform::WM_DESTROY: platform::PostQuitMessage(0); return 0;
    default: return platform::DefWindowProcW(window, message, wParam, lParam);
  }
}

void ClientRecorder::Take(const platform::COPYDATASTRUCT& report) {
  std::u16string line(report.cbData / sizeof(char16_t), u'\0');
  std::memcpy(line.data(), report.lpData, line.size() * sizeof(char16_t));
  std::unique_lock guard(lock_);
  lines_.push_back(std::move(line));
  changed_.notify_all();
  changed_.wait(guard, [this] { return !held_; });
}

void ClientRecorder::Serve() {
  platform::WNDCLASSEXW windowClass{};
  windowClass.cbSize = sizeof windowClass;
  windowClass.lpfnWndProc = &WindowProcedure;
  windowClass.lpszClassName = support::kRecorderClass;
  platform::RegisterClassExW(&windowClass);  // Fails when an earlier recorder of this process has registered it.
  const platform::HWND window = platform::CreateWindowExW(0, support::kRecorderClass, nullptr, 0, 0, 0, 0, 0,
                                                          platform::HWND_MESSAGE, nullptr, nullptr, nullptr);
  {
    const std::lock_guard guard(lock_);
    window_ = window;
    serving_ = true;
    changed_.notify_all();
  }
  platform::MSG message{};
  while (platform::GetMessageW(&message, nullptr, 0, 0) > 0) platform::DispatchMessageW(&message);
  platform::DestroyWindow(window);
}

}  // namespace roads
