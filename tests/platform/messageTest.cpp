#include <gtest/gtest.h>

#include <thread>

#include "platform/error.h"
#include "tests/platform/windowSupport.h"
#include "tests/support/machine.h"

using namespace platform;
using namespace windowTests;

namespace {

constexpr DWORD ERROR_MESSAGE_SYNC_ONLY = 1159;

MSG NextMessage() {
  MSG message{};
  EXPECT_GT(GetMessageW(&message, nullptr, 0, 0), 0);
  return message;
}

}  // namespace

TEST(PostedMessage, ArrivesAsItWasPosted) {
  const support::Machine machine;
  const TestWindow window(u"LumenarTest_Window");
  ASSERT_TRUE(PostMessageW(window.get(), WM_USER + 9, ~WPARAM{0}, -5));
  const MSG message = NextMessage();
  EXPECT_EQ(message.hwnd, window.get());
  EXPECT_EQ(message.message, WM_USER + 9);
  EXPECT_EQ(message.wParam, ~WPARAM{0});
  EXPECT_EQ(message.lParam, -5);
}

TEST(PostedMessage, IsNotHandledBeforeItIsDispatched) {
  const support::Machine machine;
  int handled = 0;
  const TestWindow window(u"LumenarTest_Window", [&](UINT message, WPARAM, LPARAM) -> std::optional<LRESULT> {
    if (message != WM_USER) return std::nullopt;
    ++handled;
    return 17;
  });
  ASSERT_TRUE(PostMessageW(window.get(), WM_USER, 0, 0));
  const MSG message = NextMessage();
  EXPECT_EQ(handled, 0);
  EXPECT_FALSE(TranslateMessage(&message));
  EXPECT_EQ(DispatchMessageW(&message), 17);
  EXPECT_EQ(handled, 1);
}

TEST(PostedMessage, OfOneThreadKeepsItsPlace) {
  const support::Machine machine;
  const TestWindow window(u"LumenarTest_Window");
  std::thread([&] {
    for (WPARAM i = 0; i < 500; ++i) EXPECT_TRUE(PostMessageW(window.get(), WM_USER, i, 0));
  }).join();
  for (WPARAM i = 0; i < 500; ++i) ASSERT_EQ(NextMessage().wParam, i);
}

TEST(PostedMessage, WakesAThreadThatWaits) {
  const support::Machine machine;
  const TestWindow window(u"LumenarTest_Window");
  const TestWindow other(u"LumenarTest_Window");
  std::thread poster([&] { EXPECT_TRUE(PostMessageW(other.get(), WM_USER, 3, 0)); });
  const MSG message = NextMessage();
  EXPECT_EQ(message.hwnd, other.get());
  EXPECT_EQ(message.wParam, 3U);
  poster.join();
}

TEST(PostedMessage, KeepsItsPlaceAcrossProcesses) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  const HWND window = FindReceiver();
  for (WPARAM i = 0; i < 200; ++i) ASSERT_TRUE(PostMessageW(window, kMark, i, 0));
  for (WPARAM i = 0; i < 200; ++i) ASSERT_EQ(receiver.Hear(), "mark " + std::to_string(i));
}

TEST(PostedMessage, DoesNotWaitForABusyReceiver) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  const HWND window = FindReceiver();
  ASSERT_TRUE(PostMessageW(window, kHold, 0, 0));
  ASSERT_EQ(receiver.Hear(), "holding");
  EXPECT_TRUE(PostMessageW(window, kMark, 1, 0));
  EXPECT_TRUE(PostMessageW(window, kMark, 2, 0));
  receiver.Say("go on");
  EXPECT_EQ(receiver.Hear(), "mark 1");
  EXPECT_EQ(receiver.Hear(), "mark 2");
}

TEST(PostedMessage, CarriesNoAddress) {
  const support::Machine machine;
  const TestWindow window(u"LumenarTest_Window");
  support::Process receiver = StartReceiver();
  COPYDATASTRUCT data{.dwData = 1, .cbData = 0, .lpData = nullptr};
  for (const HWND to : {window.get(), FindReceiver()}) {
    EXPECT_FALSE(PostMessageW(to, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&data)));
    EXPECT_EQ(GetLastError(), ERROR_MESSAGE_SYNC_ONLY);
  }
}

TEST(PostedMessage, ToNoWindowIsRefused) {
  const support::Machine machine;
  EXPECT_FALSE(PostMessageW(HWND(0x123456), WM_USER, 0, 0));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
}

TEST(PostedMessage, ToAProcessThatWasKilledIsRefused) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  const HWND window = FindReceiver();
  ASSERT_TRUE(PostMessageW(window, WM_NULL, 0, 0));
  receiver.Kill();
  receiver.Wait();
  EXPECT_FALSE(PostMessageW(window, WM_USER, 0, 0));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
}

TEST(PostedMessage, EndsWithItsWindow) {
  const support::Machine machine;
  const TestWindow survivor(u"LumenarTest_Window");
  {
    const TestWindow window(u"LumenarTest_Window");
    ASSERT_TRUE(PostMessageW(window.get(), WM_USER, 1, 0));
  }
  ASSERT_TRUE(PostMessageW(survivor.get(), WM_USER, 2, 0));
  EXPECT_EQ(NextMessage().wParam, 2U);
}

TEST(QuitMessage, ComesBehindEveryPostedMessage) {
  const support::Machine machine;
  const TestWindow window(u"LumenarTest_Window");
  ASSERT_TRUE(PostMessageW(window.get(), WM_USER, 1, 0));
  PostQuitMessage(42);
  ASSERT_TRUE(PostMessageW(window.get(), WM_USER, 2, 0));
  EXPECT_EQ(NextMessage().wParam, 1U);
  EXPECT_EQ(NextMessage().wParam, 2U);
  MSG message{};
  EXPECT_EQ(GetMessageW(&message, nullptr, 0, 0), 0);
  EXPECT_EQ(message.message, WM_QUIT);
  EXPECT_EQ(message.wParam, 42U);
  EXPECT_FALSE(message.hwnd);
}

TEST(QuitMessage, IsGivenOnce) {
  const support::Machine machine;
  const TestWindow window(u"LumenarTest_Window");
  PostQuitMessage(0);
  EXPECT_EQ(RunMessageLoop(), 0);
  ASSERT_TRUE(PostMessageW(window.get(), WM_USER, 6, 0));
  EXPECT_EQ(NextMessage().wParam, 6U);
}

TEST(QuitMessage, NeedsNoWindow) {
  const support::Machine machine;
  std::thread([] {
    PostQuitMessage(3);
    EXPECT_EQ(RunMessageLoop(), 3);
  }).join();
}

TEST(DispatchMessage, ForNoWindowDoesNothing) {
  const support::Machine machine;
  MSG message{};
  message.message = WM_USER;
  EXPECT_EQ(DispatchMessageW(&message), 0);
}
