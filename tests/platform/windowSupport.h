// Windows for tests: a window procedure that a test supplies, and the process on the other side.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/window.h"
#include "tests/support/process.h"

namespace windowTests {

// What a window does with a message; nothing leaves it to DefWindowProcW.
using Procedure = std::function<std::optional<platform::LRESULT>(platform::UINT, platform::WPARAM, platform::LPARAM)>;

// A window of the calling thread, and of a class that is registered when it is not. A thread has one procedure for all
// of them, that of the window made last.
class TestWindow {
 public:
  explicit TestWindow(const char16_t* className, Procedure procedure = {},
                      platform::HWND parent = platform::HWND_MESSAGE);
  ~TestWindow();
  TestWindow(const TestWindow&) = delete;
  TestWindow& operator=(const TestWindow&) = delete;
  [[nodiscard]] platform::HWND get() const { return window_; }

 private:
  platform::HWND window_;
};

// Registers a class with the procedure that TestWindow uses; 0 on failure.
platform::WORD RegisterTestClass(const char16_t* className);
[[nodiscard]] platform::HWND CreateTestWindow(const char16_t* className, platform::HWND parent);
void SetProcedure(Procedure procedure);

// Dispatches messages until WM_QUIT, and returns its exit code.
int RunMessageLoop();

// A process with a window, in its message loop. What it does with messages:
inline constexpr platform::UINT kHold = platform::WM_USER + 1;    // Says "holding", waits for a line. Answers 1.
inline constexpr platform::UINT kMark = platform::WM_USER + 2;    // Says "mark" and wParam. Answers wParam + 1000.
inline constexpr platform::UINT kQuit = platform::WM_USER + 3;    // Posts WM_QUIT.
inline constexpr platform::UINT kVanish = platform::WM_USER + 4;  // Ends the process while it handles the message.
// WM_COPYDATA: says "data", dwData, cbData, and whether lpData is null, is Pattern(cbData), or differs. Answers cbData.
inline constexpr const char16_t* kClass = u"LumenarTest_Receiver";

// The process, ready to receive.
[[nodiscard]] support::Process StartReceiver(bool topLevel = false);
// The receiver's window.
[[nodiscard]] platform::HWND FindReceiver();

// Bytes without a period that a copying mistake could hide in.
[[nodiscard]] std::vector<std::uint8_t> Pattern(std::size_t size);

}  // namespace windowTests
