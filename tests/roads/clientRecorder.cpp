#include "tests/roads/clientRecorder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>

#include "tests/roads/watchedProcess.h"
#include "tests/support/recorder.h"

namespace roads {
namespace {

constexpr std::chrono::seconds kLongestStart(60);
constexpr std::uint32_t kLongestEnd = 60000;

ClientRecorder* current = nullptr;

}  // namespace

ClientRecorder::ClientRecorder() {
  current = this;
  thread_ = std::thread([this] { Serve(); });
  std::unique_lock guard(lock_);
  changed_.wait(guard, [this] { return serving_; });
}

// A client that is just ending still keeps its program's file.
ClientRecorder::~ClientRecorder() {
  Release();
  for (const std::uint32_t process : processes_) EXPECT_TRUE(EndsWithin(process, kLongestEnd));
  platform::PostMessageW(window_, platform::WM_DESTROY, 0, 0);
  thread_.join();
  current = nullptr;
}

std::u16string ClientRecorder::Next() {
  std::unique_lock guard(lock_);
  if (!changed_.wait_for(guard, kLongestStart, [this] { return !reports_.empty(); })) {
    ADD_FAILURE() << "no client was started";
    return {};
  }
  const Report report = std::move(reports_.front());
  reports_.pop_front();
  const bool ends = !held_;
  guard.unlock();
  if (ends) {
    EXPECT_TRUE(EndsWithin(report.process, kLongestEnd));
  }
  return report.line;
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

void ClientRecorder::Take(const platform::COPYDATASTRUCT& message) {
  Report report{.process = static_cast<std::uint32_t>(message.dwData),
                .line = std::u16string(message.cbData / sizeof(char16_t), u'\0')};
  std::memcpy(report.line.data(), message.lpData, report.line.size() * sizeof(char16_t));
  std::unique_lock guard(lock_);
  processes_.push_back(report.process);
  reports_.push_back(std::move(report));
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
