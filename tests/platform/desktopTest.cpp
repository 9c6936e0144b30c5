#include <gtest/gtest.h>

#include "platform/error.h"
#include "tests/platform/windowSupport.h"
#include "tests/support/machine.h"

using namespace platform;
using namespace windowTests;

namespace {

constexpr UINT WM_SYSKEYDOWN = 0x104;
constexpr UINT WM_SYSKEYUP = 0x105;

INPUT Key(WORD key, DWORD flags) {
  INPUT input{};
  input.type = INPUT_KEYBOARD;
  input.ki.wVk = key;
  input.ki.dwFlags = flags;
  return input;
}

UINT Press(const INPUT& input) { return SendInput(1, &input, sizeof input); }

// The next message of that number; whatever else the system sends a window of the foreground is passed over.
MSG NextOf(UINT sought) {
  MSG message{};
  while (GetMessageW(&message, nullptr, 0, 0) > 0 && message.message != sought) DispatchMessageW(&message);
  return message;
}

}  // namespace

// What then can be seen differs: see the tests of either target.
CHILD_BODY(ShowsAMessage) {
  support::Say("showing");
  return MessageBoxW({}, u"No \u00E4pp.", u"--url", MB_ICONHAND | MB_TOPMOST);
}

TEST(EnumWindows, CallsBackUntilToldToStop) {
  const support::Machine machine;
  const TestWindow first(u"LumenarTest_Desktop", {}, HWND());
  const TestWindow second(u"LumenarTest_Desktop", {}, HWND());
  int calls = 0;
  const auto count = [](HWND, LPARAM parameter) {
    ++*reinterpret_cast<int*>(parameter);
    return false;
  };
  EXPECT_FALSE(EnumWindows(count, reinterpret_cast<LPARAM>(&calls)));
  EXPECT_EQ(calls, 1);
}

TEST(EnumWindows, FindsTheWindowOfAProcess) {
  const support::Machine machine;
  support::Process receiver = StartReceiver(true);
  struct Search {
    DWORD process;
    HWND found;
  } search{.process = receiver.Id(), .found = {}};
  EnumWindows(
      [](HWND window, LPARAM parameter) {
        auto& sought = *reinterpret_cast<Search*>(parameter);
        DWORD process = 0;
        GetWindowThreadProcessId(window, &process);
        if (process == sought.process && !sought.found) sought.found = window;
        return true;
      },
      reinterpret_cast<LPARAM>(&search));
  // Wine gives the process a second top-level window, for input methods.
  DWORD process = 0;
  EXPECT_NE(GetWindowThreadProcessId(search.found, &process), 0U);
  EXPECT_EQ(process, receiver.Id());
}

TEST(GetWindowThreadProcessId, OfNoWindowLeavesTheProcessAlone) {
  const support::Machine machine;
  DWORD process = 77;
  EXPECT_EQ(GetWindowThreadProcessId(HWND(0x123456), &process), 0U);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
  EXPECT_EQ(process, 77U);
}

TEST(ForegroundWindow, IsTheOneThatWasPutThere) {
  const support::Machine machine;
  const TestWindow first(u"LumenarTest_Desktop", {}, HWND());
  const TestWindow second(u"LumenarTest_Desktop", {}, HWND());
  EXPECT_TRUE(SetForegroundWindow(first.get()));
  EXPECT_EQ(GetForegroundWindow(), first.get());
  EXPECT_TRUE(SetForegroundWindow(second.get()));
  EXPECT_EQ(GetForegroundWindow(), second.get());
}

TEST(ForegroundWindow, CannotBeAWindowThatIsGone) {
  const support::Machine machine;
  EXPECT_FALSE(SetForegroundWindow(HWND(0x123456)));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
  support::Process receiver = StartReceiver(true);
  const HWND window = FindReceiver();
  ASSERT_TRUE(window);
  receiver.Kill();
  receiver.Wait();
  EXPECT_FALSE(SetForegroundWindow(window));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
}

TEST(ForegroundWindow, MayBeOfAnotherProcess) {
  const support::Machine machine;
  support::Process receiver = StartReceiver(true);
  EXPECT_TRUE(SetForegroundWindow(FindReceiver()));
}

TEST(SendInput, GoesToTheWindowInTheForeground) {
  const support::Machine machine;
  const TestWindow window(u"LumenarTest_Desktop", {}, HWND());
  ASSERT_TRUE(SetForegroundWindow(window.get()));
  EXPECT_EQ(Press(Key(VK_MENU, 0)), 1U);
  EXPECT_EQ(Press(Key(VK_MENU, KEYEVENTF_KEYUP)), 1U);
  const MSG down = NextOf(WM_SYSKEYDOWN);
  EXPECT_EQ(down.hwnd, window.get());
  EXPECT_EQ(down.wParam, VK_MENU);
  const MSG up = NextOf(WM_SYSKEYUP);
  EXPECT_EQ(up.hwnd, window.get());
  EXPECT_EQ(up.wParam, VK_MENU);
}

TEST(SendInput, CountsWhatNobodyHears) {
  const support::Machine machine;
  const INPUT inputs[] = {Key(VK_MENU, 0), Key(VK_MENU, KEYEVENTF_KEYUP)};
  EXPECT_EQ(SendInput(2, inputs, sizeof inputs[0]), 2U);
}

TEST(SendInput, OfAnotherSizeIsRefused) {
  const support::Machine machine;
  const INPUT input = Key(VK_MENU, 0);
  EXPECT_EQ(SendInput(1, &input, 8), 0U);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}
