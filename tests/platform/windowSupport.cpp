#include "tests/platform/windowSupport.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/error.h"

namespace windowTests {
namespace {

thread_local Procedure threadProcedure;

platform::LRESULT CallProcedure(platform::HWND window, platform::UINT message, platform::WPARAM wParam,
                                platform::LPARAM lParam) {
  if (threadProcedure) {
    if (const auto result = threadProcedure(message, wParam, lParam)) return *result;
  }
  return platform::DefWindowProcW(window, message, wParam, lParam);
}

std::string Described(const platform::COPYDATASTRUCT& data) {
  std::string content = "null";
  if (data.lpData != nullptr) {
    const std::vector<std::uint8_t> expected = Pattern(data.cbData);
    const bool same = expected.empty() || std::memcmp(data.lpData, expected.data(), expected.size()) == 0;
    content = same ? "pattern" : "different";
  }
  return "data " + std::to_string(data.dwData) + " " + std::to_string(data.cbData) + " " + content;
}

std::optional<platform::LRESULT> Receive(platform::UINT message, platform::WPARAM wParam, platform::LPARAM lParam) {
  switch (message) {
    case kHold:
      support::Say("holding");
      (void)support::Hear();
      return 1;
    case kMark: support::Say("mark " + std::to_string(wParam)); return static_cast<platform::LRESULT>(wParam) + 1000;
    case kQuit: platform::PostQuitMessage(static_cast<int>(wParam)); return 0;
    case kVanish: std::_Exit(0);
    case platform::WM_COPYDATA: {
      const auto& data = *reinterpret_cast<const platform::COPYDATASTRUCT*>(lParam);
      support::Say(Described(data));
      return data.cbData;
    }
    default: return std::nullopt;
  }
}

}  // namespace

CHILD_BODY(Receiver) {
  const TestWindow window(kClass, &Receive, arguments.at(0) == "top" ? platform::HWND() : platform::HWND_MESSAGE);
  support::Say("ready");
  return RunMessageLoop();
}

TestWindow::TestWindow(const char16_t* className, Procedure procedure, platform::HWND parent) {
  SetProcedure(std::move(procedure));
  RegisterTestClass(className);
  window_ = CreateTestWindow(className, parent);
  if (!window_) {
    std::fprintf(stderr, "CreateWindowExW: error %u\n", platform::GetLastError());
    std::abort();
  }
}

TestWindow::~TestWindow() {
  SetProcedure({});
  platform::DestroyWindow(window_);
}

platform::WORD RegisterTestClass(const char16_t* className) {
  platform::WNDCLASSEXW windowClass{};
  windowClass.cbSize = sizeof windowClass;
  windowClass.lpfnWndProc = &CallProcedure;
  windowClass.lpszClassName = className;
  return platform::RegisterClassExW(&windowClass);
}

platform::HWND CreateTestWindow(const char16_t* className, platform::HWND parent) {
  return platform::CreateWindowExW(0, className, nullptr, 0, 0, 0, 0, 0, parent, nullptr, {}, nullptr);
}

void SetProcedure(Procedure procedure) { threadProcedure = std::move(procedure); }

int RunMessageLoop() {
  platform::MSG message{};
  while (platform::GetMessageW(&message, nullptr, 0, 0) != 0) {
    platform::TranslateMessage(&message);
    platform::DispatchMessageW(&message);
  }
  return static_cast<int>(message.wParam);
}

support::Process StartReceiver(bool topLevel) {
  support::Process receiver = support::StartChild("Receiver", {topLevel ? "top" : "message-only"});
  if (receiver.Hear() != "ready") std::abort();
  return receiver;
}

platform::HWND FindReceiver() { return platform::FindWindowW(kClass, nullptr); }

std::vector<std::uint8_t> Pattern(std::size_t size) {
  std::vector<std::uint8_t> bytes(size);
  std::uint32_t state = 1;
  for (std::uint8_t& byte : bytes) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<std::uint8_t>(state >> 24);
  }
  return bytes;
}

}  // namespace windowTests
